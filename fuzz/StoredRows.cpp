#include "fuzz/Support.h"

#include "kivocore/file.h"
#include "sdk/eventlog.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/rights.h"
#include "tests/support/PlainLoad.h"

namespace {

constexpr const char* kTags[] = {"Known", "Hidden", "5", "true"};

bool IsEnabled(const std::string& tag) { return std::ranges::count(kTags, tag) > 0; }
/// A tag ends at its first NUL byte.
bool IsAllowed(const std::string& tag) { return std::string(tag.c_str()) != "Hidden"; }

}  // namespace

namespace KIVO::Fuzz {

std::vector<std::optional<std::string>>& StoredRows() {
    static std::vector<std::optional<std::string>> rows;
    return rows;
}

Json::Value PlainLoad(const Json::Value& parameters) {
    return Test::PlainLoad(StoredRows(), parameters["limit"].asInt(), parameters["offset"].asInt(),
                           parameters["all"].asBool(), IsEnabled, IsAllowed);
}

}  // namespace KIVO::Fuzz

extern "C" {

int KLIBCFileEnumSection(const char*, KLIBCSzList** list) {
    for (const char* tag : kTags) {
        KLIBCSzListPush(list, tag);
    }
    return KLIBCSzListSize(*list);
}

int KIVOSysNotifyIsAllow(const char*, const char* tag) { return IsAllowed(tag) ? 1 : 0; }

int KIVOUserGetUGID(const char*, int* uid, int*) { return *uid = 1, 0; }

int KIVOLogSet1(int, int, unsigned, const char*, const char*, const char*, const char*) { return 0; }

int nexnotifyDbOpen(sqlite3** db) { return *db = nullptr, 0; }

int nexnotifyDbRunSql(sqlite3*, const char*, int (*callback)(void*, int, char**, char**), void* arg) {
    for (const auto& row : KIVO::Fuzz::StoredRows()) {
        std::string text = row.value_or("");
        char* column = row ? text.data() : nullptr;
        if (callback != nullptr && callback(arg, 1, &column, nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // extern "C"
