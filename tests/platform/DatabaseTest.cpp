#include "sysnotify/database.h"

#include <gtest/gtest.h>

#include <atomic>
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

int Execute(const Database& database, const char* sql) {
    return nexnotifyDbRunSql(database.get(), sql, nullptr, nullptr);
}

TEST(Database, AFileThatIsNoneDoesNotOpenAndIsNotChanged) {
    const ApplianceRoot root;
    EXPECT_EQ(Open(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(root.Path(kDatabase)));
    const std::string text(200, 'x');
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
    root.AddMessage({1026}, "{}", 20);
    root.AddMessage({1026}, std::nullopt, 10);
    const Database database = Open();
    ASSERT_NE(database, nullptr);
    struct {
        size_t limit;
        std::vector<std::string> texts;
    } rows;
    const auto collect = [](void* data, int count, char** texts, char**) {
        auto* const to = static_cast<decltype(rows)*>(data);
        for (int column = 0; column < count; ++column) {
            to->texts.emplace_back(texts[column] != nullptr ? texts[column] : "NULL");
        }
        return to->texts.size() >= to->limit ? 1 : 0;
    };
    const std::vector<std::string> all = {"NULL", "10", "{}", "20"};
    for (const size_t limit : {2U, 5U}) {
        rows = {limit, {}};
        const int result = nexnotifyDbRunSql(
            database.get(), "SELECT message_content, timestamp FROM message ORDER BY 2", collect, &rows);
        EXPECT_EQ(result == 0, limit == 5);
        EXPECT_EQ(rows.texts, std::vector(all.begin(), all.begin() + (limit == 5 ? 4 : 2)));
    }
    EXPECT_NE(Execute(database, "SELECT nothing FROM nowhere"), 0);
}

// Each writer is the last to close the database now and then, and takes the whole file for that moment.
TEST(Database, OpensAndReadsBesideWritersThatComeAndGo) {
    const ApplianceRoot root;
    root.CreateDatabase();
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        while (!isDone) {
            EXPECT_EQ(Execute(Open(), "INSERT INTO message(timestamp) VALUES(1)"), 0);
        }
    });
    for (int count = 0; count < 300; ++count) {
        EXPECT_EQ(Execute(Open(), "SELECT uid FROM nexnotify"), 0);
    }
    isDone = true;
    writer.join();
}

}  // namespace
