#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "sysnotify/database.h"

/// The notification database, to write to. All operations together wait some seconds for what another has
/// locked. Each throws std::runtime_error with one sentence when it fails.
class NotificationDatabase {
public:
    NotificationDatabase();

    /// Lets the operations from now on wait as long as those of a new object.
    static void WaitAnew();

    /// Runs the statements. How many rows the last one that writes has changed. What is not committed when
    /// the object goes is rolled back.
    long long Run(const std::string& statements);

    /// The first number that the query gives; 0 when it gives none.
    long long ReadNumber(const std::string& query);

private:
    void Check(int result, const char* purpose) const;

    std::string m_path;
    std::unique_ptr<sqlite3, decltype(&nexnotifyDbClose)> m_handle{nullptr, &nexnotifyDbClose};
};

/// The text that sqlite3_mprintf makes of the same.
std::string SqlText(const char* format, ...);
