#pragma once

#include <string>

#include "host/commands/Command.h"

namespace KIVO::Host {

/// The subcommand "init": makes what is missing of an empty appliance below the root, with the users file's
/// group that of the account, and changes nothing that is there. What is made is there as a whole or not at
/// all.
Command AddInitCommand(CLI::App& app, const std::string& accountName);

}  // namespace KIVO::Host
