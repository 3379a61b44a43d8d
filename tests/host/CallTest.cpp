#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

TEST_F(HostTest, CallAndListTellByTheirExitStatus) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        /// Part of what is printed; on standard error with status 2 or when nothing was called.
        std::string text;
    };
    const std::vector<Case> cases = {
        {{"call", "--user", "alice", "Test/1/echo", R"({"text":"Grüße"})"}, 0, R"("text" : "Grüße")"},
        {{"call", "--user", "alice", "Test/1/echo"}, 0, R"("language" : "ger")"},
        {{"call", "--user", "alice", "--language", "enu", "Test/1/echo"}, 0, R"("language" : "enu")"},
        {{"call", "--user", "bob", "Test/1/echo"}, 0, R"("administrator" : false)"},
        {{"call", "--user", "alice", "Test/1/fail"}, 1, R"("code" : 117)"},
        {{"call", "--user", "alice", "Test/1/throw"}, 1, R"("code" : 500)"},
        {{"call", "--user", "alice", "Test/1/nope"}, 1, R"("code" : 404)"},
        {{"call", "--user", "alice", "Test"}, 1, R"("code" : 404)"},
        {{"call", "--user", "alice", "Test/1/echo", "[]"}, 1, R"("code" : 400)"},
        {{"list"}, 0, "Checked:\n  Test/2/newer\n"},
        {{"--help"}, 0, "Usage:"},
        {{"--module", "/nowhere.so", "list"}, 1, "The module cannot be loaded: /nowhere.so"},
        {{"--module", "libkivocore.so.0", "list"}, 1, "The module cannot be loaded: /"},
        {{"--module", LIBKIVOCORE, "list"}, 1, "does not export GetAPITable"},
        {{}, 2, "A subcommand is required"},
        {{"call", "Test/1/echo"}, 2, "--user is required"},
        {{"call", "--user", "zoe", "Test/1/echo"}, 2, "The appliance has no user zoe"},
        {{"call", "--user", "alice", "--language", "fr", "Test/1/echo"},
         2,
         "The appliance has no language fr"},
        {{"call", "--user", "alice", "--language", "ita", "Test/1/echo"},
         2,
         "The appliance has no language ita"},
        {{"--root", "/nowhere", "serve"}, 2, "--root"},
        {{"--account", "no such account", "serve"}, 2, "There is no account no such account"},
        {{"serve", "--port", "65536"}, 2, "--port"},
        {{"serve", "--workers", "0"}, 2, "--workers"},
        {{"serve", "--address", "0.0.0.0"}, 2, "0.0.0.0 is not a loopback address"},
        {{"serve", "--address", "localhost"}, 2, "localhost is not a loopback address"},
    };
    for (const auto& [arguments, status, text] : cases) {
        const auto host = Start(arguments);
        const std::string output = host->ReadAll();
        SCOPED_TRACE(testing::PrintToString(arguments) + "\n" + output + Log());
        EXPECT_EQ(host->Wait(), status);
        const bool isAnswer = status != 2 && text[0] != 'T' && text[0] != 'd';
        EXPECT_NE((isAnswer ? output : Log()).find(text), std::string::npos);
        EXPECT_EQ((output + Log()).find(kToken), std::string::npos);
    }
}

}  // namespace
}  // namespace KIVO::Test
