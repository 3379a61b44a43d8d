// Action "load": one page of the login user's notifications, newest first.

#include <algorithm>
#include <cstddef>
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
#include "notify/TextBatch.h"
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

/// Appends the JSON value of a stored text to the array. False when it is not JSON.
bool Parse(const char* text, Json::Value& array) {
    char* column = const_cast<char*>(text);  // the callback's type; it only reads
    return Notify::readDbToJson(&array, 1, &column, nullptr) == 0;
}

/// Reads the stored notifications row by row, oldest first: filters them, and keeps what the answer is made
/// of.
class Listing {
public:
    /// `admits` tells whether notifications of a tag are listed; it is asked once a tag, as long as
    /// the tags can be remembered.
    Listing(int limit, int offset, std::function<bool(const std::string& tag)> admits)
        : m_admits(std::move(admits)), m_window(limit, offset) {
        m_admitted.max_load_factor(0.25F);  // one look-up a row: the fewer steps, the better
    }

    /// The callback of the query, with the listing as its argument. No exception may pass through SQLite: it
    /// stops the query and waits for ThrowFailure.
    static int OnRow(void* listing, int /*columnCount*/, char** columnTexts, char** /*names*/) noexcept {
        auto& self = *static_cast<Listing*>(listing);
        self.m_hasRows = true;
        try {
            // A row without a text holds what the JSON text of null does.
            return self.Add(columnTexts[0] != nullptr ? columnTexts[0] : "null") ? 0 : 1;
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

    /// Judges the rows that were read last, as it has to be done at their end. False when the text of one is
    /// not JSON.
    bool JudgeBatch() {
        const auto& texts = m_batch.Texts();
        std::size_t judged = m_scanner.ScanBatch(
            m_batch, [this](std::string_view text, const RowFacts& facts) { List(text, facts); });
        for (; judged < texts.size(); ++judged) {
            if (!Judge(texts[judged])) {
                return false;
            }
        }
        m_batch.Clear();
        return true;
    }

    /// Whether all rows have to be read once more; if so, it is ready for them.
    bool StartsOver() { return m_window.StartsOver(); }

    bool HasRows() const { return m_hasRows; }
    double NewestTime() const { return m_newestTime; }
    const PageWindow& Window() const { return m_window; }

private:
    /// False when the text of an earlier row is not JSON.
    bool Add(std::string_view text) { return m_batch.Add(text) || (JudgeBatch() && m_batch.Add(text)); }

    /// Lists the notification of a text, if it is to be listed. False when the text is not JSON.
    bool Judge(std::string_view text) {
        if (const auto facts = m_scanner.Scan(text)) {
            List(text, *facts);
            return true;
        }
        Json::Value parsed(Json::arrayValue);
        if (!Parse(std::string(text).c_str(), parsed)) {
            return false;
        }
        std::string tagText;
        List(text, FactsOf(parsed[0], tagText));
        return true;
    }

    void List(std::string_view text, const RowFacts& facts) {
        if (!IsAdmitted(facts.tag)) {
            return;
        }
        if (!facts.hasTime) {
            m_window.AddUntimed();
            return;
        }
        m_window.AddTimed(text);
        m_newestTime = std::max(m_newestTime, facts.time);
    }

    bool IsAdmitted(std::string_view tag) {
        if (const auto known = m_admitted.find(tag); known != m_admitted.end()) {
            return known->second;
        }
        std::string newTag(tag);
        const bool isAdmitted = m_admits(newTag);
        const std::size_t size = newTag.size() + kEntrySize;
        if (m_admittedSize + size <= kMostAdmitted) {
            m_admitted.emplace(std::move(newTag), isAdmitted);
            m_admittedSize += size;
        }
        return isAdmitted;
    }

    /// Of tags that are remembered, in bytes. An appliance has far fewer, but a stored title can be anything,
    /// and another one in each row.
    static constexpr std::size_t kMostAdmitted = std::size_t{2} * 1024 * 1024;
    /// Of one of them beside its text: its node and its buckets.
    static constexpr std::size_t kEntrySize = 128;

    std::function<bool(const std::string&)> m_admits;
    TextBatch m_batch;
    PageWindow m_window;
    RowScanner m_scanner;
    std::unordered_map<std::string, bool, HashText, std::equal_to<>> m_admitted;
    std::size_t m_admittedSize = 0;
    bool m_hasRows = false;
    double m_newestTime = 0.0;
    std::exception_ptr m_failure;
};

/// Makes the page's items. False when one is not JSON.
bool ParseItems(const PageWindow& window, Json::Value& items) {
    for (size_t position = 0; position < window.Size(); ++position) {
        if (!Parse(window[position], items)) {
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
    return KIVOSysNotifyIsAllow(m_userName.c_str(), TagOf(notification).c_str()) == 1;
}

int Notify::ExecuteLoad() {
    KivoSettings settings(m_userName);
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

    Json::Value notification;  // one for all tags that are asked about
    Json::Value& title = notification["title"];
    Listing listing(m_limit, m_offset, [&](const std::string& tag) {
        if (tag.find(':') == std::string::npos && !enabledTags.contains(tag)) {
            return false;
        }
        if (m_all) {
            return true;
        }
        title = tag;
        return HasPrivilege(notification);
    });
    bool hasRun = false;
    do {
        hasRun = store.Run(ReadNotificationsSql(uid), &Listing::OnRow, &listing);
        listing.ThrowFailure();
        hasRun = hasRun && listing.JudgeBatch();
    } while (hasRun && listing.StartsOver());
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
