#include "notify/Notify.h"

#include <gtest/gtest.h>

#include <new>
#include <tuple>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kLoad[] = R"({"action": "load"})";
constexpr char kApply[] = R"({"action": "apply", "clean": "all"})";

/// Requests of alice, who has two notifications.
class NotifyRequest : public ModuleTest {
protected:
    NotifyRequest() {
        m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n");
        m_root.CreateDatabase();
        m_root.AddMessage({1026}, R"({"title":"Known","time":1})", 1);
        m_root.AddMessage({1026}, R"({"title":"nexnotify:system_event","time":9})", 2);
    }
};

TEST_F(NotifyRequest, ApplyDeletesTheUsersLinksAndNotesIt) {
    m_root.Write("/var/log/kivo/events.jsonl", "");
    const long long shared = m_root.AddMessage({1026, 1027}, R"({"title": "Shared", "time": 1})", 1);
    EXPECT_EQ(Notify(kApply), "success: null");
    EXPECT_EQ(ThePlatform().calls["nexnotifyDbRunSql:DELETE FROM 'nexnotify' WHERE uid = '1026';"], 1);
    EXPECT_EQ(m_root.Query("SELECT uid, message_id FROM nexnotify"),
              (std::vector<std::vector<Column>>{{"1027", std::to_string(shared)}}));
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 3U);
    Json::Value event = Parse(m_root.Read("/var/log/kivo/events.jsonl").value());
    event.removeMember("time");
    EXPECT_EQ(Text(event), R"({"args":["alice","","",""],"category":2,"event":"0x14600001","level":1})");

    EXPECT_EQ(Notify(kApply, "carol"), "success: null") << "who has no notifications";
    EXPECT_EQ(ThePlatform().calls["KIVOLogSet1"], 2);
    EXPECT_EQ(ThePlatform().held, 0);
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(NotifyRequest, AnswersWhatFailsBelow) {
    const std::string failed = "error 117: null";
    const std::string notConverted = R"(error 117: {"key":"error_system","line":83,"sec":"common"})";
    const std::string empty = R"(success: {"items":[],"newestMsgTime":0,"total":0})";
    const std::string onlyTheOneWithColon =
        R"(success: {"items":[{"time":9,"title":"nexnotify:system_event"}],)"
        R"("newestMsgTime":9.0,"priorityMap":null,"total":1})";
    const std::string opening = "Open nexnotify.db error";
    struct {
        const char* request;
        const char* failing;
        std::string answer;
        std::vector<std::string> log = {};
        std::string calledOnce = "nexnotifyDbClose";
    } const cases[] = {
        {kLoad, "GetParam", notConverted, {}, "GetParam"},
        {R"({"action":"load","offset":{}})", "", notConverted, {}, "GetLoginUserName"},
        {kLoad, "KIVOUserGetUGID", failed, {}, "nexnotifyDbClose:null"},
        {kLoad, "nexnotifyDbOpen", failed, {"Load.cpp:# " + opening}, "nexnotifyDbClose:null"},
        {kLoad, "nexnotifyDbRunSql", empty, {"Load.cpp:# run sql error"}},
        {kLoad, "KLIBCSzListAlloc", onlyTheOneWithColon},
        {kLoad, "KLIBCFileEnumSection", onlyTheOneWithColon},
        {kApply, "KIVOUserGetUGID", failed, {}, "nexnotifyDbClose:null"},
        {kApply, "nexnotifyDbOpen", failed, {"NotificationStore.cpp:# " + opening}, "nexnotifyDbClose:null"},
        {kApply, "nexnotifyDbRunSql", failed, {"NotificationStore.cpp:# run sql error"}},
    };
    for (const auto& [request, failing, answer, log, calledOnce] : cases) {
        SCOPED_TRACE(std::string(request) + failing);
        ThePlatform() = {.fails = [name = failing](std::string_view operation) { return operation == name; }};
        LogLines().clear();
        EXPECT_EQ(Notify(request), answer);
        EXPECT_EQ(LoggedTexts(), log);
        EXPECT_EQ(ThePlatform().calls[calledOnce], 1);
        EXPECT_EQ(ThePlatform().calls["KIVOLogSet1"], 0);
    }
    EXPECT_EQ(m_root.Query("SELECT * FROM nexnotify").size(), 2U);
}

TEST_F(NotifyRequest, NeedsTheSuperuserForWhatTouchesTheDatabase) {
    for (const auto& [request, line] : {std::pair(kLoad, "Notify.cpp:95"), {kApply, "Notify.cpp:99"}}) {
        SCOPED_TRACE(request);
        ProcessIdentity() = {.euid = 1024, .egid = 100, .accounts = {}};
        LogLines().clear();
        EXPECT_EQ(Notify(request), "error 117: null");
        EXPECT_EQ(LogLines(),
                  (std::vector<LogLine>{{35, std::string(line) + " ERROR: getpwnam(root) [Name not found]"},
                                        {35, std::string(line) + R"( ERROR: IF_RUN_AS2("root"))"}}));
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbOpen"], 0);
    }
}

TEST_F(NotifyRequest, LeavesNothingHeldWhenSomethingIsThrown) {
    ThePlatform().fails = [](std::string_view operation) {
        return operation == "KIVOSysNotifyIsAllow" ? throw 0 : false;
    };
    EXPECT_THROW(Notify(kLoad), int) << "which the server may know";
    for (const auto& [request, throwing] : {
             std::pair(kLoad, "nexnotifyDbOpen"),
             {kLoad, "nexnotifyDbRunSql"},
             {kLoad, "KIVOSysNotifyIsAllow"},
             {kApply, "nexnotifyDbRunSql"},
             {kApply, "KIVOLogSet1"},
         }) {
        SCOPED_TRACE(std::string(request) + throwing);
        ProcessIdentity() = {.euid = 65534, .egid = 65534};
        ThePlatform() = {.fails = [name = throwing](std::string_view operation) {
            return operation == name ? throw std::bad_alloc() : false;
        }};
        LogLines().clear();
        EXPECT_EQ(Notify(request), "nothing");
        EXPECT_EQ(LogLines(), (std::vector<LogLine>{{3, "NEXNotifyAPI.h:80 Fatal Error: std::bad_alloc"}}));
        EXPECT_EQ(ThePlatform().calls[throwing], 1) << "which ends the work";
        EXPECT_EQ(ProcessIdentity().euid, 65534U);
        EXPECT_EQ(ProcessIdentity().egid, 65534U);
        EXPECT_EQ(ThePlatform().held, 0);
    }
}

TEST_F(NotifyRequest, EveryColumnBecomesJsonUpToOneThatIsNone) {
    const std::tuple<std::vector<const char*>, int, const char*> cases[] = {
        {{nullptr, R"({"b": [1.5, "x"], "a": null})"}, 0, R"([null,{"a":null,"b":[1.5,"x"]}])"},
        {{"/* old */ 1 and more", nullptr}, 0, "[1,1]"},
        {{"1", "nonsense", "2"}, 1, "[1]"},
    };
    for (const auto& [columns, result, expected] : cases) {
        Json::Value rows(Json::arrayValue);
        auto** texts = const_cast<char**>(columns.data());
        EXPECT_EQ(NEXNotify::Notify::readDbToJson(&rows, static_cast<int>(columns.size()), texts, nullptr),
                  result);
        EXPECT_EQ(Text(rows), expected);
    }
}

}  // namespace
}  // namespace KIVO::Test
