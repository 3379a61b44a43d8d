#include "notify/TagFilter.h"

#include "module/Paths.h"
#include "notify/StoredRow.h"
#include "notify/StringList.h"
#include "sysnotify/rights.h"

namespace KIVO::NEXNotify {

namespace {

/// Of tags that are remembered, in bytes. An appliance has far fewer, but a stored title can be anything, and
/// another one in each row.
constexpr std::size_t kMostRemembered = std::size_t{2} * 1024 * 1024;
/// Of one of them beside its text: its node, its buckets, and those that it had when there were fewer.
constexpr std::size_t kEntrySize = 192;

}  // namespace

TagFilter::TagFilter(const Notify& notify, bool all)
    : m_notify(notify), m_all(all), m_enabled(notify.getEnabledNotificationList(m_memory)) {
    m_isListed.max_load_factor(0.25F);  // one look-up a row: the fewer steps, the better
}

bool TagFilter::IsListed(std::string_view tag) {
    if (const auto known = m_isListed.find(tag); known != m_isListed.end()) {
        return known->second;
    }
    const bool isListed = AskIfListed(tag);
    const std::size_t size = tag.size() + kEntrySize;
    if (m_rememberedSize + size <= kMostRemembered) {
        m_isListed.emplace(tag, isListed);
        m_rememberedSize += size;
    }
    return isListed;
}

bool TagFilter::AskIfListed(std::string_view tag) {
    // A tag with a colon is of the desktop itself, which no catalogue describes.
    if (tag.find(':') == tag.npos && !m_enabled.contains(tag)) {
        return false;
    }
    if (m_all) {
        return true;
    }
    m_title = Json::Value(tag.data(), tag.data() + tag.size());
    return m_notify.HasPrivilege(m_notification);
}

EnabledTags Notify::getEnabledNotificationList(std::pmr::memory_resource& memory) const {
    EnabledTags tags(&memory);
    StringList sections;
    if (!sections) {
        return tags;
    }
    const int count = sections.AddSections(Paths::MailsCatalogue(Paths::kEnglish)).value_or(0);
    tags.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        tags.emplace(sections[i]);
    }
    return tags;
}

bool Notify::HasPrivilege(const Json::Value& notification) const {
    return KIVOSysNotifyIsAllow(m_userName.c_str(), TagOf(notification).c_str()) == 1;
}

}  // namespace KIVO::NEXNotify
