#pragma once

#include <json/value.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace KIVO::NEXNotify {

class Notify;

/// Tells by their tags which notifications are listed: those that are enabled on the appliance and, unless
/// all are asked for, those that the user has the privilege to see.
class TagFilter {
public:
    /// Borrows the handler, whose user it is, and takes its set of enabled tags as it is now.
    TagFilter(const Notify& notify, bool all);

    /// Whether notifications of the tag are listed. The platform is asked once a tag, as long as the tags can
    /// be remembered.
    [[nodiscard]] bool Lists(std::string_view tag);

private:
    /// Lets tags be looked up by a view of them.
    struct HashText {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    bool Decide(const std::string& tag);

    const Notify& m_notify;
    bool m_all;
    std::unordered_set<std::string> m_enabled;
    /// What is asked about; only its title changes.
    Json::Value m_notification;
    std::unordered_map<std::string, bool, HashText, std::equal_to<>> m_decided;
    std::size_t m_decidedSize = 0;
};

}  // namespace KIVO::NEXNotify
