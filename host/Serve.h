#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "host/Account.h"
#include "host/Module.h"

namespace KIVO::Host {

/// Whether it is the text of an IPv4 loopback address.
bool IsLoopback(const std::string& address);

/// Serves the module's methods, and the page in the folder, on the loopback address until SIGTERM or SIGINT.
/// Port 0 takes a free one. Says on standard output where it listens, and in the log what is missing for it
/// to be of use. Throws std::runtime_error when it cannot listen or cannot become the account.
void Serve(const Module& module, const std::filesystem::path& pageFolder, const Account& account,
           const std::string& address, std::uint16_t port, unsigned workerCount);

}  // namespace KIVO::Host
