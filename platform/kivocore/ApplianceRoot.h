#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <string>
#include <string_view>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// The folder below which the appliance's files lie, from the environment variable KIVO_ROOT, or else the one
/// that was chosen for the build, without its trailing slashes; "" for the machine's own root. Asked anew on
/// every call.
KIVO_PUBLIC std::string Root();

/// The absolute path of the appliance, as a path of this machine.
KIVO_PUBLIC std::string Rooted(std::string_view absolutePath);

/// The notification database's path on the appliance.
inline constexpr std::string_view kDatabasePath = "/var/lib/kivo/nexnotify.db";

/// The users file's, too.
inline constexpr std::string_view kUsersPath = "/etc/kivo/users.json";

/// True for a code of three lower-case letters.
KIVO_PUBLIC bool IsLanguage(std::string_view code);

/// True for a name that can be part of a path and stay in its folder: not empty, "." or "..", no '/' and no
/// NUL.
KIVO_PUBLIC bool IsPlainName(std::string_view name);

}  // namespace KIVO::Appliance
