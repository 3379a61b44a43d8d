#pragma once

#include <json/value.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KIVO::Test {

/// What the action "load" answers to these stored texts (nothing for NULL), oldest first, worked out in the
/// plainest way: every text becomes a tree, then the trees are filtered, then the page is cut. `isEnabled`
/// and `isAllowed` tell which tags the appliance knows and the user may see.
Json::Value PlainLoad(const std::vector<std::optional<std::string>>& rows, int limit, int offset, bool all,
                      const std::function<bool(const std::string& tag)>& isEnabled,
                      const std::function<bool(const std::string& tag)>& isAllowed);

}  // namespace KIVO::Test
