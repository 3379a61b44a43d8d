#pragma once

#include "kivocore/Export.h"

extern "C" {

/// Runs the executable at `path` with the arguments up to the first null one, without a shell, and waits for
/// its end. The program inherits the standard streams, no other descriptor, and of the environment LANG, TZ
/// and KIVO_ROOT; it runs with the caller's effective ids as its real ones, and is killed when the calling
/// thread ends. Its exit status, or -1 when it could not be started or was killed. Meanwhile
/// SIGCHLD has its default action; a handler of the caller's is called once afterwards, and where the caller
/// ignores it, its children that have ended are gone. Safe on any thread: one program runs at a time.
[[nodiscard]] KIVO_PUBLIC int KLIBCExec(const char* path, const char* arg1, const char* arg2,
                                        const char* arg3, const char* arg4);

}  // extern "C"
