#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kApply[] = R"({"action": "apply", "clean": "all"})";
constexpr char kEventLog[] = "/var/log/kivo/events.jsonl";

class Apply : public ModuleTest {
protected:
    Apply() {
        std::filesystem::create_directories(m_root.Path("/var/log/kivo"));
        m_root.CreateDatabase();
        m_shared = m_root.AddMessage({1026, 1027}, R"({"title": "Shared", "time": 1})", 1);
        m_root.AddMessage({1026}, R"({"title": "Own", "time": 2})", 2);
    }

    std::vector<std::vector<Column>> LinksOf(int uid) const {
        return m_root.Query("SELECT message_id FROM nexnotify WHERE uid = " + std::to_string(uid));
    }

    long long m_shared;
};

TEST_F(Apply, DeletesTheUsersLinksAndNotesIt) {
    EXPECT_EQ(Notify(kApply), "success: null");
    EXPECT_EQ(LinksOf(1026).size(), 0U);
    EXPECT_EQ(LinksOf(1027), (std::vector<std::vector<Column>>{{std::to_string(m_shared)}}));
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 2U);
    Json::Value event = Parse(m_root.Read(kEventLog).value_or("{}"));
    event.removeMember("time");
    EXPECT_EQ(Text(event), R"({"args":["alice","","",""],"category":2,"event":"0x14600001","level":1})");

    EXPECT_EQ(Notify(kApply, "carol"), "success: null") << "who has no notifications";
    EXPECT_EQ(ThePlatform().calls["KIVOLogSet1"], 2);
    EXPECT_EQ(ThePlatform().calls["sqlite3_free"], 2);
    EXPECT_EQ(LoggedTexts(), std::vector<std::string>{});
}

TEST_F(Apply, DeletesNothingWhenItFails) {
    struct Case {
        const char* failing;
        const char* user;
        std::vector<std::string> log;
        const char* closed;
    };
    for (const auto& [failing, user, log, closed] : {
             Case{"", "nobody-knows", {}, "nexnotifyDbClose:null"},
             Case{"nexnotifyDbOpen",
                  "alice",
                  {"NotificationStore.cpp:# Open nexnotify.db error"},
                  "nexnotifyDbClose:null"},
             Case{
                 "nexnotifyDbRunSql", "alice", {"NotificationStore.cpp:# run sql error"}, "nexnotifyDbClose"},
         }) {
        SCOPED_TRACE(failing);
        ThePlatform() = {.fails = [name = failing](std::string_view operation) { return operation == name; }};
        LogLines().clear();
        EXPECT_EQ(Notify(kApply, user), "error 117: null");
        EXPECT_EQ(LoggedTexts(), log);
        EXPECT_EQ(ThePlatform().calls[closed], 1);
        EXPECT_EQ(LinksOf(1026).size(), 2U);
        EXPECT_EQ(m_root.Read(kEventLog), std::nullopt);
    }
}

TEST_F(Apply, SucceedsWhenOnlyTheEventCannotBeNoted) {
    ThePlatform().fails = [](std::string_view operation) { return operation == "KIVOLogSet1"; };
    EXPECT_EQ(Notify(kApply), "success: null");
    EXPECT_EQ(LinksOf(1026).size(), 0U);
}

}  // namespace
}  // namespace KIVO::Test
