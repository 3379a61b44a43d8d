#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

TEST_F(ModuleTest, LoadAndApplyWaitForAWriterThatNeverRests) {
    m_root.Write("/var/log/kivo/events.jsonl", "");
    m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n");
    m_root.CreateDatabase();
    std::atomic<int> added = 0;  // to bob and to carol, each in a transaction of its own
    std::jthread writer([&](const std::stop_token& stop) {
        sqlite3* database = nullptr;
        sqlite3_open(m_root.Path("/var/lib/kivo/nexnotify.db").c_str(), &database);
        constexpr char kAdd[] = R"(BEGIN IMMEDIATE; INSERT INTO message(message_content, timestamp) )"
                                R"(VALUES('{"title":"Known","time":1}', 1); INSERT INTO nexnotify )"
                                R"(VALUES(1027, last_insert_rowid()), (1028, last_insert_rowid()); COMMIT;)";
        while (!stop.stop_requested()) {
            if (sqlite3_exec(database, kAdd, nullptr, nullptr, nullptr) == SQLITE_OK) {
                ++added;
            } else {
                sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
            }
        }
        sqlite3_close(database);
    });
    unsigned total = 0;
    for (int i = 0; i < 20 || added < 20; ++i) {
        const APIResponse loaded =
            Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load","limit":5})", "carol");
        ASSERT_EQ(loaded.GetState(), APIResponse::State::Success);
        ASSERT_GE(loaded.GetData()["total"].asUInt(),
                  std::exchange(total, loaded.GetData()["total"].asUInt()));
        ASSERT_EQ(Notify(R"({"action":"apply","clean":"all"})", "bob"), "success: null");
    }
    writer.request_stop();
    writer.join();
    for (const char* query :
         {"SELECT count(*) FROM nexnotify WHERE uid = 1028", "SELECT count(*) FROM message"}) {
        EXPECT_EQ(m_root.Query(query)[0][0], std::to_string(added)) << query;
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

}  // namespace
}  // namespace KIVO::Test
