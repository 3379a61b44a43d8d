#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <thread>
#include <utility>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

// What is listed of which rows is the fuzz targets' to compare with the plainest way to read them.
class Load : public ModuleTest {
protected:
    Load() {
        m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n[Other]\nmessage=m\n[Hidden]\nmessage=m\n");
        m_root.CreateDatabase();
    }

    void Add(const std::string& content) { m_root.AddMessage({1027, 1028}, content, ++m_timestamp); }

    /// The answer to `load` with these further parameters, in a language that has no catalogue.
    static Json::Value LoadData(const std::string& parameters = "", const std::string& user = "bob") {
        const APIResponse response =
            Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load")" + parameters + "}", user, "ger");
        EXPECT_EQ(response.GetState(), APIResponse::State::Success);
        return response.GetData();
    }

    /// The "time" of the items, then the total: "5 4 3 of 12".
    static std::string Page(const std::string& parameters) {
        const Json::Value data = LoadData(parameters);
        std::string page;
        for (const Json::Value& item : data["items"]) {
            page += item["time"].asString() + " ";
        }
        return page + "of " + data["total"].asString();
    }

    long long m_timestamp = 0;
};

TEST_F(Load, RunsOneStatementHoweverMuchLiesInFrontOfThePage) {
    const auto add = [&](const std::string& members) {
        Add(R"({"title":"Known",)" + members + R"("filler":")" + std::string(9 << 20, 'x') + "\"}");
    };
    add(R"("time":1,)");
    add("");
    for (const char* members : {R"("time":2,)", R"("time":3,)", R"("time":4,)"}) {
        add(members);
    }
    for (const auto& [parameters, page] : {std::pair(R"(,"limit":1)", "4 of 5"),
                                           {R"(,"limit":1,"offset":1)", "3 of 5"},
                                           {R"(,"limit":2,"offset":2)", "2 1 of 4"},
                                           {R"(,"limit":1,"offset":4)", "of 4"}}) {
        ThePlatform() = {};
        EXPECT_EQ(Page(parameters), page);
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbRunSql"], 1) << parameters;
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbRunSql:SELECT message_content FROM 'nexnotify' INNER JOIN "
                                      "'message' ON nexnotify.message_id = message.message_id WHERE uid = "
                                      "'1027' ORDER BY message.timestamp ASC ;"],
                  1);
    }
}

TEST_F(Load, OrdersByTimestampAndReportsTheNewestTime) {
    Add(R"({"title":"Known","time":-3})");
    EXPECT_EQ(LoadData()["newestMsgTime"], Json::Value(0.0));
    Add(std::string(R"({"title":"Known","time":50})") + '\0' + "nobody reads on behind a NUL");
    Add(R"({"title":"Known","time":99.5})");
    Add(R"({"title":"Known","time":7})");
    Add(R"({"title":"Unknown","time":500})");
    const Json::Value data = LoadData(R"(,"limit":1)");
    EXPECT_EQ(data["items"][0]["time"], Json::Value(7));
    EXPECT_EQ(data["newestMsgTime"], Json::Value(99.5));
    EXPECT_TRUE(data.isMember("priorityMap") && data["priorityMap"].isNull());
}

TEST_F(Load, AsksForATagsPrivilegeOnce) {
    for (const char* tag : {"Known", "Other", "Unknown", "Known", "Known"}) {
        Add(R"({"title":")" + std::string(tag) + R"(","time":1})");
    }
    LoadData();
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:Known"], 1);
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:Other"], 1);
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow"], 2) << "only for what passed the tag test";
    ThePlatform() = {};
    LoadData(R"(,"all":true)");
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow"], 0);
}

TEST_F(Load, RemembersNoMoreTitlesThanAFewMegabytes) {
    const auto title = [](int number) { return std::to_string(number) + ":" + std::string(64 << 10, 'x'); };
    constexpr int kLast = 40;
    for (int number = 1; number <= kLast; ++number) {
        Add(R"({"title":")" + title(number) + R"("})");
    }
    Add(R"({"title":")" + title(1) + R"("})");
    Add(R"({"title":")" + title(kLast) + R"("})");
    LoadData();
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:" + title(1)], 1);
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:" + title(kLast)], 2);
}

TEST_F(Load, TellsAdministratorsWhenTheGroupSettingsChanged) {
    EXPECT_EQ(Text(LoadData("", "alice")), R"({"items":[],"newestMsgTime":0,"total":0})");
    m_root.WriteGroupSettings("administrators", Json::objectValue);
    const Json::Value mtime = LoadData("", "alice")["admingrpsetmtime"];
    ASSERT_TRUE(mtime.isString());
    EXPECT_GT(std::stoull(mtime.asString()), 1'600'000'000ULL);
    EXPECT_FALSE(LoadData("", "bob").isMember("admingrpsetmtime"));
}

TEST_F(Load, AndApplyWaitForABusyDatabase) {
    m_root.Write("/var/log/kivo/events.jsonl", "");
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
        const unsigned earlier = std::exchange(total, LoadData(R"(,"limit":5)", "carol")["total"].asUInt());
        ASSERT_GE(total, earlier);
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
