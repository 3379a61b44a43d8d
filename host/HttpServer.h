#pragma once

#include <functional>

#include "host/Router.h"

namespace KIVO::Host {

/// How many descriptors a server has open at most for its connections, and about how many a worker has
/// besides.
inline constexpr unsigned kDescriptorsForConnections = 512 + 64;
inline constexpr unsigned kOtherDescriptors = 24;

struct HttpOptions {
    bool shouldLogRequests = false;
    /// Called as soon as requests are answered.
    std::function<void()> onReady = [] {};
};

/// Answers HTTP requests, one at a time, on a listening socket, which is non-blocking and may be shared with
/// other processes. When one of the two descriptors becomes readable or is closed at its other end, it
/// accepts no one more, answers the requests under way, for at most ten seconds, and returns. Throws
/// std::runtime_error when it cannot start, or when a method left the process with other rights.
void ServeHttp(const Router& router, int listenSocket, int stopDescriptor, int lifeline,
               const HttpOptions& options = {});

}  // namespace KIVO::Host
