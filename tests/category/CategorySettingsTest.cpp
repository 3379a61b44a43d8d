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

    static std::string Ask(const std::string& user = "bob", const std::string& language = "ger") {
        return Notify(R"({"action":"loadHaveNtAppList"})", user, language);
    }

    /// The rows as "category/category_enu/app/appids=nexnotify", then the total.
    static std::string Rows(const std::string& user = "bob", const std::string& language = "ger") {
        const std::string answer = Ask(user, language);
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
    for (
        const auto& [name, english, german, rows] : {
            Case{"order of first appearance in the UI language",
                 R"({"All":[{"name":"a","group":"A"},{"name":"b","group":"B"}]})",
                 R"({"All":[{"name":"b","group":"b"},{"name":"a","group":"ä"},{"name":"b","group":"x"}]})",
                 R"(b/B//[]="on" ä/A//[]="on" 2)"},
            Case{"one row a category, with its first event's title and application",
                 R"({"All":[{"name":"a","group":"G"},{"name":"b","group":"G","appid":"KIVO.App.None"}]})",
                 R"({"All":[{"name":"a","group":"g1"},{"name":"b","group":"g2"}]})", R"(g1/G//[]="on" 1)"},
            Case{"the first English entry of a name counts",
                 R"({"All":[{"name":"a","group":"First"},{"name":"a","group":"Second"}]})",
                 R"({"All":[{"name":"a","group":"g"}]})", R"(g/First//[]="on" 1)"},
            Case{
                "an event without a translated or an English title, or without an English entry",
                R"({"All":[{"name":"a","group":"A"},{"name":"b","group":""},{"name":"c"}]})",
                R"({"All":[{"name":"a","group":""},{"name":"a"},{"name":"b","group":"b"},{"name":"c","group":"c"},)"
                R"({"name":"d","group":"d"}]})",
                "0"},
            Case{
                "names that are no strings are equal as JSON",
                R"({"All":[{"name":1,"group":"One"},{"name":"1","group":"Text"},{"name":[{}],"group":"List"},)"
                R"({"name":"","group":"Empty"}]})",
                R"({"All":[{"name":"1","group":"t"},{"name":[{}],"group":"l"},{"name":1.0,"group":"r"},)"
                R"({"name":1,"group":"o"},{"group":"e"}]})",
                R"(t/Text//[]="on" l/List//[]="on" o/One//[]="on" e/Empty//[]="on" 4)"},
            Case{"an English document without events", R"({})", R"({"All":[{"name":"a","group":"g"}]})", "0"},
            Case{"a document without events", R"({"All":[{"name":"a","group":"A"}]})", R"({"All":null})",
                 "0"},
            Case{"an entry behind the last match is not looked at", R"({"All":[{"name":"a","group":"A"},5]})",
                 R"({"All":[{"name":"a","group":"g"}]})", R"(g/A//[]="on" 1)"},
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
        R"({"All":[{"name":"s","group":"System"},{"name":"b","group":"Backup","appid":"KIVO.App.Backup"},)"
        R"({"name":"v","group":"Video","appid":"KIVO.App.Video"},)"
        R"({"name":"w","group":"Films","appid":"KIVO.App.Video"}]})";
    WriteEvents(events, events);
    const std::string system = R"(System/System//[]="on" )";
    const std::string backup = R"(Backup/Backup/KIVO.App.Backup/["KIVO.App.Backup"]="on" )";
    EXPECT_EQ(Rows("bob"), system + backup + "2");
    EXPECT_EQ(ThePlatform().calls["KLIBAppPrivUserHas:KIVO.App.Video"], 1);
    EXPECT_EQ(Rows("carol"), system + "1");
    EXPECT_EQ(Rows("nobody-knows"), system + "1");
    EXPECT_EQ(Rows("alice"), system + backup + R"(Video/Video/KIVO.App.Video/["KIVO.App.Video"]="on" )" +
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
             Case{R"([])", R"("on")", R"("on")"},
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
    m_root.WriteUserSettings("bob",
                             Parse(R"({"KIVO.ZUI.NEXNotify.Setting.Application":{"else":1},"more":2})"));
    EXPECT_EQ(Rows("bob").back(), '2');
}

TEST_F(CategorySettings, MembersOfUnexpectedTypesEndTheRequestAlone) {
    const std::string good = R"({"All":[{"name":"a","group":"A"}]})";
    struct Case {
        const char* name;
        std::string english, german, settings;
        bool isAnswered;
    };
    const std::string noSettings = "{}";
    for (const auto& [name, english, german, settings, isAnswered] : {
             Case{"document is a list", "[]", good, noSettings, false},
             Case{"event is a number", good, R"({"All":[5]})", noSettings, false},
             Case{"English entry is a number", R"({"All":[5]})", good, noSettings, false},
             Case{"group is a list", R"({"All":[{"name":"a","group":[]}]})", good, noSettings, false},
             Case{"appid is an object", R"({"All":[{"name":"a","group":"A","appid":{}}]})", good, noSettings,
                  false},
             Case{"events are a text", good, R"({"All":"none"})", noSettings, true},
             Case{"settings are a list", good, good, "[]", false},
             Case{"application's settings are a text", good, good,
                  R"({"KIVO.ZUI.NEXNotify.Setting.Application":"x"})", false},
             Case{"choices are an object of numbers", good, good,
                  R"({"KIVO.ZUI.NEXNotify.Setting.Application":{"notifcationSettings":{"a":1}}})", false},
             Case{"choices are a number", good, good,
                  R"({"KIVO.ZUI.NEXNotify.Setting.Application":{"notifcationSettings":1}})", true},
         }) {
        SCOPED_TRACE(name);
        LogLines().clear();
        WriteEvents(english, german);
        m_root.WriteUserSettings("bob", Parse(settings));
        EXPECT_EQ(Ask() != "nothing", isAnswered);
        ASSERT_EQ(LogLines().size(), isAnswered ? 0U : 1U);
        if (!isAnswered) {
            EXPECT_TRUE(LogLines()[0].text.starts_with("NEXNotifyAPI.h:80 Fatal Error: "))
                << LogLines()[0].text;
        }
    }
}

}  // namespace
}  // namespace KIVO::Test
