#pragma once

// Private to the stand-ins; the module reads the state through kivocore/error.h.

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// What went wrong last in the core library.
enum class ErrorCode {
    OutOfMemory = 0x0200,
    BadParameter = 0x0D00,
    FileNotReadable = 0x0900,
    FileNotWritable = 0x0A00,
    SectionNotFound = 0x2000,
    UserNotFound = 0x1D00,
    ProgramFailed = 0x2900,
};

/// Notes a failure for KLIBCErrGet and its companions, for this thread.
KIVO_PUBLIC void SetLastError(ErrorCode code, const char* file, int line) noexcept;

}  // namespace KIVO::Appliance

/// Notes a failure that is noticed here.
#define SET_LAST_ERROR(code) \
    ::KIVO::Appliance::SetLastError(::KIVO::Appliance::ErrorCode::code, __FILE_NAME__, __LINE__)
