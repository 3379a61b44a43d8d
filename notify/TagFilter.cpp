#include "notify/TagFilter.h"

#include <algorithm>
#include <utility>

#include "module/Paths.h"
#include "notify/Notify.h"
#include "notify/StoredRow.h"
#include "notify/StringList.h"
#include "sysnotify/rights.h"

namespace KIVO::NEXNotify {

namespace {

/// Of tags that are remembered, in bytes. An appliance has far fewer, but a stored title can be anything, and
/// another one in each row.
constexpr std::size_t kMostDecided = std::size_t{2} * 1024 * 1024;
/// Of one of them beside its text: its node and its buckets.
constexpr std::size_t kEntrySize = 128;

}  // namespace

TagFilter::TagFilter(const Notify& notify, bool all)
    : m_notify(notify), m_all(all), m_enabled(notify.getEnabledNotificationList()) {
    m_decided.max_load_factor(0.25F);  // one look-up a row: the fewer steps, the better
}

bool TagFilter::Lists(std::string_view tag) {
    if (const auto decided = m_decided.find(tag); decided != m_decided.end()) {
        return decided->second;
    }
    std::string newTag(tag);
    const bool isListed = Decide(newTag);
    const std::size_t size = newTag.size() + kEntrySize;
    if (m_decidedSize + size <= kMostDecided) {
        m_decided.emplace(std::move(newTag), isListed);
        m_decidedSize += size;
    }
    return isListed;
}

bool TagFilter::Decide(const std::string& tag) {
    // A tag with a colon is of the desktop itself, which no catalogue describes.
    if (tag.find(':') == std::string::npos && !m_enabled.contains(tag)) {
        return false;
    }
    if (m_all) {
        return true;
    }
    m_notification["title"] = tag;
    return m_notify.HasPrivilege(m_notification);
}

std::unordered_set<std::string> Notify::getEnabledNotificationList() const {
    std::unordered_set<std::string> tags;
    StringList sections;
    if (!sections) {
        return tags;
    }
    const int count = sections.AddSections(Paths::MailsCatalogue(Paths::kEnglish));
    tags.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
        tags.insert(sections[i]);
    }
    return tags;
}

bool Notify::HasPrivilege(const Json::Value& notification) const {
    return KIVOSysNotifyIsAllow(m_userName.c_str(), TagOf(notification).c_str()) == 1;
}

}  // namespace KIVO::NEXNotify
