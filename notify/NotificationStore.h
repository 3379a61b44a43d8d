#pragma once

#include <sqlite3.h>

#include <cassert>
#include <memory>

#include "sysnotify/database.h"

namespace KIVO::NEXNotify {

struct FreeSql {
    void operator()(char* text) const { sqlite3_free(text); }
};

/// An SQL text made by sqlite3_mprintf; null when memory was short.
using SqlText = std::unique_ptr<char, FreeSql>;

/// Deletes the user's links to messages, never a message: others may have it too.
[[nodiscard]] SqlText DeleteNotificationsSql(int uid);

/// Reads the texts of the user's notifications, oldest first.
[[nodiscard]] SqlText ReadNotificationsSql(int uid);

/// One connection to the notification database, closed at the end of its life.
class NotificationStore {
public:
    NotificationStore() = default;
    ~NotificationStore() { nexnotifyDbClose(m_db); }
    NotificationStore(const NotificationStore&) = delete;
    NotificationStore& operator=(const NotificationStore&) = delete;

    /// Called once. False when the database cannot be opened.
    [[nodiscard]] bool Open() {
        assert(m_db == nullptr);
        return nexnotifyDbOpen(&m_db) == 0;
    }

    /// Runs the text, with `callback` once a row unless it is null. False when it fails, when the callback
    /// stops it, and for a null text, which SQLite would take for an empty statement that succeeds.
    [[nodiscard]] bool Run(const SqlText& sql, int (*callback)(void*, int, char**, char**), void* argument) {
        return sql && nexnotifyDbRunSql(m_db, sql.get(), callback, argument) == 0;
    }

private:
    sqlite3* m_db = nullptr;
};

}  // namespace KIVO::NEXNotify
