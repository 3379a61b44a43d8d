// Every failure in turn: the N-th allocation, the N-th operation of the platform, the N-th change of ids, for
// N = 1, 2, 3 … until none is left to fail. Whatever fails, a request holds nothing afterwards, has its ids
// back, has answered at most once, and has logged nothing but the lines that log readers know.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>

#include "sysnotify/database.h"
#include "tests/support/Allocations.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kEventLog[] = "/var/log/kivo/events.jsonl";

struct RequestCase {
    std::string name;
    std::string api;
    std::string parameters;
    std::string user = "bob";
};

class EveryFailure : public ModuleTest, public testing::WithParamInterface<RequestCase> {
protected:
    EveryFailure() {
        m_root.Write("/usr/local/share/notification/config", R"({"Package":{"keyArray":["Known"]}})");
        m_root.WriteUserSettings(
            "bob", Parse(R"({"KIVO.ZUI.NEXNotify.Setting.Application":{"notifcationSettings":[]}})"));
        m_root.CreateDatabase();
    }

    /// Makes the request, ever anew, with the N-th failure that `arm` puts in place. `arm` gets N and the
    /// request, and tells whether something failed.
    template <typename Arm>
    void FailInTurn(const std::string& what, Arm arm, bool isConnectionKept = true) {
        const RequestCase& request = GetParam();
        int injected = 0;
        for (bool hasFailed = true; hasFailed && !HasFailure(); ++injected) {
            SCOPED_TRACE(what + " " + std::to_string(injected + 1));
            SetUpAppliance();
            KeepConnection(isConnectionKept);
            std::string answer = "nothing";
            hasFailed = arm(injected + 1, [&] {
                try {
                    const APIResponse response =
                        Ask("KIVO.Core.NEXNotify" + request.api, request.api.empty() ? "notify" : "get",
                            request.parameters, request.user, "ger");
                    const AllocationLimit noLimit(-1);
                    answer = Text(response);
                } catch (const std::exception&) {
                    // From a free handler or the framework; the server answers then.
                }
            });
            ThePlatform().fails = nullptr;  // What it refers to has gone.
            CheckAftermath(answer);
        }
        std::cout << request.name << ": " << injected - 1 << " failures injected: " << what << "\n";
    }

private:
    void SetUpAppliance() {
        // Written anew, so that the platform has to read them again.
        std::string path;
        for (const char* language : {"enu", "ger"}) {
            m_root.WriteCatalogue(language,
                                  "[Known]\nmessage=m\nmail=body\ngroup=G\nappid=KIVO.App.Backup\n");
            path = m_root.Write("/var/cache/texts/" + std::string(language) + "/notification_category",
                                R"({"All":[{"name":"Known","group":"G","appid":"KIVO.App.Backup"}]})");
        }
        if (GetParam().name == "GenerateCategories") {
            std::filesystem::remove(path);
        }
        if (CountLinks(1027) != 2) {
            m_root.Query("DELETE FROM nexnotify");
            m_root.AddMessage({1026, 1027, 1028}, R"({"title":"Known","time":1,"msg":["no short text"]})", 1);
            m_root.AddMessage({1027}, R"({"title":"Known","time":2} what only the JSON library reads)", 2);
        }
        m_root.Write(kEventLog, "");
        ThePlatform() = {};
        LogLines().clear();
        // As an ordinary account, so that the ids have to be raised.
        ProcessIdentity() = {.euid = 65534, .egid = 65534};
    }

    /// Lets the platform keep a connection to the database, which the request gets unless it has to close it.
    void KeepConnection(bool isForTheRequest) const {
        sqlite3* database = nullptr;
        EXPECT_EQ(nexnotifyDbOpen(&database), 0);
        nexnotifyDbClose(database);
        ThePlatform() = {};
        if (!isForTheRequest) {
            std::filesystem::permissions(m_root.Path("/var/lib/kivo/nexnotify.db"),
                                         std::filesystem::perms(0600));
        }
    }

