#include "sysnotify/database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "tests/support/ApplianceRoot.h"

namespace {

using KIVO::Test::ApplianceRoot;
using Database = std::unique_ptr<sqlite3, decltype(&nexnotifyDbClose)>;

/// Null when it does not open.
Database Open() {
    sqlite3* handle = reinterpret_cast<sqlite3*>(1);  // the function must overwrite it
    const bool isOpen = nexnotifyDbOpen(&handle) == 0;
    EXPECT_EQ(isOpen, handle != nullptr);
    return Database(handle, &nexnotifyDbClose);
}

int Execute(const Database& database, const char* sql) {
    return nexnotifyDbRunSql(database.get(), sql, nullptr, nullptr);
}

TEST(Database, AFileThatIsNoneDoesNotOpenAndIsNotChanged) {
    constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";
    const ApplianceRoot root;
    EXPECT_EQ(Open(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(root.Path(kDatabase)));
    const std::string text(200, 'x');
    root.Write(kDatabase, text);
    EXPECT_EQ(Open(), nullptr);
    EXPECT_EQ(root.Read(kDatabase), text);
}

// Each writer is the last to close the database now and then, and takes the whole file for that moment.
TEST(Database, OpensAndReadsBesideWritersThatComeAndGo) {
    const ApplianceRoot root;
    root.CreateDatabase();
    const std::jthread writer([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            EXPECT_EQ(Execute(Open(), "INSERT INTO message(timestamp) VALUES(1)"), 0);
        }
    });
    for (int count = 0; count < 300; ++count) {
        EXPECT_EQ(Execute(Open(), "SELECT uid FROM nexnotify"), 0);
    }
}

}  // namespace
