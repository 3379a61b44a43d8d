#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "tests/support/Allocations.h"
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

    /// The answer to `load` with these further parameters.
    static Json::Value LoadData(const std::string& parameters = "", const std::string& user = "bob") {
        const APIResponse response =
            Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load")" + parameters + "}", user);
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

constexpr char kEmpty[] = R"({"items":[],"newestMsgTime":0,"total":0})";

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
        << "one untimed row is newer than the next listable one, two in all are seen";
    EXPECT_EQ(Page(R"(,"limit":1)"), "2 of 6");
    EXPECT_EQ(Page(R"(,"limit":1,"offset":3)"), "1 of 4");
    EXPECT_EQ(Page(R"(,"limit":1,"offset":4)"), "of 4");
}

TEST_F(Load, OrdersByTimestampAndReportsTheNewestTime) {
    Add(R"({"title":"Known","time":50})");
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
        const char* name;
        std::optional<std::string> row;
        bool isListed;  // to bob
        bool isListedToCarol = false;
        bool isListedToCarolWithAll = false;
    };
    for (const auto& [name, row, isListed, isListedToCarol, isListedToCarolWithAll] : {
             Case{"known tag", R"({"title":"Known","time":1,"msg":["{}"],"more":{"a":[1]}})", true, true,
                  true},
             Case{"known, hidden tag", R"({"title":"Hidden","time":1})", true, false, true},
             Case{"colon", R"({"title":"nexnotify:system_event","time":1})", true, true, true},
             Case{"only a colon", R"({"title":":","time":1})", true, true, true},
             Case{"unknown tag", R"({"title":"Unknown","time":1})", false},
             Case{"other letter case", R"({"title":"known","time":1})", false},
             Case{"no title", R"({"time":1})", false},
             Case{"empty title", R"({"title":"","time":1})", false},
             Case{"null title", R"({"title":null,"time":1})", false},
             Case{"number as title", R"({"title":5,"time":1})", false},
             Case{"object as title", R"({"title":{"Known":1},"time":1})", false},
             Case{"no time", R"({"title":"Known"})", false},
             Case{"null time", R"({"title":"Known","time":null})", true, true, true},
             Case{"text as time", R"({"title":"Known","time":"soon"})", true, true, true},
             Case{"NULL", std::nullopt, false},
             Case{"array", R"(["Known"])", false},
             Case{"number", "1", false},
             Case{"text", R"("title")", false},
         }) {
        SCOPED_TRACE(name);
        m_root.Query("DELETE FROM nexnotify");
        Add(row);
        const std::string items = std::string("[").append(row.value_or("null")).append("]");
        const auto expect = [&](bool listed, const Json::Value& data) {
            EXPECT_EQ(data["items"], Parse(listed ? items : "[]"));
            EXPECT_TRUE(data.isMember("priorityMap")) << "whenever there was a row";
        };
        expect(isListed, LoadData());
        expect(isListedToCarol, LoadData("", "carol"));
        expect(isListedToCarolWithAll, LoadData(R"(,"all":true)", "carol"));
        EXPECT_EQ(LoggedTexts(), std::vector<std::string>{});
    }
}

TEST_F(Load, OneTextThatIsNoJsonCostsTheList) {
    const std::string tooDeep =
        R"({"title":"Known","time":1,"a":)" + std::string(1001, '[') + std::string(1001, ']') + "}";
    for (const std::string& row : {std::string("{"), std::string(), std::string("nonsense"), tooDeep}) {
        m_root.Query("DELETE FROM nexnotify");
        LogLines().clear();
        AddListable(1);
        Add(row);
        AddListable(1);
        EXPECT_EQ(Text(LoadData()), kEmpty);
        EXPECT_EQ(LoggedTexts(), (std::vector<std::string>{"Load.cpp:# run sql error"}));
    }
}

TEST_F(Load, AsksForATagsPrivilegeOnce) {
    AddListable(20);
    Add(R"({"title":"Other","time":1})");
    Add(R"({"title":"Unknown","time":1})");
    AddListable(20);
    LoadData();
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:Known"], 1);
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:Other"], 1);
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow:Unknown"], 0) << "only what passed the tag test";
    ThePlatform() = {};
    LoadData(R"(,"all":true)");
    EXPECT_EQ(ThePlatform().calls["KIVOSysNotifyIsAllow"], 0);
}

TEST_F(Load, TellsAdministratorsWhenTheGroupSettingsChanged) {
    EXPECT_EQ(Text(LoadData("", "alice")), kEmpty) << "no settings, no rows";
    m_root.WriteGroupSettings("administrators", Json::objectValue);
    const Json::Value mtime = LoadData("", "alice")["admingrpsetmtime"];
    ASSERT_TRUE(mtime.isString());
    EXPECT_GT(std::stoull(mtime.asString()), 1'600'000'000ULL);
    EXPECT_FALSE(LoadData("", "bob").isMember("admingrpsetmtime"));
}

TEST_F(Load, AnswersWhatIsMissing) {
    AddListable(1);
    Add(R"({"title":"nexnotify:system_event","time":9})");
    struct Case {
        const char* failing;
        const char* user;
        std::string answer;
        std::vector<std::string> log;
    };
    const std::string onlyTheOneWithColon =
        R"(success: {"items":[{"time":9,"title":"nexnotify:system_event"}],)"
        R"("newestMsgTime":9.0,"priorityMap":null,"total":1})";
    for (const auto& [failing, user, answer, log] : {
             Case{"", "nobody-knows", "error 117: null", {}},
             Case{"nexnotifyDbOpen", "bob", "error 117: null", {"Load.cpp:# Open nexnotify.db error"}},
             Case{
                 "nexnotifyDbRunSql", "bob", std::string("success: ") + kEmpty, {"Load.cpp:# run sql error"}},
             Case{"KLIBCSzListAlloc", "bob", onlyTheOneWithColon, {}},
         }) {
        SCOPED_TRACE(failing);
        ThePlatform() = {.fails = [name = failing](std::string_view operation) { return operation == name; }};
        LogLines().clear();
        EXPECT_EQ(Notify(R"({"action":"load"})", user), answer);
        EXPECT_EQ(LoggedTexts(), log);
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbClose"] + ThePlatform().calls["nexnotifyDbClose:null"], 1);
    }
    ThePlatform() = {};
    std::filesystem::remove(m_root.Path("/var/cache/texts/enu/mails"));
    EXPECT_EQ(Notify(R"({"action":"load"})", "bob"), onlyTheOneWithColon);
}

TEST_F(Load, RunningOutOfMemoryInsideTheQueryStopsIt) {
    AddListable(3);
    std::optional<AllocationLimit> outOfMemory;
    ThePlatform().fails = [&](std::string_view operation) {
        if (operation == "nexnotifyDbRunSql") {
            outOfMemory.emplace(0);
        } else if (operation == "nexnotifyDbClose") {
            outOfMemory.reset();
        }
        return false;
    };
    EXPECT_EQ(Notify(R"({"action":"load"})", "bob"), "nothing");
    EXPECT_EQ(LogLines(), (std::vector<LogLine>{{3, "NEXNotifyAPI.h:80 Fatal Error: std::bad_alloc"}}));
    EXPECT_EQ(ThePlatform().calls["nexnotifyDbClose"], 1);
    EXPECT_EQ(ThePlatform().calls["sqlite3_free"], 1);
}

}  // namespace
}  // namespace KIVO::Test
