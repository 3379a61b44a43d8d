#pragma once

#include "kivocore/Export.h"

extern "C" {

/// 1 when the user may see notifications of this tag, 0 when not, -1 when the user is unknown. Safe on any
/// thread.
[[nodiscard]] KIVO_PUBLIC int KIVOSysNotifyIsAllow(const char* userName, const char* tag);

}  // extern "C"
