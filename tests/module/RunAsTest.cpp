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

struct Case {
    const char* name;
    Identity before;
    bool runsBody;
    Texts calls;
    std::vector<LogLine> log;
    /// The ids afterwards; those of before unless the way back is refused.
    uid_t euid;
    gid_t egid;
};

class RunAs : public testing::TestWithParam<Case> {};

const LogLine kScopeLine{35, R"(RunAsTest.cpp:95 ERROR: IF_RUN_AS2("root"))"};

TEST_P(RunAs, RaisesAndRestores) {
    const Case& expected = GetParam();
    ProcessIdentity() = expected.before;
    LogLines().clear();
    bool ranBody = false;
    IF_RUN_AS2("root", 95) {
        ranBody = true;
        EXPECT_EQ(ProcessIdentity().euid, expected.before.accounts.at("root").first);
        EXPECT_EQ(ProcessIdentity().egid, expected.before.accounts.at("root").second);
    }
    else {
        EXPECT_FALSE(expected.runsBody);
    }
    EXPECT_EQ(ranBody, expected.runsBody);
    EXPECT_EQ(ProcessIdentity().calls, expected.calls);
    EXPECT_EQ(LogLines(), expected.log);
    EXPECT_EQ(ProcessIdentity().euid, expected.euid);
    EXPECT_EQ(ProcessIdentity().egid, expected.egid);
}

const Texts kRaiseUserAndGroup = {"setresuid(-1, 0, -1)", "setresgid(-1, 0, -1)", "setresuid(-1, 0, -1)"};

Texts operator+(Texts left, const Texts& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

INSTANTIATE_TEST_SUITE_P(
    , RunAs,
    testing::Values(Case{"AlreadyRoot", {}, true, {}, {}, 0, 0},
                    Case{"OrdinaryUserAndGroup",
                         {.euid = 1024, .egid = 100},
                         true,
                         kRaiseUserAndGroup + Texts{"setresgid(-1, 100, -1)", "setresuid(-1, 1024, -1)"},
                         {},
                         1024,
                         100},
                    Case{"OrdinaryUserInGroupOfRoot",
                         {.euid = 1024, .egid = 0},
                         true,
                         {"setresuid(-1, 0, -1)", "setresuid(-1, 0, -1)", "setresuid(-1, 1024, -1)"},
                         {},
                         1024,
                         0},
                    Case{"RootInOrdinaryGroup",
                         {.euid = 0, .egid = 100},
                         true,
                         {"setresgid(-1, 0, -1)", "setresgid(-1, 100, -1)"},
                         {},
                         0,
                         100},
                    Case{"NoUserIdOfZero",
                         {.euid = 1024, .egid = 100, .mayRaise = false},
                         false,
                         {"setresuid(-1, 0, -1)"},
                         {kScopeLine},
                         1024,
                         100},
                    Case{"GroupRefusedHalfWay",
                         {.euid = 1024, .egid = 100, .refusedCall = 2},
                         false,
                         {"setresuid(-1, 0, -1)", "setresgid(-1, 0, -1)", "setresuid(-1, 1024, -1)"},
                         {kScopeLine},
                         1024,
                         100},
                    Case{"LastCallRefused",
                         {.euid = 1024, .egid = 100, .refusedCall = 3},
                         false,
                         kRaiseUserAndGroup + Texts{"setresgid(-1, 100, -1)", "setresuid(-1, 1024, -1)"},
                         {kScopeLine},
                         1024,
                         100},
                    Case{"WayBackRefused",
                         {.euid = 1024, .egid = 100, .refusedCall = 5},
                         true,
                         kRaiseUserAndGroup + Texts{"setresgid(-1, 100, -1)", "setresuid(-1, 1024, -1)"},
                         {{34, "RunAsTest.cpp:95 ERROR: ~IF_RUN_AS2(1024, 100)"}},
                         0,
                         100}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(RunAsScope, LookupFailuresSayWhy) {
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

TEST(RunAsScope, RestoresWhateverWayTheBodyIsLeft) {
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
