#include <gtest/gtest.h>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

// Which categories come of which events and choices is the fuzz target's to compare with nested loops.
TEST_F(ModuleTest, TheCategoriesAreThoseOfApplicationsThatTheUserMayUse) {
    for (const char* language : {"enu", "ger"}) {
        m_root.Write(
            std::string("/var/cache/texts/") + language + "/notification_category",
            R"({"All":[{"name":"s","group":"System"},{"name":"v","group":"Video","appid":"KIVO.App.Video"},)"
            R"({"name":"b","group":"Backup","appid":"KIVO.App.Backup"},)"
            R"({"name":"w","group":"Films","appid":"KIVO.App.Video"}]})");
    }
    const auto rows = [](const std::string& user) {
        const std::string request = R"({"action":"loadHaveNtAppList"})";
        const Json::Value data = Ask("KIVO.Core.NEXNotify", "notify", request, user, "ger").GetData();
        std::string found;
        for (const Json::Value& row : data["items"]) {
            found +=
                row["category"].asString() + "/" + row["app"].asString() + "/" + Text(row["appids"]) + " ";
        }
        return found + Text(data["total"]);
    };
    const std::string system = "System//[] ";
    const std::string backup = R"(Backup/KIVO.App.Backup/["KIVO.App.Backup"] )";
    EXPECT_EQ(rows("bob"), system + backup + "2");
    EXPECT_EQ(ThePlatform().calls["KLIBAppPrivUserHas:KIVO.App.Video"], 1);
    EXPECT_EQ(ThePlatform().calls["KLIBGroupIsAdminGroupMem"], 1);
    EXPECT_EQ(rows("carol"), system + "1");
    EXPECT_EQ(rows("nobody-knows"), system + "1");
    EXPECT_EQ(rows("alice"), system + R"(Video/KIVO.App.Video/["KIVO.App.Video"] )" + backup +
                                 R"(Films/KIVO.App.Video/["KIVO.App.Video"] 4)");
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

}  // namespace
}  // namespace KIVO::Test
