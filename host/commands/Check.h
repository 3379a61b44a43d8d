#pragma once

#include <string>

#include "host/commands/Command.h"

namespace KIVO::Host {

/// The subcommand "check": looks at all that an appliance is made of, as the superuser and, where it can
/// become it, as the account, and prints a line for each part that is well and for each finding. It changes
/// nothing and makes no file. The exit status is 1 if there is a finding.
Command AddCheckCommand(CLI::App& app, const std::string& accountName);

}  // namespace KIVO::Host
