#pragma once

#include <chrono>

/// Removes from the notification database each user's links to messages that are older than `age`, but for
/// the user's newest `kept`, and the messages of that age that nobody has any more; in steps, so that readers
/// and writers go on beside it. Says on standard output how many of both, and on a terminal how far it is.
/// Throws std::runtime_error with one sentence when it cannot; the steps until then are done.
void PruneNotifications(std::chrono::seconds age, int kept);
