#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KIVO::Test {

/// What the process's user and group ids are to an executable that links this: it defines the POSIX functions
/// that read and set them, so that a test can see every call and refuse one. Starts as the superuser.
struct Identity {
    uid_t euid = 0;
    gid_t egid = 0;
    /// Whether the real or saved user id is 0, which is what allows raising the effective one.
    bool mayRaise = true;
    /// The accounts with their user and group ids.
    std::map<std::string, std::pair<uid_t, gid_t>> accounts = {{"root", {0, 0}}};
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

/// The identity that the process has now. A test assigns a new one to begin with.
Identity& ProcessIdentity();

}  // namespace KIVO::Test
