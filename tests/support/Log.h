#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KIVO::Test {

struct LogLine {
    int priority;
    std::string text;

    bool operator==(const LogLine&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
        return stream << line.priority << " " << line.text;
    }
};

/// What an executable that links this has logged: it defines syslog. A test clears it to begin with.
std::vector<LogLine>& LogLines();

/// True when the whole text matches the POSIX extended regular expression.
bool Matches(const std::string& text, const std::string& expression);

}  // namespace KIVO::Test
