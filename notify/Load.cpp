// Action "load": one page of the login user's notifications, newest first.

#include <cstddef>
#include <string>
#include <utility>

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "notify/Listing.h"
#include "notify/NotificationStore.h"
#include "notify/Notify.h"
#include "notify/TagFilter.h"
#include "sdk/settings.h"
#include "sdk/user.h"

namespace KIVO::NEXNotify {

namespace {

/// Makes the page's items. False when the text of one is not JSON.
[[nodiscard]] bool ParseItems(const PageWindow& page, Json::Value& items) {
    for (std::size_t position = 0; position < page.Size(); ++position) {
        char* text = const_cast<char*>(page[position].c_str());  // the callback's type; it only reads
        if (Notify::readDbToJson(&items, 1, &text, nullptr) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

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
    Json::Value items(Json::arrayValue);
    if (!hasRun || !ParseItems(listing.Page(), items)) {
        LOG_FAILURE("run sql error");
        return kSuccess;
    }
    if (listing.HasRows()) {
        m_result["newestMsgTime"] = listing.NewestTime();
        // The order of the client's notification sources, which nothing on the appliance defines.
        m_result["priorityMap"] = Json::Value();
        m_result["items"] = std::move(items);
        m_result["total"] = static_cast<Json::ArrayIndex>(listing.Page().Total());
    }
    return kSuccess;
}

}  // namespace KIVO::NEXNotify
