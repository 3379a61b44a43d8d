#include "module/RunAs.h"

#include <pwd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace _________ {

namespace {

constexpr uid_t kKeepUid = static_cast<uid_t>(-1);
constexpr gid_t kKeepGid = static_cast<gid_t>(-1);
constexpr long kDefaultLookupBufferSize = 16384;

struct FreeBuffer {
    void operator()(char* buffer) const { std::free(buffer); }
};

/// Sets the effective ids and leaves the real and saved ones, which is what allows the way back. The group
/// goes before the final user id, and every change of user passes through the superuser, who alone may change
/// groups.
[[nodiscard]] bool SwitchEffectiveIds(uid_t uid, gid_t gid) {
    const uid_t euid = geteuid();
    const gid_t egid = getegid();
    if (uid == euid && gid == egid) {
        return true;
    }
    if (uid != euid && euid != 0 && setresuid(kKeepUid, 0, kKeepUid) < 0) {
        return false;
    }
    if (gid != kKeepGid && gid != egid && setresgid(kKeepGid, gid, kKeepGid) != 0) {
        return false;
    }
    if (uid != kKeepUid && uid != euid && setresuid(kKeepUid, uid, kKeepUid) != 0) {
        return false;
    }
    return true;
}

}  // namespace

__::__(const char* account, const char* file, int line, const char* name) noexcept
    : m_euid(geteuid()), m_egid(getegid()), m_file(file), m_line(line), m_name(name), m_ok(Raise(account)) {
    if (!m_ok) {
        syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: %s(\"%s\")", m_file, m_line, m_name, account);
    }
}

__::~__() {
    // Also after a failed raise, which may have got half the way.
    if (!SwitchEffectiveIds(m_euid, m_egid)) {
        syslog(LOG_AUTH | LOG_CRIT, "%s:%d ERROR: ~%s(%d, %d)", m_file, m_line, m_name,
               static_cast<int>(m_euid), static_cast<int>(m_egid));
    }
}

bool __::Raise(const char* account) const noexcept {
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    if (size == -1) {
        size = kDefaultLookupBufferSize;
    }
    char message[1024] = {};
    std::unique_ptr<char, FreeBuffer> buffer(static_cast<char*>(std::malloc(static_cast<size_t>(size))));
    if (!buffer) {
        syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: malloc(%ld) [%s]", m_file, m_line, size,
               strerror_r(errno, message, sizeof message));
        return false;
    }
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwnam_r(account, &entry, buffer.get(), static_cast<size_t>(size), &found);
    buffer.reset();  // Only the entry's numbers are used from here on.
    if (found == nullptr) {
        syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: getpwnam(%s) [%s]", m_file, m_line, account,
               error != 0 ? strerror_r(error, message, sizeof message) : "Name not found");
        return false;
    }
    return SwitchEffectiveIds(entry.pw_uid, entry.pw_gid);
}

}  // namespace _________
