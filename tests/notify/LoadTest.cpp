#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

class Load : public ModuleTest {
protected:
    Load() {
        m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n[Other]\nmessage=m\n[Hidden]\nmessage=m\n");
        m_root.CreateDatabase();
    }

    void Add(const std::optional<std::string>& content) {
        m_root.AddMessage({1027, 1028}, content, ++m_timestamp);
    }

    void AddListable(int count) {
        for (int time = 1; time <= count; ++time) {
            Add(R"({"title":"Known","time":)" + std::to_string(time) + "}");
        }
    }

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

TEST_F(Load, PagesNewestFirst) {
    AddListable(12);
    struct Case {
        const char* parameters;
        const char* page;
    };
    for (const auto& [parameters, page] : {
             Case{R"(,"limit":5)", "12 11 10 9 8 of 12"},
             Case{R"(,"limit":5,"offset":10)", "2 1 of 12"},
             Case{R"(,"limit":5,"offset":12)", "of 12"},
             Case{R"(,"limit":5,"offset":2147483647)", "of 12"},
             Case{R"(,"limit":2147483647,"offset":11)", "1 of 12"},
             Case{R"(,"limit":2,"offset":-3)", "12 11 of 12"},
             Case{R"(,"limit":3,"start":4)", "12 11 10 of 12"},
             Case{R"(,"limit":0,"offset":9)", "3 2 1 of 3"},
             Case{R"(,"limit":-1,"offset":10)", "2 1 of 2"},
         }) {
        EXPECT_EQ(Page(parameters), page) << parameters;
    }
    AddListable(30);
    EXPECT_EQ(LoadData()["items"].size(), 30U);
    EXPECT_EQ(Text(LoadData()["total"]), "30") << "without a limit, the total is what the page holds";
    EXPECT_EQ(LoadData(R"(,"limit":1)")["total"], Json::Value(42U));
}

TEST_F(Load, CountsUntimedRowsThatThePageDoesNotReach) {
    const std::string untimed = R"({"title":"Known"})";
    Add(untimed);
    AddListable(2);
    Add(untimed);
    AddListable(2);
    Add(untimed);
    EXPECT_EQ(Page(R"(,"limit":9)"), "2 1 2 1 of 4");
    EXPECT_EQ(Page(R"(,"limit":2)"), "2 1 of 5")
        << "one untimed row is newer than the next listed one, two in all are seen";
    EXPECT_EQ(Page(R"(,"limit":1)"), "2 of 6");
    EXPECT_EQ(Page(R"(,"limit":1,"offset":3)"), "1 of 4");
    EXPECT_EQ(Page(R"(,"limit":1,"offset":4)"), "of 4");
}

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

TEST_F(Load, FiltersRowByRow) {
    struct Case {
        std::optional<std::string> row;
        const char* listedTo;  // "all": to carol, who may not see the tag Hidden but asks for all
    };
    for (const auto& [row, listedTo] : {
             Case{R"({"title":"Known","time":1,"msg":["{}"],"more":{"a":[1]}})", "bob carol all "},
             Case{R"({"title":"Hidden","time":1})", "bob all "},
             Case{R"({"title":"nexnotify:system_event","time":1})", "bob carol all "},
             Case{R"({"title":":","time":1})", "bob carol all "},
             Case{R"({"title":"Unknown","time":1})", ""},
             Case{R"({"title":"known","time":1})", ""},
             Case{R"({"time":1})", ""},
             Case{R"({"title":5,"time":1})", ""},
             Case{R"({"title":"Known"})", ""},
             Case{R"({"title":"Known","time":null})", "bob carol all "},
             Case{std::nullopt, ""},
             Case{R"(["Known"])", ""},
         }) {
        SCOPED_TRACE(row.value_or("NULL"));
        m_root.Query("DELETE FROM nexnotify");
        Add(row);
        std::string found;
        for (const auto& [who, data] : {std::pair("bob ", LoadData()),
                                        {"carol ", LoadData("", "carol")},
                                        {"all ", LoadData(R"(,"all":true)", "carol")}}) {
            EXPECT_TRUE(data.isMember("priorityMap")) << "whenever there was a row";
            if (!data["items"].empty()) {
                EXPECT_EQ(data["items"], Parse("[" + row.value() + "]"));
                found += who;
            }
        }
        EXPECT_EQ(found, listedTo);
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
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

}  // namespace
}  // namespace KIVO::Test
