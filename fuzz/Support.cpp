#include "fuzz/Support.h"

#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace KIVO::Fuzz {

const Test::ApplianceRoot& Root() {
    static const Test::ApplianceRoot root;
    if (!root.Read("/etc/kivo/users.json")) {
        root.WriteUsers({{.name = "alice", .hiddenTags = {"Hidden"}, .token = kToken},
                         {.name = "member", .apps = {kApp}},
                         {.name = "admin", .groups = {"administrators"}}});
        root.WriteCatalogue("enu", "[Known]\n[Hidden]\n[5]\n[true]\n");
        root.WriteCatalogue("ger", "");
        root.CreateDatabase();
    }
    return root;
}

std::vector<std::string> SplitTexts(const std::string& input, std::size_t skipped) {
    std::vector<std::string> texts;
    std::istringstream stream(input.substr(std::min(skipped, input.size())));
    for (std::string text; std::getline(stream, text, '\0');) {
        texts.push_back(text);
    }
    return texts;
}

std::string Text(const APIResponse& response) {
    return std::to_string(response.GetAnswerCount()) + " times, error " +
           std::to_string(response.GetErrorCode()) + ": " + Appliance::WriteJson(response.GetData());
}

std::string Success(const Json::Value& data) {
    APIResponse response;
    response.SetSuccess(data);
    return Text(response);
}

void ExpectEqual(const char* what, const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        std::fprintf(stderr, "%s differs\nexpected: %s\n  actual: %s\n", what, expected.c_str(),
                     actual.c_str());
        std::abort();
    }
}

void Expect(const char* what, bool holds) { ExpectEqual(what, "1", std::to_string(holds)); }

}  // namespace KIVO::Fuzz

namespace {

void Log(const char* format, va_list arguments) {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    const std::string line = text;
    KIVO::Fuzz::logged += line.substr(line.find(' ') + 1) + '\n';
}

}  // namespace

extern "C" {

int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
    KIVO::Fuzz::logged.clear();
    KIVO::Fuzz::calls = 0;
    KIVO::Fuzz::Try(std::string(data, size));
    return 0;
}

// The process is the superuser's in its own eyes and those of the platform's libraries, and logs to itself.
KIVO_PUBLIC uid_t geteuid() noexcept { return 0; }
KIVO_PUBLIC gid_t getegid() noexcept { return 0; }

KIVO_PUBLIC void syslog(int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(format, arguments);
    va_end(arguments);
}

/// What code that is compiled with _FORTIFY_SOURCE calls in its place.
KIVO_PUBLIC void __syslog_chk(int, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Log(format, arguments);
    va_end(arguments);
}

}  // extern "C"
