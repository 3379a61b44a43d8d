#include <gtest/gtest.h>

#include "module/NEXNotifyAPI.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

/// A handler whose steps return the codes that a test gives and note that they ran.
class Steps : public NEXNotify::NEXNotifyAPIBase {
public:
    Steps(APIResponse* response, int parse, int execute, int form)
        : NEXNotifyAPIBase(nullptr, response), m_codes{parse, execute, form} {}

    int ParseParams() override { return Step('P', m_codes[0]); }
    int Execute() override { return Step('E', m_codes[1]); }
    int FormOutput() override { return Step('F', m_codes[2]); }

    std::string m_ran;

private:
    int Step(char name, int code) {
        m_ran += name;
        m_result = m_ran;
        if (code == 117) {
            m_error = FormError("common", "error_system", 83);
        }
        return code;
    }

    int m_codes[3];
};

TEST(APIBase, StopsAtTheFirstFailingStepAndAnswersOnce) {
    struct Case {
        int codes[3];
        std::string ran;
        std::string answer;
    };
    const std::string error = R"({"key":"error_system","line":83,"sec":"common"})";
    for (const auto& [codes, ran, answer] : {
             Case{{0, 0, 0}, "PEF", R"(success: "PEF")"},
             Case{{117, 0, 0}, "P", "error 117: " + error},
             Case{{0, 117, 0}, "PE", "error 117: " + error},
             Case{{0, -1, 0}, "PE", "error -1: null"},
             Case{{0, 0, 5}, "PEF", "error 5: null"},
         }) {
        APIResponse response;
        Steps handler(&response, codes[0], codes[1], codes[2]);
        handler.Run();
        EXPECT_EQ(handler.m_ran, ran);
        EXPECT_EQ(Text(response), answer);
        EXPECT_EQ(response.GetAnswerCount(), 1);
    }
}

TEST(APIBase, AnswersNullByItselfAndFormsErrors) {
    APIResponse response;
    NEXNotify::NEXNotifyAPIBase handler(nullptr, &response);
    handler.Run();
    EXPECT_EQ(Text(response), "success: null");
    EXPECT_EQ(Text(handler.FormError("common", "error_system", 0)),
              R"({"key":"error_system","line":0,"sec":"common"})");
    EXPECT_EQ(Text(handler.FormError("common", "error_system", -1)),
              R"({"key":"error_system","sec":"common"})");
}

}  // namespace
}  // namespace KIVO::Test
