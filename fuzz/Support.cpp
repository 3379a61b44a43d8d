#include "fuzz/Support.h"

#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "tests/support/Log.h"

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

std::string Logged() {
    std::string texts;
    for (const auto& [priority, text] : Test::LogLines()) {
        texts += text.substr(text.find(' ') + 1) + '\n';
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

extern "C" {

int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
    KIVO::Test::LogLines().clear();
    KIVO::Fuzz::calls = 0;
    KIVO::Fuzz::Try(std::string(data, size));
    return 0;
}

// The process is the superuser's in its own eyes and those of the platform's libraries.
KIVO_PUBLIC uid_t geteuid() noexcept { return 0; }
KIVO_PUBLIC gid_t getegid() noexcept { return 0; }

}  // extern "C"
