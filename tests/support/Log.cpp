#include "tests/support/Log.h"

#include <regex.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "tests/support/Allocations.h"

namespace KIVO::Test {

std::vector<LogLine>& LogLines() {
    static std::vector<LogLine> lines;
    return lines;
}

bool Matches(const std::string& text, const std::string& expression) {
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + expression + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        throw std::invalid_argument(expression);
    }
    const bool isMatch = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return isMatch;
}

}  // namespace KIVO::Test

namespace {

void Log(int priority, const char* format, va_list arguments) {
    const KIVO::Test::AllocationLimit noLimit(-1);
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    KIVO::Test::LogLines().push_back({priority, text});
}

}  // namespace

// Exported, so that the platform's libraries log here too.
extern "C" {

__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(priority, format, arguments);
    va_end(arguments);
}

/// What code that is compiled with _FORTIFY_SOURCE calls in its place.
__attribute__((visibility("default"))) void __syslog_chk(int priority, int /*flag*/, const char* format,
                                                         ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(priority, format, arguments);
    va_end(arguments);
}

}  // extern "C"
