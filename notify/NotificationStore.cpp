#include "notify/NotificationStore.h"

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "notify/Notify.h"
#include "sdk/eventlog.h"
#include "sdk/user.h"

namespace KIVO::NEXNotify {

namespace {

// The event "all notifications deleted" of the system event log.
constexpr int kEventCategory = 2;
constexpr int kEventLevel = 1;
constexpr unsigned int kEventNotificationsDeleted = 0x14600001;

}  // namespace

SqlText DeleteNotificationsSql(int uid) {
    return SqlText(sqlite3_mprintf("DELETE FROM 'nexnotify' WHERE uid = '%d';", uid));
}

SqlText ReadNotificationsSql(int uid) {
    return SqlText(
        sqlite3_mprintf("SELECT message_content FROM 'nexnotify' INNER JOIN 'message' "
                        "ON nexnotify.message_id = message.message_id "
                        "WHERE uid = '%d' ORDER BY message.timestamp ASC ;",
                        uid));
}

int Notify::ExecuteApply() {
    NotificationStore store;
    int uid = -1;
    if (KIVOUserGetUGID(m_userName.c_str(), &uid, nullptr) < 0) {
        return kErrorSystem;
    }
    if (!store.Open()) {
        LOG_FAILURE("Open nexnotify.db error");
        return kErrorSystem;
    }
    if (!store.Run(DeleteNotificationsSql(uid), nullptr, nullptr)) {
        LOG_FAILURE("run sql error");
        return kErrorSystem;
    }
    // The notifications are gone: a failure to note it does not undo that, so it is no failure of the
    // request.
    static_cast<void>(
        KIVOLogSet1(kEventCategory, kEventLevel, kEventNotificationsDeleted, m_userName.c_str(), "", "", ""));
    return kSuccess;
}

}  // namespace KIVO::NEXNotify
