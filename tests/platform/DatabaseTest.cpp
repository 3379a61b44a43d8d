#include "sysnotify/database.h"

#include <gtest/gtest.h>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
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

constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

/// How many messages a connection sees; -1 when there is none.
int CountMessages() {
    const Database database = Open();
    int count = -1;
    const auto onRow = [](void* result, int, char** texts, char**) {
        *static_cast<int*>(result) = std::stoi(texts[0]);
        return 0;
    };
    if (database) {
        EXPECT_EQ(nexnotifyDbRunSql(database.get(), "SELECT count(*) FROM message", onRow, &count), 0);
    }
    return count;
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

// A connection is kept, but whoever opens the database gets one to what is at the path. Others have added a
// message, which is in the WAL only.
TEST(Database, IsAlwaysTheOneAtThePath) {
    namespace fs = std::filesystem;
    const ApplianceRoot root;
    const std::string path = root.Path(kDatabase);
    const std::string copy = root.Path("/copy.db");
    const auto removeWal = [&] {
        fs::remove(path + "-wal");
        fs::remove(path + "-shm");
    };
    const auto overwrite = [&] { fs::copy_file(copy, path, fs::copy_options::overwrite_existing); };
    struct {
        const char* what;
        std::function<void()> change;
        int count;
    } const cases[] = {
        {"another connection adds a message", [&] { root.AddMessage({1}, "x", 1); }, 5},
        {"another connection copies the WAL", [&] { root.Query("PRAGMA wal_checkpoint"); }, 4},
        {"its times change", [&] { utimes(path.c_str(), nullptr); }, 4},
        {"its rights change", [&] { fs::permissions(path, fs::perms(0640)); }, 4},
        {"another file is moved to its place", [&] { fs::rename(copy, path); }, 2},
        {"a copy is written over it", overwrite, 2},
        {"a copy is written over it, and its WAL removed",
         [&] {
             removeWal();
             overwrite();
         },
         2},
        {"it is removed", [&] { fs::remove(path); }, -1},
        {"it is made anew",
         [&] {
             fs::remove(path);
             removeWal();
             root.CreateDatabase();
         },
         0},
        {"it is a folder",
         [&] {
             fs::remove(path);
             fs::create_directory(path);
         },
         -1},
        {"it is no database", [&] { root.Write(kDatabase, std::string(9999, 'x')); }, -1},
        {"it is empty of tables", [&] { root.Query("DELETE FROM message"); }, 0},
    };
    for (const auto& [what, change, count] : cases) {
        SCOPED_TRACE(what);
        fs::remove_all(root.Path("/var"));
        root.CreateDatabase();
        root.AddMessage({1}, std::nullopt, 1);
        root.AddMessage({1}, std::nullopt, 1);
        fs::copy_file(path, copy, fs::copy_options::overwrite_existing);
        root.AddMessage({1}, std::nullopt, 1);
        EXPECT_EQ(CountMessages(), 3);
        root.AddMessage({1}, std::nullopt, 1);
        EXPECT_EQ(CountMessages(), 4);
        change();
        EXPECT_EQ(CountMessages(), count);
        EXPECT_EQ(CountMessages(), count);
        // Whatever was kept does no harm to what there is later, nor to whoever finds it without the process.
        if (count > 0) {
            root.AddMessage({1}, std::nullopt, 1);
            EXPECT_EQ(CountMessages(), count + 1);
            EXPECT_EQ(root.Query("PRAGMA integrity_check")[0][0], "ok");
        }
    }
}

TEST(Database, KeepsNoTransactionAndNothingAcrossAFork) {
    const ApplianceRoot root;
    root.CreateDatabase();
    EXPECT_EQ(Execute(Open(), "BEGIN IMMEDIATE; INSERT INTO message(timestamp) VALUES(1)"), 0);
    EXPECT_EQ(CountMessages(), 0);
    root.AddMessage({1}, "not behind a lock", 1);
    EXPECT_EQ(CountMessages(), 1);

    const pid_t child = fork();
    if (child == 0) {
        Execute(Open(), "INSERT INTO message(timestamp) VALUES(2)");
        _exit(CountMessages());
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(CountMessages(), 2);
    EXPECT_EQ(std::filesystem::file_size(root.Path(kDatabase) + "-wal"), 0U) << "to be taken for another's";
}

}  // namespace
