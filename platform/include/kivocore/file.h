#pragma once

#include "kivocore/Export.h"
#include "kivocore/list.h"

extern "C" {

/// Non-zero when something exists at the path, or the caller may not look whether it does. Safe on any
/// thread.
[[nodiscard]] KIVO_PUBLIC int KLIBCFileExist(const char* path);

/// Appends the section names of the sectioned text file at the path to the list, in the file's order,
/// replacing `*list` when it must grow. The number of sections; 0 when there are none; -1 when the file
/// cannot be read, is no sectioned text file, or memory is short: the list then holds some of them. While it
/// parses a file, being short of memory may end the process instead. Safe on any thread, one a list.
[[nodiscard]] KIVO_PUBLIC int KLIBCFileEnumSection(const char* path, KLIBCSzList** list);

}  // extern "C"
