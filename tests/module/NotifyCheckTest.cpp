#include <gtest/gtest.h>

#include "module/NEXNotifyAPI.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

TEST(NotifyCheck, NamesTheFirstParameterThatIsWrong) {
    for (const auto& [parameters, name, reason] : std::vector<std::array<std::string, 3>>{
             {R"({"action": "load", "clean": "some", "offset": "not looked at", "lastRead": 3})", "", ""},
             {R"({"action": "apply"})", "clean", "condition"},
             {R"({"action": "apply", "clean": "all\u0000"})", "clean", "condition"},
             {R"({"action": "Apply", "clean": "all"})", "action", "condition"},
             {R"({"action": "none", "clean": true})", "clean", "type"},
             {R"({"action": "load", "start": -2147483649, "clean": 1})", "start", "type"},
             {R"({"action": "none", "limit": "5", "start": 1.5})", "limit", "type"},
             {R"({"action": ["load"], "all": 1, "limit": {}})", "all", "type"},
             {R"({"action": ["load"]})", "action", "type"},
         }) {
        SCOPED_TRACE(parameters);
        APIRequest request(Parse(parameters), "alice", "enu", true);
        APIResponse response;
        EXPECT_EQ(NEXNotify_1_notify_Check(&request, &response), name.empty());
        const std::string refusal = R"(error 120: {"name":")" + name + R"(","reason":")" + reason + R"("})";
        EXPECT_EQ(Text(response), name.empty() ? "nothing" : refusal);
        EXPECT_LE(response.GetAnswerCount(), 1);
    }
}

}  // namespace
}  // namespace KIVO::Test
