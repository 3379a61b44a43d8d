#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

struct User {
    int uid;
    int gid;
    /// The code of the user's desktop language.
    std::string language;
    /// The groups whose member the user is.
    std::unordered_set<std::string> groups;
    /// The applications that the user may use.
    std::unordered_set<std::string> apps;
    /// The notification tags that the user may not see.
    std::unordered_set<std::string> hiddenTags;
    /// What the user's requests are signed in with; "" for a user who cannot sign in.
    std::string token;

    bool IsAdmin() const { return groups.contains("administrators"); }
};

/// The appliance's users by name.
using Users = std::unordered_map<std::string, User>;

/// The users of etc/kivo/users.json, parsed at most once as long as the file stays the same. Never null:
/// without the file there are no users. While the file is being rewritten and does not parse, the users
/// are those it last had for this process, for three seconds from when that was seen, and then none. Safe on
/// any thread.
KIVO_PUBLIC std::shared_ptr<const Users> LoadUsers();

/// While one lives, LoadUsers gives its thread the users of the snapshot's beginning and does not look at the
/// file: one request sees one state of the users, whatever the number of its questions. At most one a thread.
class KIVO_PUBLIC UsersSnapshot {
public:
    UsersSnapshot();
    ~UsersSnapshot();
    UsersSnapshot(const UsersSnapshot&) = delete;
    UsersSnapshot& operator=(const UsersSnapshot&) = delete;
};

}  // namespace KIVO::Appliance
