// Action "load": one page of the login user's notifications, newest first.

#include <string>

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "notify/Listing.h"
#include "notify/NotificationStore.h"
#include "notify/Notify.h"
#include "notify/TagFilter.h"
#include "sdk/settings.h"
#include "sdk/user.h"

namespace KIVO::NEXNotify {

int Notify::ExecuteLoad() {
    KivoSettings settings(m_userName);
    NotificationStore store;
    TagFilter filter(*this, m_all);
    int uid = -1;
    if (KIVOUserGetUGID(m_userName.c_str(), &uid, nullptr) < 0) {
        return kErrorSystem;
    }
    if (!store.Open()) {
        LOG_FAILURE("Open nexnotify.db error");
        return kErrorSystem;
    }
    unsigned long long mtime = 0;
    if (m_request->IsAdmin() && settings.getGrpJsonSettingMtime("administrators", mtime)) {
        m_result["admingrpsetmtime"] = std::to_string(mtime);
    }
    m_result["total"] = 0;
    m_result["items"] = Json::Value(Json::arrayValue);
    m_result["newestMsgTime"] = 0;

    Listing listing(filter, m_limit, m_offset);
    const bool hasRun = store.Run(ReadNotificationsSql(uid), &Listing::OnRow, &listing);
    listing.ThrowFailure();
    if (!hasRun) {
        LOG_FAILURE("run sql error");
        return kSuccess;
    }
    if (listing.HasRows()) {
        m_result["newestMsgTime"] = listing.NewestTime();
        // The order of the client's notification sources, which nothing on the appliance defines.
        m_result["priorityMap"] = Json::Value();
        m_result["items"] = listing.Items();
        m_result["total"] = static_cast<Json::ArrayIndex>(listing.Total());
    }
    return kSuccess;
}

}  // namespace KIVO::NEXNotify
