#pragma once

#include <json/value.h>

#include <cassert>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "module/JsonScan.h"

namespace KIVO::NEXNotify {

/// One event of a category file, with what the module reads of it. An absent name is another than "", an
/// absent group or application is not.
struct CategoryEvent {
    std::optional<std::string_view> name;
    std::string_view group;
    std::string_view appId;
};

/// The content of a category file, read for one request.
class CategoryDocument {
public:
    /// Called once, and before all else. False, with errno telling why, when the file cannot be read or is
    /// not JSON; the object is of no use then.
    [[nodiscard]] bool Load(const std::string& path);

    /// The events, valid as long as this object; nothing when only the JSON library can tell what they are,
    /// from the tree.
    const std::optional<std::vector<CategoryEvent>>& Events() const {
        assert(!m_text.empty());
        return m_events;
    }

    /// The whole document.
    const Json::Value& Tree();

private:
    std::string m_text;
    JsonScanner m_scanner;
    std::optional<std::vector<CategoryEvent>> m_events;
    std::optional<Json::Value> m_tree;
};

}  // namespace KIVO::NEXNotify
