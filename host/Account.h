#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace KIVO::Host {

/// The account with whose rights the module is called.
struct Account {
    std::string name;
    uid_t uid;
    gid_t gid;
};

/// The account of that name; nothing for an unknown one.
[[nodiscard]] std::optional<Account> FindAccount(const std::string& name);

/// Makes the account's ids and groups this process's effective ones; real and saved ids stay the superuser's,
/// so that the module can raise the effective ones again. Without the superuser's rights nothing changes but
/// a warning. Throws std::runtime_error with one sentence when the ids cannot be taken on.
void Become(const Account& account);

/// Takes from this process and its children, for good, every right of the superuser but to change ids, which
/// the module needs, and that to gain rights from a program. Warns when that fails.
void LimitCapabilities();

/// The first folder on the way to and including `folder`, an absolute path, that this process's effective ids
/// may not enter; nothing when it may enter them all.
[[nodiscard]] std::optional<std::string> FirstClosedFolder(const std::string& folder);

}  // namespace KIVO::Host
