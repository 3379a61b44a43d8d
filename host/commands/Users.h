#pragma once

#include <json/value.h>

#include <string>

#include "host/commands/Command.h"

namespace KIVO::Host {

/// The subcommand "users": adds, removes and lists the appliance's users, and gives one a new token. The
/// users file is changed as a whole or not at all, under a lock, and keeps its owner and mode.
Command AddUsersCommand(CLI::App& app);

/// The document of a users file's content. Throws std::runtime_error, which names the path, when it is none.
[[nodiscard]] Json::Value ParseUsersFile(const std::string& content, const std::string& path);

}  // namespace KIVO::Host
