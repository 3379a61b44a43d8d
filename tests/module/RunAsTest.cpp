#include "module/RunAs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <stdexcept>

#include "tests/support/Identity.h"
#include "tests/support/Log.h"

namespace KIVO::Test {
namespace {

using Texts = std::vector<std::string>;

const LogLine kScopeLine{35, R"(RunAsTest.cpp:95 ERROR: IF_RUN_AS2("root"))"};

TEST(RunAs, RaisesAndRestoresInOrder) {
    const std::string raised = "setresuid(-1, 0, -1) setresgid(-1, 0, -1) setresuid(-1, 0, -1) ";
    const std::string restored = "setresgid(-1, 100, -1) setresuid(-1, 1024, -1) ";
    const std::string userRaised = "setresuid(-1, 0, -1) setresuid(-1, 0, -1) ";
    const Identity ordinary{.euid = 1024, .egid = 100};
    const auto refusing = [&](size_t call) {
        return Identity{.euid = 1024, .egid = 100, .refusedCall = call};
    };
    const LogLine notRestored{34, "RunAsTest.cpp:95 ERROR: ~IF_RUN_AS2(1024, 100)"};
    struct Case {
        const char* name;
        Identity before;
        bool runsBody;
        std::string calls;
        std::vector<LogLine> log;
        uid_t euidAfter;
    };
    for (const auto& [name, before, runsBody, calls, log, euidAfter] : {
             Case{"already root", {}, true, "", {}, 0},
             Case{"ordinary user and group", ordinary, true, raised + restored, {}, 1024},
             Case{"in root's group", {.euid = 1024}, true, userRaised + "setresuid(-1, 1024, -1) ", {}, 1024},
             Case{"root in a group",
                  {.egid = 100},
                  true,
                  "setresgid(-1, 0, -1) setresgid(-1, 100, -1) ",
                  {},
                  0},
             Case{"no user id of 0",
                  {.euid = 1024, .mayRaise = false},
                  false,
                  "setresuid(-1, 0, -1) ",
                  {kScopeLine},
                  1024},
             Case{"group refused",
                  refusing(2),
                  false,
                  "setresuid(-1, 0, -1) setresgid(-1, 0, -1) setresuid(-1, 1024, -1) ",
                  {kScopeLine},
                  1024},
             Case{"last call refused", refusing(3), false, raised + restored, {kScopeLine}, 1024},
             Case{"way back refused", refusing(5), true, raised + restored, {notRestored}, 0},
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
        EXPECT_EQ(ProcessIdentity().euid, euidAfter);
        EXPECT_EQ(ProcessIdentity().egid, before.egid);
    }
}

TEST(RunAs, LookupFailuresSayWhy) {
    struct LookupCase {
        Identity before;
        std::string reason;
        size_t bufferSize;
    };
    for (const auto& [before, reason, bufferSize] : {
             LookupCase{{.euid = 1024, .accounts = {}}, "getpwnam(root) [Name not found]", 1024},
             LookupCase{{.euid = 1024, .accounts = {}, .lookupError = EIO},
                        "getpwnam(root) [Input/output error]",
                        1024},
             LookupCase{{.euid = 1024, .accounts = {}, .lookupBufferSize = -1},
                        "getpwnam(root) [Name not found]",
                        16384},
             LookupCase{{.euid = 1024, .lookupBufferSize = LONG_MAX},
                        "malloc(" + std::to_string(LONG_MAX) + ") [Cannot allocate memory]",
                        0},
         }) {
        ProcessIdentity() = before;
        LogLines().clear();
        IF_RUN_AS2("root", 95) { ADD_FAILURE() << "the body ran"; }
        EXPECT_EQ(LogLines(), (std::vector<LogLine>{{35, "RunAsTest.cpp:95 ERROR: " + reason}, kScopeLine}));
        EXPECT_EQ(ProcessIdentity().givenBufferSize, bufferSize);
        EXPECT_EQ(ProcessIdentity().calls, Texts{});
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
