#pragma once

#include <cstddef>
#include <functional>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_set>

namespace KIVO::NEXNotify {

/// Lets texts be looked up by a view of them.
struct HashText {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

/// The tags of the notifications that are enabled on the appliance.
using EnabledTags = std::pmr::unordered_set<std::pmr::string, HashText, std::equal_to<>>;

}  // namespace KIVO::NEXNotify
