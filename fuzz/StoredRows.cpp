#include "fuzz/StoredRows.h"

#include <cstring>

#include "kivocore/file.h"
#include "sdk/eventlog.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/rights.h"

namespace KIVO::Fuzz {

std::vector<std::optional<std::string>>& StoredRows() {
    static std::vector<std::optional<std::string>> rows;
    return rows;
}

bool IsEnabled(const std::string& tag) {
    return tag == "Known" || tag == "Hidden" || tag == "5" || tag == "true";
}

bool IsAllowed(const std::string& tag) { return std::strcmp(tag.c_str(), "Hidden") != 0; }

}  // namespace KIVO::Fuzz

extern "C" {

int KLIBCFileEnumSection(const char*, KLIBCSzList** list) {
    for (const char* tag : {"Known", "Hidden", "5", "true"}) {
        KLIBCSzListPush(list, tag);
    }
    return KLIBCSzListSize(*list);
}

int KIVOSysNotifyIsAllow(const char*, const char* tag) { return KIVO::Fuzz::IsAllowed(tag) ? 1 : 0; }

int KIVOUserGetUGID(const char*, int* uid, int*) {
    *uid = 1;
    return 0;
}

int KIVOLogSet1(int, int, unsigned, const char*, const char*, const char*, const char*) { return 0; }

int nexnotifyDbOpen(sqlite3** db) {
    *db = nullptr;
    return 0;
}

int nexnotifyDbRunSql(sqlite3*, const char*, int (*callback)(void*, int, char**, char**), void* arg) {
    if (callback == nullptr) {
        return 0;
    }
    for (const auto& row : KIVO::Fuzz::StoredRows()) {
        std::string text = row.value_or("");
        char* column = row ? text.data() : nullptr;
        if (callback(arg, 1, &column, nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // extern "C"
