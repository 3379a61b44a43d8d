// Action "load": one page of the login user's notifications, newest first.

#include <algorithm>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "notify/NotificationStore.h"
#include "notify/Notify.h"
#include "notify/PageWindow.h"
#include "notify/RowScan.h"
#include "notify/StringList.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "sysnotify/rights.h"

namespace KIVO::NEXNotify {

namespace {

/// Lets tags be looked up by a view of them.
struct HashText {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

/// Reads the stored notifications row by row, oldest first: filters them, and keeps what the answer is made
/// of.
class Listing {
public:
    /// `admits` tells whether notifications of a tag are listed; it is asked once a tag.
    Listing(int limit, int offset, std::function<bool(const std::string& tag)> admits)
        : m_admits(std::move(admits)), m_window(limit, offset) {
        m_admitted.max_load_factor(0.25F);  // one look-up a row: the fewer steps, the better
    }

    /// The callback of the query, with the listing as its argument. No exception may pass through SQLite: it
    /// stops the query and waits for ThrowFailure.
    static int OnRow(void* listing, int columnCount, char** columnTexts, char** columnNames) noexcept {
        auto& self = *static_cast<Listing*>(listing);
        try {
            return self.Add(columnCount, columnTexts, columnNames) ? 0 : 1;
        } catch (...) {
            self.m_failure = std::current_exception();
            return 1;
        }
    }

    /// Throws what stopped the query, if anything was thrown.
    void ThrowFailure() const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

    bool HasRows() const { return m_hasRows; }
    double NewestTime() const { return m_newestTime; }
    const PageWindow& Window() const { return m_window; }

private:
    /// False when the row's text is not JSON.
    bool Add(int columnCount, char** columnTexts, char** columnNames) {
        m_hasRows = true;
        const std::string_view text = columnTexts[0] != nullptr ? columnTexts[0] : "";
        std::optional<RowFacts> facts = ScanRow(m_scanner, text);
        std::string tagText;
        if (!facts) {
            Json::Value parsed(Json::arrayValue);
            if (Notify::readDbToJson(&parsed, columnCount, columnTexts, columnNames) != 0) {
                return false;
            }
            facts = FactsOf(parsed[0], tagText);
        }
        if (!IsAdmitted(facts->tag)) {
            return true;
        }
        if (!facts->hasTime) {
            m_window.AddUntimed();
            return true;
        }
        m_window.AddTimed(text);
        m_newestTime = std::max(m_newestTime, facts->time);
        return true;
    }

    bool IsAdmitted(std::string_view tag) {
        if (const auto known = m_admitted.find(tag); known != m_admitted.end()) {
            return known->second;
        }
        std::string newTag(tag);
        const bool isAdmitted = m_admits(newTag);
        m_admitted.emplace(std::move(newTag), isAdmitted);
        return isAdmitted;
    }

    std::function<bool(const std::string&)> m_admits;
    PageWindow m_window;
    JsonScanner m_scanner;
    std::unordered_map<std::string, bool, HashText, std::equal_to<>> m_admitted;
    bool m_hasRows = false;
    double m_newestTime = 0.0;
    std::exception_ptr m_failure;
};

/// Makes the page's items. False when one is not JSON.
bool ParseItems(const PageWindow& window, Json::Value& items) {
    for (size_t position = 0; position < window.Size(); ++position) {
        char* text = const_cast<char*>(window[position]);  // the callback's type; it only reads
        if (Notify::readDbToJson(&items, 1, &text, nullptr) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::unordered_set<std::string> Notify::getEnabledNotificationList() const {
    std::unordered_set<std::string> tags;
    StringList sections;
    if (!sections) {
        return tags;
    }
    const int count = sections.AddSections(Paths::MailsCatalogue(Paths::kEnglish));
    tags.reserve(static_cast<size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
        tags.insert(sections[i]);
    }
    return tags;
}

bool Notify::HasPrivilege(const Json::Value& notification) const {
    std::string tagText;
    FactsOf(notification, tagText);
    return KIVOSysNotifyIsAllow(m_userName.c_str(), tagText.c_str()) == 1;
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

    Listing listing(m_limit, m_offset, [&](const std::string& tag) {
        if (tag.find(':') == std::string::npos && !enabledTags.contains(tag)) {
            return false;
        }
        if (m_all) {
            return true;
        }
        Json::Value notification;
        notification["title"] = tag;
        return HasPrivilege(notification);
    });
    const bool hasRun = store.Run(ReadNotificationsSql(uid), &Listing::OnRow, &listing);
    listing.ThrowFailure();
    Json::Value items(Json::arrayValue);
    if (!hasRun || !ParseItems(listing.Window(), items)) {
        LOG_FAILURE("run sql error");
        return kSuccess;
    }
    if (listing.HasRows()) {
        m_result["newestMsgTime"] = listing.NewestTime();
        // The order of the client's notification sources, which nothing on the appliance defines.
        m_result["priorityMap"] = Json::Value();
        m_result["items"] = std::move(items);
        m_result["total"] = static_cast<Json::ArrayIndex>(listing.Window().Total());
    }
    return kSuccess;
}

}  // namespace KIVO::NEXNotify
