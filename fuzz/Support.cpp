#include "fuzz/Support.h"

#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace KIVO::Fuzz {

std::string& Log() {
    static std::string log;
    return log;
}

std::vector<std::string> SplitTexts(const std::uint8_t* data, std::size_t size, std::size_t count) {
    std::vector<std::string> texts;
    for (const auto *text = data, *end = data + size; text < end;) {
        const auto* textEnd = std::find(text, end, 0);
        texts.emplace_back(text, textEnd);
        text = textEnd + 1;
    }
    texts.resize(std::max(texts.size(), count));
    return texts;
}

std::string Text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::string Text(const APIResponse& response) {
    return std::to_string(response.GetAnswerCount()) + " times, error " +
           std::to_string(response.GetErrorCode()) + ": " + Text(response.GetData());
}

void ExpectEqual(const char* what, const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        std::fprintf(stderr, "%s differs\nexpected: %s\n  actual: %s\n", what, expected.c_str(),
                     actual.c_str());
        std::abort();
    }
}

}  // namespace KIVO::Fuzz

#define EXPORTED __attribute__((visibility("default")))

extern "C" {

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
