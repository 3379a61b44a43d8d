#include "module/NEXNotifyAPI.h"

#include <gtest/gtest.h>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

using NEXNotify::NEXNotifyAPIBase;

class Handler : public NEXNotifyAPIBase {
public:
    Handler(APIRequest* request, APIResponse* response, int failing)
        : NEXNotifyAPIBase(request, response), m_failing(failing) {}
    int ParseParams() override { return Step(1); }
    int Execute() override { return Step(2); }
    int FormOutput() override { return Step(3); }

private:
    int Step(int step) {
        m_result.append(step);
        m_error = FormError("s", "k", step - 2);
        return step == m_failing ? 100 + step : 0;
    }

    int m_failing;
};

TEST(NEXNotifyAPIBase, RunsItsStepsUpToTheFirstThatFails) {
    APIRequest request(Json::objectValue, "alice", "enu", true);
    int failing = 0;
    for (const char* answer :
         {"success: [1,2,3]", R"(error 101: {"key":"k","sec":"s"})",
          R"(error 102: {"key":"k","line":0,"sec":"s"})", R"(error 103: {"key":"k","line":1,"sec":"s"})"}) {
        APIResponse response;
        Handler(&request, &response, failing++).Run();
        EXPECT_EQ(Text(response), answer);
        EXPECT_EQ(response.GetAnswerCount(), 1);
    }
    APIResponse response;
    NEXNotifyAPIBase(&request, &response).Run();
    EXPECT_EQ(Text(response), "success: null");
}

}  // namespace
}  // namespace KIVO::Test
