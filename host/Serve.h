#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "host/Account.h"
#include "host/Module.h"
#include "host/Router.h"

namespace KIVO::Host {

/// What the server is to be; the defaults are the program's.
struct ServeOptions {
    /// A loopback address.
    std::string address = "127.0.0.1";
    /// 0 takes a free one.
    std::uint16_t port = 8095;
    unsigned workerCount = std::max(1U, std::thread::hardware_concurrency());
    RouterOptions router = {};
    bool shouldLogRequests = false;
    /// With whose rights the module is called.
    Account account = {};
    /// Holds the notification centre's files.
    std::filesystem::path pageFolder = {};
};

/// Serves the module's methods, and the page, until SIGTERM, SIGINT or SIGHUP, on the socket that a service
/// manager passes on, or else on the address and port. Says on standard output where it listens, and in the
/// log what is missing for it to be of use. Throws std::runtime_error when it cannot listen or cannot become
/// the account.
void Serve(const Module& module, const ServeOptions& options);

}  // namespace KIVO::Host
