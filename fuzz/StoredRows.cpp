#include "fuzz/Support.h"
#include "sysnotify/database.h"
#include "tests/support/PlainLoad.h"

using KIVO::Fuzz::storedRows;

Json::Value KIVO::Fuzz::PlainLoad(const Json::Value& parameters) {
    const auto isEnabled = [](const std::string& tag) {
        return tag == "Known" || tag == "Hidden" || tag == "5" || tag == "true";
    };
    // The rights end a tag at its first NUL byte.
    const auto isAllowed = [](const std::string& tag) { return std::string(tag.c_str()) != "Hidden"; };
    return Test::PlainLoad(storedRows, parameters["limit"].asInt(), parameters["offset"].asInt(),
                           parameters["all"].asBool(), isEnabled, isAllowed);
}

extern "C" {

int nexnotifyDbOpen(sqlite3** db) { return *db = nullptr, 0; }

int nexnotifyDbRunSql(sqlite3*, const char*, int (*callback)(void*, int, char**, char**), void* arg) {
    for (const auto& row : storedRows) {
        std::string text = row.value_or("");
        char* column = row ? text.data() : nullptr;
        if (callback != nullptr && callback(arg, 1, &column, nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // extern "C"
