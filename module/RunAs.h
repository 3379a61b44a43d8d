#pragma once

#include <sys/types.h>

// A namespace and a class that no other code will ever clash with: the guard is only meant to be opened by
// IF_RUN_AS2.
namespace _________ {  // NOLINT(bugprone-reserved-identifier)

/// Holds the effective user and group ids of an account from construction to destruction. The ids belong to
/// the whole process: nothing else in it may change them, or rely on them, meanwhile.
class __ {  // NOLINT(bugprone-reserved-identifier)
public:
    /// Raises the effective ids to those of `account`. When that fails, logs why and converts to false.
    /// `file`, `line` and `name` tell the using code in log lines; both texts must outlive the object.
    __(const char* account, const char* file, int line, const char* name) noexcept;
    /// Gives the effective ids of construction back; logs at critical level when they cannot be had.
    ~__();
    __(const __&) = delete;
    __& operator=(const __&) = delete;

    explicit operator bool() const { return m_ok; }

private:
    [[nodiscard]] bool Raise(const char* account) const noexcept;

    uid_t m_euid;
    gid_t m_egid;
    const char* m_file;
    int m_line;
    const char* m_name;
    bool m_ok;
};

}  // namespace _________

/// Runs the block that follows with the effective ids of an account, or its else branch when they cannot be
/// had: `IF_RUN_AS2("root", line) { … } else { … }`. The previous ids are back when control leaves the
/// construct, by whichever way.
#define IF_RUN_AS2(account, line) \
    if (const _________::__ runAsScope{account, __FILE_NAME__, line, "IF_RUN_AS2"}; runAsScope)
