#include "tests/support/Identity.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/Allocations.h"

namespace KIVO::Test {

namespace {

template <typename Id>
int SetEffectiveId(const char* function, Id real, Id effective, Id saved, Id& current, bool isAllowed) {
    const AllocationLimit noLimit(-1);
    Identity& identity = ProcessIdentity();
    const auto number = [](Id id) { return std::to_string(static_cast<int>(id)); };
    identity.calls.push_back(std::string(function) + "(" + number(real) + ", " + number(effective) + ", " +
                             number(saved) + ")");
    if (!isAllowed || identity.calls.size() == identity.refusedCall) {
        errno = EPERM;
        return -1;
    }
    current = effective;
    return 0;
}

}  // namespace

Identity& ProcessIdentity() {
    static Identity identity;
    return identity;
}

}  // namespace KIVO::Test

using KIVO::Test::ProcessIdentity;

extern "C" {

uid_t geteuid() noexcept { return ProcessIdentity().euid; }

gid_t getegid() noexcept { return ProcessIdentity().egid; }

int setresuid(uid_t real, uid_t effective, uid_t saved) noexcept {
    auto& identity = ProcessIdentity();
    return KIVO::Test::SetEffectiveId("setresuid", real, effective, saved, identity.euid,
                                      identity.euid == 0 || identity.mayRaise);
}

int setresgid(gid_t real, gid_t effective, gid_t saved) noexcept {
    auto& identity = ProcessIdentity();
    return KIVO::Test::SetEffectiveId("setresgid", real, effective, saved, identity.egid, identity.euid == 0);
}

int getpwnam_r(const char* name, passwd* entry, char*, size_t size, passwd** result) {
    auto& identity = ProcessIdentity();
    identity.givenBufferSize = size;
    const auto account = identity.accounts.find(name);
    if (account == identity.accounts.end()) {
        *result = nullptr;
        return identity.lookupError;
    }
    entry->pw_uid = account->second.first;
    entry->pw_gid = account->second.second;
    *result = entry;
    return 0;
}

long __sysconf(int name) noexcept;  // NOLINT(bugprone-reserved-identifier): the C library's own

long sysconf(int name) noexcept {
    return name == _SC_GETPW_R_SIZE_MAX ? ProcessIdentity().lookupBufferSize : __sysconf(name);
}

}  // extern "C"
