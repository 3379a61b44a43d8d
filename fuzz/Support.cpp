#include "fuzz/Support.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace KIVO::Fuzz {

const Test::ApplianceRoot& Root() {
    static const Test::ApplianceRoot root;
    if (!root.Read("/etc/kivo/users.json")) {
        root.WriteUsers({{.name = "alice", .token = kToken},
                         {.name = "member", .apps = {kApp}},
                         {.name = "admin", .groups = {"administrators"}}});
        root.WriteCatalogue("enu", "[Known]\n");
        root.WriteCatalogue("ger", "");
        root.CreateDatabase();
    }
    return root;
}

std::string& Log() {
    static std::string log;
    return log;
}

std::vector<std::string> SplitTexts(const std::string& input, std::size_t skipped, std::size_t count) {
    std::vector<std::string> texts;
    std::istringstream stream(input.substr(std::min(skipped, input.size())));
    for (std::string text; std::getline(stream, text, '\0');) {
        texts.push_back(text);
    }
    texts.resize(std::max(texts.size(), count));
    return texts;
}

std::string Text(const APIResponse& response) {
    return std::to_string(response.GetAnswerCount()) + " times, error " +
           std::to_string(response.GetErrorCode()) + ": " + Appliance::WriteJson(response.GetData());
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

extern "C" {

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KIVO::Fuzz::Log().clear();
    KIVO::Fuzz::Try(std::string(data, data + size));
    return 0;
}

EXPORTED uid_t geteuid() noexcept { return 0; }
EXPORTED gid_t getegid() noexcept { return 0; }

EXPORTED void syslog(int, const char* format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::string line = text;
    KIVO::Fuzz::Log() += line.substr(line.find(' ') + 1) + '\n';
}

}  // extern "C"
