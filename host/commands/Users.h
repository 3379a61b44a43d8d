#pragma once

#include "host/commands/Command.h"

namespace KIVO::Host {

/// The subcommand "users": adds, removes and lists the appliance's users, and gives one a new token. The
/// users file is changed as a whole or not at all, under a lock, and keeps its owner and mode.
Command AddUsersCommand(CLI::App& app);

}  // namespace KIVO::Host
