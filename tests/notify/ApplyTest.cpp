#include <gtest/gtest.h>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kApply[] = R"({"action": "apply", "clean": "all"})";

class Apply : public ModuleTest {};

TEST_F(Apply, DeletesTheUsersLinksAndNotesIt) {
    m_root.Write("/var/log/kivo/events.jsonl", "");
    m_root.CreateDatabase();
    const long long shared = m_root.AddMessage({1026, 1027}, R"({"title": "Shared", "time": 1})", 1);
    m_root.AddMessage({1026}, R"({"title": "Own", "time": 2})", 2);
    EXPECT_EQ(Notify(kApply), "success: null");
    EXPECT_EQ(ThePlatform().calls["nexnotifyDbRunSql:DELETE FROM 'nexnotify' WHERE uid = '1026';"], 1);
    EXPECT_EQ(m_root.Query("SELECT uid, message_id FROM nexnotify"),
              (std::vector<std::vector<Column>>{{"1027", std::to_string(shared)}}));
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 2U);
    Json::Value event = Parse(m_root.Read("/var/log/kivo/events.jsonl").value());
    event.removeMember("time");
    EXPECT_EQ(Text(event), R"({"args":["alice","","",""],"category":2,"event":"0x14600001","level":1})");

    EXPECT_EQ(Notify(kApply, "carol"), "success: null") << "who has no notifications";
    EXPECT_EQ(ThePlatform().calls["KIVOLogSet1"], 2);
    EXPECT_EQ(ThePlatform().held, 0);
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

}  // namespace
}  // namespace KIVO::Test
