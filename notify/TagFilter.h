#pragma once

#include <json/value.h>

#include <cstddef>
#include <functional>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>

#include "notify/Notify.h"

namespace KIVO::NEXNotify {

/// Tells by their tags which notifications are listed: those that are enabled on the appliance and, unless
/// all are asked for, those that the user has the privilege to see.
class TagFilter {
public:
    /// Borrows the handler, whose user it is, and takes its set of enabled tags as it is now.
    TagFilter(const Notify& notify, bool all);

    /// Whether notifications of the tag are listed. The platform is asked once a tag, as long as the tags can
    /// be remembered.
    [[nodiscard]] bool IsListed(std::string_view tag);

private:
    bool AskIfListed(std::string_view tag);

    const Notify& m_notify;
    bool m_all;
    /// Of the tags: hundreds are taken in and released together in each request.
    std::pmr::monotonic_buffer_resource m_memory;
    EnabledTags m_enabled;
    /// What is asked about; only its title changes.
    Json::Value m_notification;
    Json::Value& m_title = m_notification["title"];
    std::pmr::unordered_map<std::pmr::string, bool, HashText, std::equal_to<>> m_isListed{&m_memory};
    std::size_t m_rememberedSize = 0;
};

}  // namespace KIVO::NEXNotify
