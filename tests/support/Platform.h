#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace KIVO::Test {

/// What an executable that links this sees of the platform: it defines the operations that the module calls,
/// each of which counts its calls, asks the test's hook, and otherwise goes on to the real library.
struct Platform {
    /// By name of the operation, and for KIVOSysNotifyIsAllow and KLIBAppPrivUserHas by "name:argument" too.
    std::map<std::string, int> calls = {};
    /// Called before an operation; true makes it fail as the platform would. It may throw.
    std::function<bool(std::string_view operation)> fails = nullptr;
    /// How many handles, SQL texts, lists and records the module holds.
    int held = 0;
};

/// The platform of this process. A test assigns a new one to begin with.
Platform& ThePlatform();

}  // namespace KIVO::Test
