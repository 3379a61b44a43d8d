#include "tests/support/Log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace KIVO::Test {

std::vector<LogLine>& LogLines() {
    static std::vector<LogLine> lines;
    return lines;
}

std::vector<std::string> LoggedTexts() {
    std::vector<std::string> texts;
    for (const auto& [priority, text] : LogLines()) {
        const size_t colon = text.find(':');
        const size_t blank = text.find(' ');
        texts.push_back(colon < blank ? text.substr(0, colon) + ":#" + text.substr(blank) : text);
    }
    return texts;
}

}  // namespace KIVO::Test

// Exported, so that the platform's libraries log here too.
extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    KIVO::Test::LogLines().push_back({priority, text});
}
