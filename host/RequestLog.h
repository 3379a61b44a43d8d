#pragma once

#include <chrono>

#include "host/Router.h"

namespace KIVO::Host {

/// Writes one line on standard output: when, who, what, how it was answered and after how many milliseconds.
/// Of what the client sent it repeats nothing but what the server knows too, so that no token or parameter
/// gets into it. A reader who is behind misses lines and holds up no one.
void LogRequest(const HttpRequest& request, const HttpAnswer& answer,
                std::chrono::duration<double, std::milli> time) noexcept;

}  // namespace KIVO::Host
