#include <gtest/gtest.h>

#include <stdexcept>

#include "module/NEXNotifyAPI.h"
#include "notify/Notify.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

class NotifyRequest : public ModuleTest {
protected:
    /// The handler's own answer, without the parameter check.
    static std::string Handle(const std::string& parameters) {
        APIRequest request(Parse(parameters), "alice", "enu", true);
        APIResponse response;
        NEXNotify_1_notify(&request, &response);
        return Text(response);
    }
};

TEST_F(NotifyRequest, AnswersWhatItCannotDo) {
    const std::string notConverted = R"(error 117: {"key":"error_system","line":83,"sec":"common"})";
    const std::string unknownAction = R"(error 101: {"key":"error_system","line":106,"sec":"common"})";
    struct Case {
        const char* parameters;
        std::string answer;
    };
    for (const auto& [parameters, answer] : {
             Case{R"({})", unknownAction},
             Case{R"({"action": "LOAD"})", unknownAction},
             Case{R"({"action": "load "})", unknownAction},
             Case{R"({"action": ["load"]})", notConverted},
             Case{R"({"action": "load", "clean": {}})", notConverted},
             Case{R"({"action": "load", "offset": "3"})", notConverted},
             Case{R"({"action": "load", "limit": {}})", notConverted},
             Case{R"({"action": "load", "limit": 1e10})", notConverted},
             Case{R"({"action": "apply", "all": "true"})", notConverted},
         }) {
        SCOPED_TRACE(parameters);
        EXPECT_EQ(Handle(parameters), answer);
        EXPECT_EQ(LoggedTexts(), std::vector<std::string>{});
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbOpen"], 0);
    }
}

TEST_F(NotifyRequest, NeedsTheSuperuserForWhatTouchesTheDatabase) {
    for (const auto& [action, line] : {std::pair("load", "95"), std::pair("apply", "99")}) {
        SCOPED_TRACE(action);
        ProcessIdentity() = {.euid = 1024, .egid = 100, .accounts = {}};
        LogLines().clear();
        EXPECT_EQ(Handle(std::string(R"({"action": ")") + action + R"("})"), "error 117: null");
        EXPECT_EQ(LogLines(),
                  (std::vector<LogLine>{
                      {35, std::string("Notify.cpp:") + line + " ERROR: getpwnam(root) [Name not found]"},
                      {35, std::string("Notify.cpp:") + line + R"( ERROR: IF_RUN_AS2("root"))"}}));
        EXPECT_EQ(ThePlatform().calls["nexnotifyDbOpen"], 0);
    }
}

TEST_F(NotifyRequest, LetsNoExceptionOutAndNothingHeld) {
    m_root.WriteCatalogue("enu", "[Known]\nmessage=m\n");
    m_root.CreateDatabase();
    m_root.AddMessage({1026}, R"({"title": "Known", "time": 1})", 1);
    struct Case {
        const char* action;
        const char* throwing;
    };
    for (const auto& [action, throwing] : {
             Case{"load", "KIVOUserGetUGID"},
             Case{"load", "nexnotifyDbOpen"},
             Case{"load", "nexnotifyDbRunSql"},
             Case{"load", "KIVOSysNotifyIsAllow"},
             Case{"apply", "KIVOUserGetUGID"},
             Case{"apply", "nexnotifyDbRunSql"},
             Case{"apply", "KIVOLogSet1"},
         }) {
        SCOPED_TRACE(std::string(action) + ", " + throwing);
        ProcessIdentity() = {.euid = 65534, .egid = 65534};
        ThePlatform() = {.fails = [name = throwing](std::string_view operation) {
            return operation == name ? throw std::runtime_error("from below") : false;
        }};
        LogLines().clear();
        EXPECT_EQ(Handle(std::string(R"({"action": ")") + action + R"("})"), "nothing");
        EXPECT_EQ(LogLines(), (std::vector<LogLine>{{3, "NEXNotifyAPI.h:80 Fatal Error: from below"}}));
        EXPECT_EQ(ProcessIdentity().euid, 65534U);
        EXPECT_EQ(ProcessIdentity().egid, 65534U);
        auto& calls = ThePlatform().calls;
        const bool wasOpened =
            std::string(throwing) != "KIVOUserGetUGID" && std::string(throwing) != "nexnotifyDbOpen";
        EXPECT_EQ(calls["nexnotifyDbClose"], wasOpened);
        EXPECT_EQ(calls["nexnotifyDbClose:null"], !wasOpened);
        EXPECT_EQ(calls["sqlite3_free"], wasOpened);
    }
}

TEST_F(NotifyRequest, RowsBecomeJson) {
    const auto read = [](std::vector<const char*> columns, Json::Value& rows) {
        return NEXNotify::Notify::readDbToJson(&rows, static_cast<int>(columns.size()),
                                               const_cast<char**>(columns.data()), nullptr);
    };
    const std::string tooDeep(2000, '[');
    struct Case {
        std::vector<const char*> columns;
        int result;
        std::string rows;
    };
    for (const auto& [columns, result, expected] : {
             Case{{R"({"b": [1.5, "x"], "a": null})"}, 0, R"([{"a":null,"b":[1.5,"x"]}])"},
             Case{{nullptr}, 0, "[null]"},
             Case{{"/* old */ [1] // trailing"}, 0, "[[1]]"},
             Case{{"{} and more"}, 0, "[{}]"},
             Case{{""}, 1, "[]"},
             Case{{"{"}, 1, "[]"},
             Case{{"1", "nonsense", "2"}, 1, "[1]"},
             Case{{"1", nullptr}, 0, "[1,1]"},
             Case{{tooDeep.c_str()}, 1, "[]"},
         }) {
        SCOPED_TRACE(expected);
        Json::Value rows(Json::arrayValue);
        EXPECT_EQ(read(columns, rows), result);
        EXPECT_EQ(Text(rows), expected);
    }
}

}  // namespace
}  // namespace KIVO::Test
