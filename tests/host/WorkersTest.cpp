#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

/// The ids that the process's status lists under the word: real, effective, saved and file system one, or the
/// groups.
std::vector<uid_t> Ids(pid_t process, const std::string& word) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string line;
    while (std::getline(status, line) && line.rfind(word, 0) != 0) {
    }
    std::istringstream numbers(line.substr(word.size()));
    return {std::istream_iterator<uid_t>(numbers), {}};
}

TEST_F(HostTest, ADeadWorkerIsReplaced) {
    Serve({"--workers", "2"});
    std::vector<pid_t> workers = m_host->Workers();
    ASSERT_EQ(workers.size(), 2U);
    const auto areTwoOthers = [&] {
        const std::vector<pid_t> current = m_host->Workers();
        return current.size() == 2 && current != std::exchange(workers, current);
    };
    kill(workers[0], SIGKILL);
    EXPECT_TRUE(Eventually([&] { return std::ranges::count(m_host->Workers(), workers[0]) == 0; }));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Send().status, 200);
    }
    EXPECT_TRUE(Eventually(areTwoOthers));

    // One that dies of a request costs that request and no other.
    EXPECT_EQ(Send({.path = "/webapi/Test/1/die"}).status, 0);
    EXPECT_EQ(Send().status, 200);
    EXPECT_TRUE(Eventually(areTwoOthers));

    // One that is told to end makes room for another.
    kill(workers[0], SIGTERM);
    EXPECT_TRUE(Eventually(areTwoOthers));
    EXPECT_EQ(Send().status, 200);
    EXPECT_NE(Log().find("was ended by signal 9 and is replaced"), std::string::npos) << Log();
    EXPECT_NE(Log().find("ended with status 0 and is replaced"), std::string::npos) << Log();
}

TEST_F(HostTest, WorkersThatDieAtOnceAreReplacedMoreAndMoreSlowly) {
    Serve();
    int deaths = 0;
    for (const auto start = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - start < std::chrono::seconds(1);) {
        for (const pid_t worker : m_host->Workers()) {
            deaths += kill(worker, SIGKILL) == 0;
            EXPECT_TRUE(Eventually([&] { return std::ranges::count(m_host->Workers(), worker) == 0; }));
        }
    }
    EXPECT_GE(deaths, 2);
    EXPECT_LE(deaths, 5);
    EXPECT_EQ(Send().status, 200) << "A client waits until there is a worker again.";
}

TEST_F(HostTest, SigtermLetsTheRequestsUnderWayFinish) {
    Serve();
    const RawConnection idle(m_port);
    const RawConnection halfSent(m_port);
    const std::string request = RawRequest("echo", R"({"text":"late"})");
    halfSent.Send(request.substr(0, request.size() / 2));
    EXPECT_EQ(Send().status, 200);

    auto waiting = std::async(std::launch::async, [this] {
        return Send(
            {.path = "/webapi/Test/1/wait", .body = R"({"folder":")" + m_root.Folder().string() + "\"}"});
    });
    EXPECT_TRUE(Eventually([&] { return m_root.Read("/begun").has_value(); }));
    kill(m_host->Pid(), SIGTERM);
    m_root.Write("/go on", "");
    EXPECT_EQ(waiting.get().Envelope()["data"], "waited");
    EXPECT_TRUE(halfSent.Send(request.substr(request.size() / 2)));
    EXPECT_NE(halfSent.ReadAll().find("\"late\""), std::string::npos);
    EXPECT_EQ(m_host->Wait(), 0);
    EXPECT_EQ(idle.ReadAll(), "");
}

TEST_F(HostTest, TheWorkersEndWithTheSupervisor) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Serve({"--workers", "2"});
    const auto workers = m_host->Workers();
    kill(m_host->Pid(), SIGKILL);
    EXPECT_EQ(m_host->Wait(), -SIGKILL);
    for (const pid_t worker : workers) {
        int status = -1;
        EXPECT_EQ(waitpid(worker, &status, 0), worker);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(HostTest, WorkersHaveTheAccountsIdsBetweenRequests) {
    if (!CanTakeOnIds()) {
        GTEST_SKIP() << "Only the superuser can take on another account's ids.";
    }
    const std::vector<uid_t> lowered = {0, 65534, 0, 65534};
    Serve({"--workers", "1", "--account", "nobody"});
    EXPECT_EQ(Ids(m_host->Workers().at(0), "Uid:"), lowered);
    EXPECT_EQ(Ids(m_host->Workers().at(0), "Gid:"), lowered);
    EXPECT_EQ(Ids(m_host->Workers().at(0), "Groups:"), (std::vector<uid_t>{65534}));
    EXPECT_EQ(Echo()["effectiveUid"], 65534);

    // A worker that was left with the superuser's rights answers no one any more.
    const pid_t worker = m_host->Workers().at(0);
    EXPECT_EQ(Send({.path = "/webapi/Test/1/stayRaised"}).status, 200);
    const Json::Value echo = Echo();
    EXPECT_EQ(echo["effectiveUid"], 65534);
    EXPECT_NE(echo["worker"], worker);

    // The module reads what only the superuser may, and the worker is as before.
    m_root.CreateDatabase();
    m_root.AddMessage({1026}, R"({"title":"Tag","time":5,"msg":["{}"]})", 5);
    Serve({"--workers", "1", "--account", "nobody", "--module", MODULE});
    const std::string notify = "/webapi/KIVO.Core.NEXNotify/1/notify";
    EXPECT_EQ(Send({.path = notify, .body = R"({"action":"load"})"}).Envelope()["data"]["total"], 1);
    EXPECT_EQ(Send({.path = notify, .body = R"({"action":"apply","clean":"all"})"}).Envelope()["success"],
              true);
    EXPECT_EQ(m_root.Query("SELECT * FROM nexnotify").size(), 0U);
    EXPECT_EQ(Ids(m_host->Workers().at(0), "Uid:"), lowered);
}

TEST_F(HostTest, ItSaysAtStartWhatItCannotFind) {
    Serve();
    EXPECT_NE(Log().find("no notification database at " + m_root.Path("/var/lib/kivo/nexnotify.db")),
              std::string::npos);
    EXPECT_EQ(Log().find("No one can sign in"), std::string::npos) << Log();

    const auto second = Start({"serve", "--port", std::to_string(m_port)});
    EXPECT_EQ(second->ReadAll(), "");
    EXPECT_EQ(second->Wait(), 1);
    EXPECT_NE(Log().find("Cannot listen on 127.0.0.1:" + std::to_string(m_port)), std::string::npos) << Log();

    m_root.CreateDatabase();
    std::filesystem::remove_all(m_root.Path("/etc"));
    std::filesystem::remove_all(m_root.Path("/var/cache"));
    Serve();
    EXPECT_EQ(Log().find("database"), std::string::npos) << Log();
    EXPECT_NE(Log().find("there are no users in " + m_root.Path("/etc/kivo/users.json")), std::string::npos);
    EXPECT_NE(Log().find("no English text catalogue at " + m_root.Path("/var/cache/texts/enu/mails")),
              std::string::npos);
    EXPECT_EQ(Send().status, 401);

    if (CanTakeOnIds()) {
        chmod(m_root.Folder().c_str(), 0700);
        Serve({"--account", "nobody"});
        EXPECT_NE(
            Log().find("The account nobody cannot enter " + m_root.Folder().string() + ": run chmod o+x"),
            std::string::npos)
            << Log();
    }
}

}  // namespace
}  // namespace KIVO::Test
