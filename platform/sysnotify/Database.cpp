#include "sysnotify/database.h"

#include <sqlite3.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/ErrorState.h"

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kBusyTimeout = 5s;
constexpr std::chrono::milliseconds kBusyPause = 1ms;

/// Called by SQLite at each try for a lock that another has. Its own handler soon asks ten times a second
/// only, and beside a writer that commits row after row it may miss every moment between two rows until the
/// time is up.
int WaitForLock(void*, int tries) {
    std::this_thread::sleep_for(kBusyPause);
    return tries < kBusyTimeout / kBusyPause ? 1 : 0;
}

}  // namespace

int nexnotifyDbOpen(sqlite3** db) try {
    *db = nullptr;
    const std::string path = KIVO::Appliance::Rooted(KIVO::Appliance::kDatabasePath);
    sqlite3* handle = nullptr;
    int result = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_busy_handler(handle, &WaitForLock, nullptr);
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