    void CheckAftermath(const std::string& answer) {
        const std::string known =
            R"((Load|NotificationStore)\.cpp:[0-9]+ (run sql error|Open nexnotify\.db error)|)"
            R"(NEXNotifyAPI\.h:80 Fatal Error: .*|(Notify\.cpp:(95|99)|CategoryFile\.cpp:427) )"
            R"(ERROR: (IF_RUN_AS2\("root"\)|~IF_RUN_AS2\(65534, 65534\)|malloc\([0-9]+\) \[Cannot allocate memory\]|)"
            R"(getpwnam\(root\) \[Name not found\])|)"
            R"(CategoryFile\.cpp:432 .* not found\.|CategorySettings\.cpp:485 pasre json file failed\. .*|)"
            R"(MailContent\.cpp:[0-9]+ (KLIBCSzListAlloc\(BUFSIZ\)|Get NString) failed\. \[0x[0-9A-F]{4} .*:[0-9]+\])";
        bool isRestoreRefused = false;
        for (const LogLine& line : LogLines()) {
            EXPECT_TRUE(Matches(line.text, known)) << line.text;
            isRestoreRefused |= line.text.find("~IF_RUN_AS2") != std::string::npos;
        }
        EXPECT_EQ(ProcessIdentity().euid != 65534 || ProcessIdentity().egid != 65534, isRestoreRefused);
        EXPECT_EQ(ThePlatform().held, 0);
        EXPECT_EQ(m_root.Query("PRAGMA integrity_check")[0][0], "ok");
        EXPECT_EQ(CountLinks(1028), 1) << "another user's";
        if (GetParam().name == "Apply" && answer == "success: null") {
            EXPECT_EQ(CountLinks(1027), 0);
            const std::string events = *m_root.Read(kEventLog);
            EXPECT_EQ(std::ranges::count(events, '\n'), 1 - ThePlatform().calls["KIVOLogSet1:failed"])
                << events;
        } else if (GetParam().name != "Apply" || answer.starts_with("error")) {
            EXPECT_EQ(CountLinks(1027), 2);
        }
    }

    int CountLinks(int uid) const {
        return std::stoi(
            *m_root.Query("SELECT count(*) FROM nexnotify WHERE uid = " + std::to_string(uid))[0][0]);
    }
};

TEST_P(EveryFailure, LeavesNothingBehind) {
    for (const bool once : {true, false}) {
        failsOnce = once;
        FailInTurn(once ? "one allocation" : "all allocations from one on", [](int n, const auto& ask) {
            const AllocationLimit limit(n - 1);
            ask();
            return allocationsLeft <= 0;
        });
    }
    FailInTurn("one operation of the platform", [](int n, const auto& ask) {
        int call = 0;
        ThePlatform().fails = [&](std::string_view operation) {
            const bool canFail = operation.find("Free") == std::string_view::npos &&
                                 !operation.starts_with("system:") &&
                                 !operation.starts_with("nexnotifyDbClose");
            return canFail && ++call == n;
        };
        ask();
        return call >= n;
    });
    for (const bool isConnectionKept : {true, false}) {
        FailInTurn(
            isConnectionKept ? "one system call of SQLite's" : "one, of it closing and opening the database",
            [](int n, const auto& ask) {
                int call = 0;
                ThePlatform().fails = [&](std::string_view operation) {
                    return operation.starts_with("system:") && ++call == n;
                };
                ask();
                return call >= n;
            },
            isConnectionKept);
    }
    FailInTurn("one change of ids", [](int n, const auto& ask) {
        ProcessIdentity().refusedCall = static_cast<size_t>(n);
        ask();
        return ProcessIdentity().calls.size() >= static_cast<size_t>(n);
    });
}

INSTANTIATE_TEST_SUITE_P(, EveryFailure,
                         testing::Values(RequestCase{"Load", "", R"({"action":"load"})"},
                                         RequestCase{"LoadAsAdmin", "", R"({"action":"load"})", "alice"},
                                         RequestCase{"Apply", "", R"({"action":"apply","clean":"all"})"},
                                         RequestCase{"Categories", "", R"({"action":"loadHaveNtAppList"})"},
                                         RequestCase{"GenerateCategories", "",
                                                     R"({"action":"loadHaveNtAppList"})"},
                                         RequestCase{"Strings", ".Strings", R"({"pkgName":"Package"})"},
                                         RequestCase{"MailContent", ".MailContent", R"({"title":"Known"})"}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace KIVO::Test
