#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KIVO::Test {

/// The platform to an executable that links this: it defines the operations that the module calls, each of
/// which counts its calls and asks the test's hook before it goes on to the real library.
struct Platform {
    /// By name of the operation, and by "name:argument" too for KIVOSysNotifyIsAllow, KLIBAppPrivUserHas,
    /// nexnotifyDbRunSql and fopen.
    std::map<std::string, int> calls = {};
    /// Called before an operation; true makes it fail as the platform would. It may throw.
    std::function<bool(std::string_view operation)> fails = nullptr;
    /// How many handles, SQL texts, lists and records the module holds.
    int held = 0;
};

/// The ids of the process to an executable that links this: it defines the functions that read and set them,
/// so that a test sees every call and can refuse one. Starts as the superuser.
struct Identity {
    uid_t euid = 0;
    gid_t egid = 0;
    /// Whether the real or saved user id is 0, which is what allows raising the effective one.
    bool mayRaise = true;
    /// The accounts that are found, each with user and group id 0.
    std::set<std::string> accounts = {"root"};
    /// What getpwnam_r returns when it finds no account.
    int lookupError = 0;
    /// What sysconf(_SC_GETPW_R_SIZE_MAX) answers, and the size of the buffer that getpwnam_r was then given.
    long lookupBufferSize = 1024;
    size_t givenBufferSize = 0;
    /// Which set-id call is refused, counted from 1; 0 for none.
    size_t refusedCall = 0;
    /// The set-id calls so far, such as "setresuid(-1, 0, -1)".
    std::vector<std::string> calls = {};
};

/// A test assigns new ones to begin with.
Identity& ProcessIdentity();
Platform& ThePlatform();

}  // namespace KIVO::Test
