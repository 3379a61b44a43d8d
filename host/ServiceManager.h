#pragma once

#include <optional>

#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Host {

/// The listening socket that the service manager has opened for this process, non-blocking; nothing when it
/// opened none. Asked once: the environment that tells it is cleared. Throws std::runtime_error unless it is
/// one socket that listens on a loopback address.
[[nodiscard]] std::optional<Appliance::FileDescriptor> TakeListener();

/// Tells the service manager, where there is one, of this process's state, "NAME=VALUE". Nobody waits for it.
void TellServiceManager(const char* state);

/// Whether what is written to standard error goes into the system's journal by itself.
[[nodiscard]] bool IsStandardErrorTheJournal();

}  // namespace KIVO::Host
