// Action "load": one page of the login user's notifications, newest first.

#include <algorithm>
#include <exception>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "notify/NotificationStore.h"
#include "notify/Notify.h"
#include "notify/StringList.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "sysnotify/rights.h"

namespace KIVO::NEXNotify {

namespace {

constexpr Json::ArrayIndex kDefaultPageSize = 30;

/// The member as text, "" when the notification has none. A stored text that is no object, and a title that
/// is no text, count as absent: one odd row must not cost the user the list.
std::string TagOf(const Json::Value& notification) {
    const Json::Value* title = notification.isObject() ? notification.find("title", "title" + 5) : nullptr;
    return title != nullptr && title->isConvertibleTo(Json::stringValue) ? title->asString() : "";
}

bool HasTime(const Json::Value& notification) {
    return notification.isObject() && notification.isMember("time");
}

struct QueryRun {
    Json::Value rows{Json::arrayValue};
    std::exception_ptr failure;
};

/// The callback of the query. No exception may pass through SQLite: it stops the query and waits in the run.
int CollectRow(void* queryRun, int columnCount, char** columnTexts, char** columnNames) {
    auto& run = *static_cast<QueryRun*>(queryRun);
    try {
        return Notify::readDbToJson(&run.rows, columnCount, columnTexts, columnNames);
    } catch (...) {
        run.failure = std::current_exception();
        return 1;
    }
}

/// Puts one page of the listable notifications (those with "time"; oldest first) into the answer, newest
/// first.
void CutPage(const Json::Value& filtered, int limit, int offset, Json::Value& answer) {
    const Json::ArrayIndex pageSize = limit > 0 ? static_cast<Json::ArrayIndex>(limit) : kDefaultPageSize;
    const Json::ArrayIndex count = filtered.size();
    const auto skip = static_cast<Json::ArrayIndex>(std::max(offset, 0));
    Json::Value page(Json::arrayValue);
    Json::ArrayIndex listable = 0;
    Json::ArrayIndex skipped = 0;
    for (Json::ArrayIndex i = count; i-- > 0;) {
        if (!HasTime(filtered[i])) {
            ++skipped;
            continue;
        }
        if (page.size() >= pageSize) {
            break;
        }
        if (listable >= skip) {
            page.append(filtered[i]);
        }
        ++listable;
    }
    // A client that gives no limit is told what it got. One that pages is told how far it can go: what is
    // older than the page and cannot be listed is not looked for, and counted.
    answer["total"] = limit > 0 ? count - skipped : page.size();
    answer["items"] = std::move(page);
}

}  // namespace

std::unordered_set<std::string> Notify::getEnabledNotificationList() const {
    std::unordered_set<std::string> tags;
    StringList sections;
    if (!sections) {
        return tags;
    }
    const int count = sections.AddSections(Paths::MailsCatalogue(Paths::kEnglish));
    for (int i = 0; i < count; ++i) {
        tags.insert(sections[i]);
    }
    return tags;
}

bool Notify::HasPrivilege(const Json::Value& notification) const {
    return KIVOSysNotifyIsAllow(m_userName.c_str(), TagOf(notification).c_str()) == 1;
}

int Notify::ExecuteLoad() {
    const KivoSettings settings(m_userName);
    NotificationStore store;
    const std::unordered_set<std::string> enabledTags = getEnabledNotificationList();
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

    QueryRun run;
    const bool succeeded = store.Run(ReadNotificationsSql(uid), CollectRow, &run);
    if (run.failure) {
        std::rethrow_exception(run.failure);
    }
    if (!succeeded) {
        LOG_FAILURE("run sql error");
        return kSuccess;
    }
    if (run.rows.empty()) {
        return kSuccess;
    }

    Json::Value filtered(Json::arrayValue);
    double newest = 0.0;
    std::unordered_map<std::string, bool>
        privileges;  // Many rows share few tags: each tag is asked for once.
    for (Json::Value& row : run.rows) {
        const std::string tag = TagOf(row);
        if (tag.find(':') == std::string::npos && !enabledTags.contains(tag)) {
            continue;
        }
        if (!m_all) {
            const auto [privilege, isNew] = privileges.try_emplace(tag);
            if (isNew) {
                privilege->second = HasPrivilege(row);
            }
            if (!privilege->second) {
                continue;
            }
        }
        if (HasTime(row) && row["time"].isConvertibleTo(Json::realValue)) {
            newest = std::max(newest, row["time"].asDouble());
        }
        filtered.append(std::move(row));
    }
    m_result["newestMsgTime"] = newest;
    // The order of the client's notification sources, which nothing on the appliance defines.
    m_result["priorityMap"] = Json::Value();
    CutPage(filtered, m_limit, m_offset, m_result);
    return kSuccess;
}

}  // namespace KIVO::NEXNotify
