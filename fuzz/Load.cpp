// Any stored texts through the action "load" as it is, and in the plainest way: the answers must be the same
// to the letter. An input is three bytes (limit, offset, and a last bit for all), then the texts, oldest
// first, each ended by a NUL byte or the end; the text "\x01" stands for NULL.

#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "kivocore/file.h"
#include "module/NEXNotifyAPI.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/rights.h"
#include "tests/support/PlainLoad.h"

namespace {

std::vector<std::optional<std::string>> g_rows;
std::vector<std::string> g_log;

bool IsEnabled(const std::string& tag) {
    return tag == "Known" || tag == "Hidden" || tag == "5" || tag == "true";
}

bool IsAllowed(const std::string& tag) { return std::strcmp(tag.c_str(), "Hidden") != 0; }

std::string Text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

[[noreturn]] void Fail(const char* what, const std::string& expected, const std::string& actual) {
    std::fprintf(stderr, "%s differs\nplain: %s\n  own: %s\n", what, expected.c_str(), actual.c_str());
    std::abort();
}

}  // namespace

// The platform as this target has it: no file is read, the texts come straight from the input.
extern "C" {

#define EXPORTED __attribute__((visibility("default")))

EXPORTED uid_t geteuid() noexcept { return 0; }
EXPORTED gid_t getegid() noexcept { return 0; }

void syslog(int, const char* format, ...) { g_log.emplace_back(format); }

int KLIBCFileEnumSection(const char*, KLIBCSzList** list) {
    for (const char* tag : {"Known", "Hidden", "5", "true"}) {
        KLIBCSzListPush(list, tag);
    }
    return KLIBCSzListSize(*list);
}

int KIVOSysNotifyIsAllow(const char*, const char* tag) { return IsAllowed(tag) ? 1 : 0; }

int KIVOUserGetUGID(const char*, int* uid, int*) {
    *uid = 1;
    return 0;
}

int nexnotifyDbOpen(sqlite3** db) {
    *db = nullptr;
    return 0;
}

int nexnotifyDbRunSql(sqlite3*, const char*, int (*callback)(void*, int, char**, char**), void* arg) {
    for (const auto& row : g_rows) {
        std::string text = row.value_or("");
        char* column = row ? text.data() : nullptr;
        if (callback(arg, 1, &column, nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const int limit = static_cast<std::int8_t>(data[0]);
    const int offset = static_cast<std::int8_t>(data[1]);
    const bool all = (data[2] & 1) != 0;
    g_rows.clear();
    g_log.clear();
    for (const auto *text = data + 3, *end = data + size; text < end;) {
        const auto* textEnd = std::find(text, end, 0);
        const std::string row(text, textEnd);
        g_rows.push_back(row == "\x01" ? std::nullopt : std::optional(row));
        text = textEnd + 1;
    }

    Json::Value parameters;
    parameters["action"] = "load";
    parameters["limit"] = limit;
    parameters["offset"] = offset;
    parameters["all"] = all;
    KIVO::APIRequest request(parameters, "alice", "enu", false);
    KIVO::APIResponse response;
    NEXNotify_1_notify(&request, &response);

    const Json::Value plain = KIVO::Test::PlainLoad(g_rows, limit, offset, all, IsEnabled, IsAllowed);
    if (Text(plain) != Text(response.GetData())) {
        Fail("answer", Text(plain), Text(response.GetData()));
    }
    const bool hasFailed = !g_rows.empty() && !plain.isMember("priorityMap");
    if (g_log != std::vector<std::string>(hasFailed ? 1 : 0, "%s:%d run sql error")) {
        Fail("log", hasFailed ? "run sql error" : "", g_log.empty() ? "" : g_log[0]);
    }
    return 0;
}

}  // extern "C"
