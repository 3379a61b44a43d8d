#pragma once

#include "kivocore/Export.h"

extern "C" {

/// Writes one entry to the system event log: the event's code with the arguments that fill its text. 0, or
/// -1, with a line in the system's log, when it could not be written whole. Waits half a second at most for
/// another writer. Safe on any thread.
[[nodiscard]] KIVO_PUBLIC int KIVOLogSet1(int category, int level, unsigned int eventCode, const char* a1,
                                          const char* a2, const char* a3, const char* a4);

}  // extern "C"
