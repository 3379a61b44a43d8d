#include "sysnotify/database.h"

#include <sqlite3.h>

#include <string>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/ErrorState.h"

namespace {

constexpr int kBusyTimeoutMilliseconds = 5000;

}  // namespace

int nexnotifyDbOpen(sqlite3** db) try {
    *db = nullptr;
    const std::string path = KIVO::Appliance::Rooted(KIVO::Appliance::kDatabasePath);
    sqlite3* handle = nullptr;
    int result = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_busy_timeout(handle, kBusyTimeoutMilliseconds);
        // SQLite reads nothing before the first statement. A file that is no database is to fail here, where
        // the caller says so, and not to pass for a user without notifications.
        result = sqlite3_exec(handle, "PRAGMA schema_version", nullptr, nullptr, nullptr);
    }
    if (result != SQLITE_OK) {
        sqlite3_close(handle);
        SET_LAST_ERROR(FileNotReadable);
        return result;
    }
    *db = handle;
    return SQLITE_OK;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return SQLITE_NOMEM;
}

int nexnotifyDbRunSql(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**), void* arg) {
    return sqlite3_exec(db, sql, callback, arg, nullptr);
}

void nexnotifyDbClose(sqlite3* db) { sqlite3_close(db); }
