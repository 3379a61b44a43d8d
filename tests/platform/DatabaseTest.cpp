#include "sysnotify/database.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ApplianceRoot.h"

namespace {

using KIVO::Test::ApplianceRoot;
using Database = std::unique_ptr<sqlite3, decltype(&nexnotifyDbClose)>;

constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

/// Null when it does not open.
Database Open() {
    sqlite3* handle = reinterpret_cast<sqlite3*>(1);  // the function must overwrite it
    const bool isOpen = nexnotifyDbOpen(&handle) == 0;
    EXPECT_EQ(isOpen, handle != nullptr);
    return Database(handle, &nexnotifyDbClose);
}

int CollectRow(void* rows, int count, char** texts, char** /*names*/) {
    for (int column = 0; column < count; ++column) {
        static_cast<std::vector<std::string>*>(rows)->push_back(texts[column] != nullptr ? texts[column]
                                                                                         : "NULL");
    }
    return 0;
}

TEST(Database, AFileThatIsNoneDoesNotOpenAndIsNotChanged) {
    const ApplianceRoot root;
    EXPECT_EQ(Open(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(root.Path(kDatabase)));
    const std::string text =
        "This is a text and not a database, and it is longer than a database's header is.\n";
    root.Write(kDatabase, text);
    EXPECT_EQ(Open(), nullptr);
    EXPECT_EQ(root.Read(kDatabase), text);
    std::filesystem::remove(root.Path(kDatabase));
    std::filesystem::create_directory(root.Path(kDatabase));
    EXPECT_EQ(Open(), nullptr);
    nexnotifyDbClose(nullptr);
}

TEST(Database, RowsReachTheCallbackUntilItStops) {
    const ApplianceRoot root;
    root.CreateDatabase();
    root.AddMessage({1026, 1027}, "{}", 20);
    root.AddMessage({1026}, std::nullopt, 10);
    const Database database = Open();
    ASSERT_NE(database, nullptr);
    constexpr char kQuery[] =
        "SELECT message_content, timestamp FROM 'nexnotify' INNER JOIN 'message' "
        "ON nexnotify.message_id = message.message_id WHERE uid = '1026' ORDER BY timestamp";
    std::vector<std::string> rows;
    EXPECT_EQ(nexnotifyDbRunSql(database.get(), kQuery, &CollectRow, &rows), 0);
    EXPECT_EQ(rows, (std::vector<std::string>{"NULL", "10", "{}", "20"}));

    int calls = 0;
    const auto stop = [](void* count, int, char**, char**) { return ++*static_cast<int*>(count); };
    EXPECT_NE(nexnotifyDbRunSql(database.get(), kQuery, stop, &calls), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_NE(nexnotifyDbRunSql(database.get(), "SELECT nothing FROM nowhere", nullptr, nullptr), 0);
    EXPECT_EQ(
        nexnotifyDbRunSql(database.get(), "DELETE FROM 'nexnotify' WHERE uid = '1026';", nullptr, nullptr),
        0);
    EXPECT_EQ(root.Query("SELECT uid FROM nexnotify"),
              (std::vector<std::vector<KIVO::Test::Column>>{{"1027"}}));
}

TEST(Database, WaitsForAWriter) {
    const ApplianceRoot root;
    root.CreateDatabase();
    root.AddMessage({1026}, "{}", 10);
    const Database writer = Open();
    ASSERT_EQ(nexnotifyDbRunSql(writer.get(), "BEGIN IMMEDIATE", nullptr, nullptr), 0);
    std::thread end([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(nexnotifyDbRunSql(writer.get(), "COMMIT", nullptr, nullptr), 0);
    });
    EXPECT_EQ(nexnotifyDbRunSql(Open().get(), "DELETE FROM nexnotify", nullptr, nullptr), 0);
    end.join();
}

// Each writer is the last to close the database now and then, and takes the whole file for that moment.
TEST(Database, OpensAndReadsBesideWritersThatComeAndGo) {
    const ApplianceRoot root;
    root.CreateDatabase();
    root.AddMessage({1026}, "{}", 10);
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        while (!isDone) {
            EXPECT_EQ(
                nexnotifyDbRunSql(Open().get(), "INSERT INTO message(timestamp) VALUES(1)", nullptr, nullptr),
                0);
        }
    });
    for (int count = 0; count < 300; ++count) {
        std::vector<std::string> rows;
        EXPECT_EQ(nexnotifyDbRunSql(Open().get(), "SELECT uid FROM nexnotify", &CollectRow, &rows), 0);
        EXPECT_EQ(rows.size(), 1U);
    }
    isDone = true;
    writer.join();
}

}  // namespace
