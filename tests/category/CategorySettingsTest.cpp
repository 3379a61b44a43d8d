#include <gtest/gtest.h>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

class CategorySettings : public ModuleTest {
protected:
    void WriteEvents(const std::string& english, const std::string& german) const {
        m_root.Write("/var/cache/texts/enu/notification_category", english);
        m_root.Write("/var/cache/texts/ger/notification_category", german);
    }

    /// The rows as "category/category_enu/app/appids=nexnotify", then the total; or "nothing".
    static std::string Rows(const std::string& user = "bob", const std::string& language = "ger") {
        std::string answer = Notify(R"({"action":"loadHaveNtAppList"})", user, language);
        if (!answer.starts_with("success: ")) {
            return answer;
        }
        const Json::Value data = Parse(answer.substr(9));
        std::string rows;
        for (const Json::Value& row : data["items"]) {
            EXPECT_EQ(row.size(), 5U);
            rows += row["category"].asString() + "/" + row["category_enu"].asString() + "/" +
                    row["app"].asString() + "/" + Text(row["appids"]) + "=" + Text(row["nexnotify"]) + " ";
        }
        return rows + Text(data["total"]);
    }
};

TEST_F(CategorySettings, DerivesCategoriesFromEvents) {
    struct Case {
        const char* name;
        const char* english;
        const char* german;
        const char* rows;
    };
    for (const auto& [name, english, german, rows] : {
             Case{"order of first appearance in the UI language",
                  R"({"All":[{"name":"a","group":"A"},{"name":"b","group":"B"}]})",
                  R"({"All":[{"name":"b","group":"b"},{"name":"a","group":"ä"},{"name":"b","group":"x"}]})",
                  R"(b/B//[]="on" ä/A//[]="on" 2)"},
             Case{"one row a category, with its first event's title and application",
                  R"({"All":[{"name":"a","group":"G"},{"name":"b","group":"G","appid":"KIVO.App.None"}]})",
                  R"({"All":[{"name":"a","group":"g1"},{"name":"b","group":"g2"}]})", R"(g1/G//[]="on" 1)"},
             Case{"no translated or English title, or no English entry",
                  R"({"All":[{"name":"a","group":"A"},{"name":"b","group":""},{"name":"c"}]})",
                  R"({"All":[{"name":"a","group":""},{"name":"a"},{"name":"b","group":"b"},)"
                  R"({"name":"c","group":"c"},{"name":"d","group":"d"}]})",
                  "0"},
             Case{"an entry behind the last match is not looked at",
                  R"({"All":[{"name":"a","group":"A"},5]})", R"({"All":[{"name":"a","group":"g"}]})",
                  R"(g/A//[]="on" 1)"},
         }) {
        WriteEvents(english, german);
        EXPECT_EQ(Rows(), rows) << name;
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
    WriteEvents(R"({"All":[{"name":"a","group":"A"}]})", "{}");
    EXPECT_EQ(Rows("bob", "enu"), R"(A/A//[]="on" 1)");
}

TEST_F(CategorySettings, ShowsTheCategoriesOfApplicationsThatTheUserMayUse) {
    const std::string events =
        R"({"All":[{"name":"s","group":"System"},{"name":"v","group":"Video","appid":"KIVO.App.Video"},)"
        R"({"name":"b","group":"Backup","appid":"KIVO.App.Backup"},)"
        R"({"name":"w","group":"Films","appid":"KIVO.App.Video"}]})";
    WriteEvents(events, events);
    const std::string system = R"(System/System//[]="on" )";
    const std::string backup = R"(Backup/Backup/KIVO.App.Backup/["KIVO.App.Backup"]="on" )";
    EXPECT_EQ(Rows("bob"), system + backup + "2");
    EXPECT_EQ(ThePlatform().calls["KLIBAppPrivUserHas:KIVO.App.Video"], 1);
    EXPECT_EQ(ThePlatform().calls["KLIBGroupIsAdminGroupMem"], 1);
    EXPECT_EQ(Rows("carol"), system + "1");
    EXPECT_EQ(Rows("nobody-knows"), system + "1");
    EXPECT_EQ(Rows("alice"), system + R"(Video/Video/KIVO.App.Video/["KIVO.App.Video"]="on" )" + backup +
                                 R"(Films/Films/KIVO.App.Video/["KIVO.App.Video"]="on" 4)");
}

TEST_F(CategorySettings, OverlaysTheUsersChoices) {
    const std::string events =
        R"({"All":[{"name":"s","group":"System"},{"name":"b","group":"Backup","appid":"KIVO.App.Backup"}]})";
    WriteEvents(events, events);
    struct Case {
        const char* choices;
        const char* system;
        const char* backup;
    };
    for (const auto& [choices, system, backup] : {
             Case{R"([{"category_enu":"System","app":"","nexnotify":"off"}])", R"("off")", R"("on")"},
             Case{R"([{"category_enu":"Backup","app":"","nexnotify":"off"}])", R"("on")", R"("on")"},
             Case{R"([{"category_enu":"System","nexnotify":"off"}])", R"("on")", R"("on")"},
             Case{R"([{"category_enu":"Backup","app":"KIVO.App.Backup","nexnotify":{"a":[1]}},)"
                  R"({"category_enu":"Backup","app":"KIVO.App.Backup","nexnotify":"second"},)"
                  R"({"category_enu":"System","app":""}])",
                  "null", R"({"a":[1]})"},
         }) {
        Json::Value document;
        document["KIVO.ZUI.NEXNotify.Setting.Application"]["notifcationSettings"] = Parse(choices);
        m_root.WriteUserSettings("bob", document);
        EXPECT_EQ(Rows(), std::string("System/System//[]=") + system +
                              R"( Backup/Backup/KIVO.App.Backup/["KIVO.App.Backup"]=)" + backup + " 2");
    }
}

TEST_F(CategorySettings, MembersOfUnexpectedTypesEndTheRequestAlone) {
    for (const auto& [german, settings] :
         {std::pair(R"({"All":[5]})", "{}"), {R"({"All":[{"name":"a"}]})", "[]"}}) {
        LogLines().clear();
        WriteEvents(R"({"All":[{"name":"a","group":"A"}]})", german);
        m_root.WriteUserSettings("bob", Parse(settings));
        EXPECT_EQ(Rows(), "nothing");
        ASSERT_EQ(LogLines().size(), 1U);
        EXPECT_TRUE(LogLines()[0].text.starts_with("NEXNotifyAPI.h:80 Fatal Error: ")) << LogLines()[0];
    }
}

}  // namespace
}  // namespace KIVO::Test
