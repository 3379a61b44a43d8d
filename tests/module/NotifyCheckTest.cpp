#include <gtest/gtest.h>

#include "module/NEXNotifyAPI.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

TEST(NotifyCheck, NamesTheFirstParameterThatIsWrong) {
    const auto refusal = [](const std::string& name, const std::string& reason) {
        return R"(error 120: {"name":")" + name + R"(","reason":")" + reason + R"("})";
    };
    const std::string accepted = "nothing";
    struct Case {
        const char* parameters;
        std::string answer;
    };
    for (const auto& [parameters, answer] : {
             Case{R"({})", refusal("action", "required")},
             Case{R"({"action": "load"})", accepted},
             Case{R"({"action": "load", "clean": "some"})", accepted},
             Case{R"({"action": "load", "lastRead": 3, "start": -1, "all": true, "limit": 5})", accepted},
             Case{R"({"action": "load", "offset": "not looked at"})", accepted},
             Case{R"({"action": "loadHaveNtAppList", "clean": ""})", accepted},
             Case{R"({"action": "apply"})", refusal("clean", "condition")},
             Case{R"({"action": "apply", "clean": "ALL"})", refusal("clean", "condition")},
             Case{R"({"action": "apply", "clean": "all "})", refusal("clean", "condition")},
             Case{R"({"action": "apply", "clean": "all"})", accepted},
             Case{R"({"action": "Load"})", refusal("action", "condition")},
             Case{R"({"action": "Apply", "clean": "all"})", refusal("action", "condition")},
             Case{R"({"action": ""})", refusal("action", "condition")},
             Case{R"({"action": ["load"]})", refusal("action", "type")},
             Case{R"({"action": null})", refusal("action", "type")},
             Case{R"({"action": "none", "limit": "5"})", refusal("limit", "type")},
             Case{R"({"action": "apply", "clean": true})", refusal("clean", "type")},
             Case{R"({"action": "load", "start": 1.5, "clean": 1})", refusal("start", "type")},
             Case{R"({"action": "load", "limit": 2147483648})", refusal("limit", "type")},
             Case{R"({"lastRead": "now", "all": "yes"})", refusal("lastRead", "type")},
             Case{R"({"all": 1, "limit": {}})", refusal("all", "type")},
         }) {
        SCOPED_TRACE(parameters);
        APIRequest request(Parse(parameters), "alice", "enu", true);
        APIResponse response;
        EXPECT_EQ(NEXNotify_1_notify_Check(&request, &response), answer == accepted);
        EXPECT_EQ(Text(response), answer);
        EXPECT_LE(response.GetAnswerCount(), 1);
    }
}

}  // namespace
}  // namespace KIVO::Test
