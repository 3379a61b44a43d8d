#include "host/Account.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace KIVO::Host {

std::optional<Account> FindAccount(const std::string& name) {
    const passwd* const entry = getpwnam(name.c_str());
    if (!entry) {
        return std::nullopt;
    }
    return Account{name, entry->pw_uid, entry->pw_gid};
}

void Become(const Account& account) {
    if (geteuid() != 0) {
        syslog(LOG_WARNING,
               "Not started as root: the actions load and apply will answer with the error 117.");
        return;
    }
    if (account.uid == 0) {
        return;
    }
    // Where a user namespace forbids setgroups, the process never had a group that it could lose.
    if (initgroups(account.name.c_str(), account.gid) != 0) {
        syslog(
            LOG_WARNING,
            "The groups stay those of the starting user, since this user namespace lets no one set them: %s.",
            std::strerror(errno));
    }
    if (setresgid(static_cast<gid_t>(-1), account.gid, static_cast<gid_t>(-1)) != 0 ||
        setresuid(static_cast<uid_t>(-1), account.uid, static_cast<uid_t>(-1)) != 0) {
        throw std::runtime_error("The ids of the account " + account.name + " cannot be taken on (" +
                                 std::strerror(errno) + "): inside a user namespace use --account root.");
    }
}

void LimitCapabilities() {
    constexpr std::uint32_t kKept = 1U << CAP_SETUID | 1U << CAP_SETGID;
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        syslog(LOG_WARNING, "The processes could gain rights from a program: %s.", std::strerror(errno));
    }
    if (geteuid() != 0) {
        return;
    }
    // The bounding set first: to change it is a capability too.
    int error = 0;
    for (unsigned long i = 0; prctl(PR_CAPBSET_READ, i, 0, 0, 0) >= 0; ++i) {
        // Where the starter has given one up already, it may have left no right to do so once more.
        const bool isLeft = prctl(PR_CAPBSET_READ, i, 0, 0, 0) == 1;
        if (isLeft && i != CAP_SETUID && i != CAP_SETGID && prctl(PR_CAPBSET_DROP, i, 0, 0, 0) != 0) {
            error = errno;
        }
    }
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {{kKept, kKept, 0}, {}};
    if (syscall(SYS_capset, &header, data) != 0) {
        error = errno;
    }
    if (error != 0) {
        syslog(LOG_WARNING, "The superuser's capabilities cannot all be given up: %s.", std::strerror(error));
    }
}

std::optional<std::string> FirstClosedFolder(const std::string& folder) {
    assert(folder.starts_with('/'));
    std::filesystem::path path;
    for (const std::filesystem::path& part : std::filesystem::path(folder)) {
        path /= part;
        if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0) {
            return path;
        }
    }
    return std::nullopt;
}

}  // namespace KIVO::Host
