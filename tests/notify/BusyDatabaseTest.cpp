#include <gtest/gtest.h>

#include <thread>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

/// A database to which another writer adds notifications for bob and carol, each in a transaction of its own,
/// for as long as the test runs.
class BusyDatabase : public ModuleTest {
protected:
    BusyDatabase() {
        m_root.Write("/var/log/kivo/events.jsonl", "");
        m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n");
        m_root.CreateDatabase();
        AddOne();
        m_writer = std::jthread([this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                AddOne();
            }
        });
    }

    /// The number of notifications that the writer has added for each of the two.
    int StopWriter() {
        m_writer.request_stop();
        m_writer.join();
        return m_added;
    }

private:
    void AddOne() {
        ++m_added;
        m_root.AddMessage({1027, 1028}, R"({"title":"Known","time":1})", m_added);
    }

    int m_added = 0;
    std::jthread m_writer;
};

TEST_F(BusyDatabase, LoadWaitsAndAnswersAllThatIsThere) {
    unsigned total = 1;
    for (int i = 0; i < 200; ++i) {
        const APIResponse response =
            Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load","limit":5})", "bob");
        ASSERT_EQ(response.GetState(), APIResponse::State::Success);
        ASSERT_GE(response.GetData()["total"].asUInt(), total);
        total = response.GetData()["total"].asUInt();
    }
    EXPECT_GT(StopWriter(), 1) << "the writer was busy";
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(BusyDatabase, ApplyWaitsAndDeletesNoOtherUsersRows) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(Notify(R"({"action":"apply","clean":"all"})", "bob"), "success: null");
    }
    const int added = StopWriter();
    EXPECT_GT(added, 1) << "the writer was busy";
    EXPECT_EQ(m_root.Query("SELECT count(*) FROM nexnotify WHERE uid = 1028")[0][0], std::to_string(added));
    EXPECT_EQ(m_root.Query("SELECT count(*) FROM message")[0][0], std::to_string(added));
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

}  // namespace
}  // namespace KIVO::Test
