#pragma once

#include "kivocore/Export.h"

extern "C" {

/// The code of this thread's last failure in the core library; 0 when there was none.
KIVO_PUBLIC int KLIBCErrGet(void);
/// The source file in which that failure was noticed, "" when there was none. A constant text.
KIVO_PUBLIC const char* KLIBCErrorGetFile(void);
/// The line in that file, 0 when there was none.
KIVO_PUBLIC int KLIBCErrorGetLine(void);

}  // extern "C"
