#include "module/RunAs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <stdexcept>
#include <tuple>

#include "tests/support/Log.h"
#include "tests/support/Platform.h"

namespace KIVO::Test {
namespace {

const LogLine kScopeLine{35, R"(RunAsTest.cpp:95 ERROR: IF_RUN_AS2("root"))"};

TEST(RunAs, RaisesAndRestoresInOrder) {
    const std::string user = "setresuid(-1, 0, -1) ";
    const std::string group = "setresgid(-1, 0, -1) ";
    const std::string userBack = "setresuid(-1, 1024, -1) ";
    const std::string groupBack = "setresgid(-1, 100, -1) ";
    const std::string thereAndBack = user + group + user + groupBack + userBack;
    const auto refusing = [](size_t call) {
        return Identity{.euid = 1024, .egid = 100, .refusedCall = call};
    };
    const LogLine notRestored{34, "RunAsTest.cpp:95 ERROR: ~IF_RUN_AS2(1024, 100)"};
    struct Case {
        const char* name;
        Identity before;
        bool runsBody;
        std::string calls;
        std::vector<LogLine> log = {};
    };
    for (const auto& [name, before, runsBody, calls, log] : {
             Case{"already root", {}, true, ""},
             Case{"ordinary user and group", refusing(0), true, thereAndBack},
             Case{"in root's group", {.euid = 1024}, true, user + user + userBack},
             Case{"root in a group", {.egid = 100}, true, group + groupBack},
             Case{"no user id of 0", {.euid = 1024, .mayRaise = false}, false, user, {kScopeLine}},
             Case{"group refused", refusing(2), false, user + group + userBack, {kScopeLine}},
             Case{"last call refused", refusing(3), false, thereAndBack, {kScopeLine}},
             Case{"way back refused", refusing(5), true, thereAndBack, {notRestored}},
         }) {
        SCOPED_TRACE(name);
        ProcessIdentity() = before;
        LogLines().clear();
        bool ranBody = false;
        IF_RUN_AS2("root", 95) {
            ranBody = true;
            EXPECT_EQ(ProcessIdentity().euid + ProcessIdentity().egid, 0U);
        }
        else {
            EXPECT_FALSE(runsBody);
        }
        EXPECT_EQ(ranBody, runsBody);
        std::string made;
        for (const std::string& call : ProcessIdentity().calls) {
            made += call + " ";
        }
        EXPECT_EQ(made, calls);
        EXPECT_EQ(LogLines(), log);
        EXPECT_EQ(ProcessIdentity().euid, before.refusedCall == 5 ? 0 : before.euid);
        EXPECT_EQ(ProcessIdentity().egid, before.egid);
    }
}

TEST(RunAs, LookupFailuresSayWhy) {
    const std::tuple<Identity, size_t, std::string> cases[] = {
        {{.accounts = {}, .lookupError = EIO}, 1024, "getpwnam(root) [Input/output error]"},
        {{.accounts = {}, .lookupBufferSize = -1}, 16384, "getpwnam(root) [Name not found]"},
        {{.lookupBufferSize = LONG_MAX}, 0, "malloc(9223372036854775807) [Cannot allocate memory]"},
    };
    for (const auto& [before, bufferSize, reason] : cases) {
        ProcessIdentity() = before;
        ProcessIdentity().euid = 1024;
        LogLines().clear();
        IF_RUN_AS2("root", 95) { ADD_FAILURE() << "the body ran"; }
        EXPECT_EQ(LogLines(), (std::vector<LogLine>{{35, "RunAsTest.cpp:95 ERROR: " + reason}, kScopeLine}));
        EXPECT_EQ(ProcessIdentity().givenBufferSize, bufferSize);
        EXPECT_EQ(ProcessIdentity().calls.size(), 0U);
    }
}

TEST(RunAs, RestoresWhateverWayTheBodyIsLeft) {
    ProcessIdentity() = {.euid = 1024, .egid = 100};
    EXPECT_THROW(
        IF_RUN_AS2("root", 95) { throw std::runtime_error("from the body"); }, std::runtime_error);
    EXPECT_EQ(ProcessIdentity().euid, 1024U);
    EXPECT_EQ(ProcessIdentity().egid, 100U);
    const auto returnFromBody = [] {
        IF_RUN_AS2("root", 95) { return ProcessIdentity().euid; }
        return ~0U;
    };
    EXPECT_EQ(returnFromBody(), 0U);
    EXPECT_EQ(ProcessIdentity().euid, 1024U);
}

}  // namespace
}  // namespace KIVO::Test
