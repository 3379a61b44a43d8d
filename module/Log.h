#pragma once

#include <syslog.h>

#include "kivocore/error.h"

/// Logs an ordinary failure at a fixed line (module/SourceLines.h): "file:line ", then the text.
#define LOG_FAILURE_AT(line, format, ...) \
    syslog(LOG_ERR, "%s:%d " format, __FILE_NAME__, line __VA_OPT__(, ) __VA_ARGS__)

/// Logs an ordinary failure at the line where this stands.
#define LOG_FAILURE(format, ...) LOG_FAILURE_AT(__LINE__, format __VA_OPT__(, ) __VA_ARGS__)

/// Logs a failure of the core library, with its error state, at the line where this stands.
#define LOG_CORE_FAILURE(text)                                                                     \
    LOG_FAILURE(text " [0x%04X %s:%d]", static_cast<unsigned>(KLIBCErrGet()), KLIBCErrorGetFile(), \
                KLIBCErrorGetLine())
