#pragma once

#include "kivocore/Export.h"

extern "C" {

/// Maps a user name to its numeric user and group id; either pointer may be null. 0, or -1 when the user is
/// unknown: nothing is stored then. Safe on any thread.
[[nodiscard]] KIVO_PUBLIC int KIVOUserGetUGID(const char* userName, int* uid, int* gid);

}  // extern "C"
