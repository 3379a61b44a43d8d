#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

/// A database to which another writer adds notifications for bob and carol as fast as it can, each in a
/// transaction of its own, for as long as the test runs.
class BusyDatabase : public ModuleTest {
protected:
    BusyDatabase() {
        m_root.Write("/var/log/kivo/events.jsonl", "");
        m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n");
        m_root.CreateDatabase();
        m_writer = std::jthread([this](const std::stop_token& stop) { Write(stop); });
    }

    /// The number of notifications that each of the two has been given.
    int StopWriter() {
        m_writer.request_stop();
        m_writer.join();
        return m_added;
    }

    /// Whether a test that has asked so often has met a busy writer for long enough.
    bool IsEnough(int requests) const { return requests >= 20 && m_added >= 20; }

private:
    void Write(const std::stop_token& stop) {
        sqlite3* database = nullptr;
        sqlite3_open(m_root.Path("/var/lib/kivo/nexnotify.db").c_str(), &database);
        constexpr char kAdd[] = R"(BEGIN IMMEDIATE; INSERT INTO message(message_content, timestamp) )"
                                R"(VALUES('{"title":"Known","time":1}', 1); INSERT INTO nexnotify )"
                                R"(VALUES(1027, last_insert_rowid()), (1028, last_insert_rowid()); COMMIT;)";
        while (!stop.stop_requested()) {
            if (sqlite3_exec(database, kAdd, nullptr, nullptr, nullptr) == SQLITE_OK) {
                ++m_added;
            } else {
                sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
            }
        }
        sqlite3_close(database);
    }

    std::atomic<int> m_added = 0;
    std::jthread m_writer;
};

TEST_F(BusyDatabase, LoadWaitsAndAnswersAllThatIsThere) {
    unsigned total = 0;
    for (int i = 0; !IsEnough(i); ++i) {
        const APIResponse response =
            Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load","limit":5})", "bob");
        ASSERT_EQ(response.GetState(), APIResponse::State::Success);
        ASSERT_GE(response.GetData()["total"].asUInt(), total);
        total = response.GetData()["total"].asUInt();
    }
    StopWriter();
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(BusyDatabase, ApplyWaitsAndDeletesNoOtherUsersRows) {
    for (int i = 0; !IsEnough(i); ++i) {
        ASSERT_EQ(Notify(R"({"action":"apply","clean":"all"})", "bob"), "success: null");
    }
    const int added = StopWriter();
    EXPECT_EQ(m_root.Query("SELECT count(*) FROM nexnotify WHERE uid = 1028")[0][0], std::to_string(added));
    EXPECT_EQ(m_root.Query("SELECT count(*) FROM message")[0][0], std::to_string(added));
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

}  // namespace
}  // namespace KIVO::Test
