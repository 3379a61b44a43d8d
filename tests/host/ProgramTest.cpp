#include <fnmatch.h>
#include <sys/prctl.h>
#include <sys/un.h>

#include <filesystem>
#include <future>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

TEST_F(HostTest, CommandsTellByTheirExitStatus) {
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
        {{"call", "--user", "alice", "Test"}, 1, R"("code" : 404)"},
        {{"call", "--user", "alice", "Test/1/echo", "[]"}, 1, R"("code" : 400)"},
        {{"sign-in", "alice"}, 0, "http://127.0.0.1:8095/#code=616c696365."},
        {{"sign-in", "--url", "https://a.example", "alice"}, 0, "https://a.example/#code="},
        {{"sign-in", "--url", "https://a.example/b//", "alice"}, 0, "https://a.example/b/#code="},
        {{"sign-in", "--url", "a.example/b", "alice"}, 2, "a.example/b does not begin with http:// or"},
        {{"sign-in", "carol"}, 2, "no user carol with a token of its own"},
        {{"list"}, 0, "Checked:\n  Test/2/checked\n"},
        {{"--help"}, 0, "Usage:"},
        {{"--version"}, 0, "webapi-host " KIVO_VERSION},
        {{"--module", "/nowhere.so", "list"}, 1, "The module cannot be loaded: /nowhere.so"},
        {{"--module", "libkivocore.so.0", "list"}, 1, "The module cannot be loaded: /"},
        {{"--module", LIBKIVOCORE, "list"}, 1, "does not export GetAPITable"},
        {{}, 2, "A subcommand is required"},
        {{"call", "Test/1/echo"}, 2, "--user is required"},
        {{"call", "--user", "zoe", "Test/1/echo"}, 2, "The appliance has no user zoe"},
        {{"call", "--user", "bob", "--language", "ita", "Test/1/echo"}, 2, "has no language ita"},
        {{"--root", "/nowhere", "serve"}, 2, "--root"},
        {{"--account", "no such account", "serve"}, 2, "There is no account no such account"},
        {{"users"}, 2, "A subcommand is required"},
        {{"users", "add"}, 2, "name is required"},
        {{"users", "add", "alice"}, 2, "There is a user alice already."},
        {{"users", "add", "@all"}, 2, "\"@all\" is no name for a user: "},
        {{"users", "add", "a/b"}, 2, "is no name for a user: "},
        {{"users", "add", std::string(65, 'x')}, 2, "is no name for a user: "},
        {{"users", "add", "zoe", "--group", "a b"}, 2, "\"a b\" is no name for a group: "},
        {{"users", "add", "zoe", "--language", "fre"}, 2, "language \"fre\"; it has enu, ger."},
        {{"users", "add", "zoe", "--app", "App"}, 2, "has a text of the application \"App\"."},
        {{"users", "add", "zoe", "--hidden-tag", "Tap"}, 2, "No text catalogue has the tag \"Tap\"."},
        {{"users", "add", "zoe", "--uid", "1027"}, 2, "The uid 1027 is that of the user bob."},
        {{"users", "add", "zoe", "--uid", "0"}, 2, "--uid: Value 0 not in range"},
        {{"users", "remove", "zoe"}, 2, "The appliance has no user zoe."},
        {{"users", "token", "zoe"}, 2, "The appliance has no user zoe."},
        {{"--root", "/dev/null", "users", "list"}, 2, "--root: There is no folder /dev/null."},
        {{"--root", "/dev/null/x", "init"}, 1, "The folder /dev/null/x cannot be made: Not a directory."},
        {{"init", "--catalogues", "/nowhere"}, 2, "no text catalogues, LANGUAGE/mails, in /nowhere."},
        {{"init", "--account", "no such account"}, 2, "There is no account no such account"},
        {{"serve", "--port", "65536"}, 2, "--port"},
        {{"serve", "--workers", "0"}, 2, "--workers"},
        {{"serve", "--address", "0.0.0.0"}, 2, "0.0.0.0 is not a loopback address"},
        {{"serve", "--address", "localhost"}, 2, "localhost is not a loopback address"},
    };
    for (const auto& [arguments, status, text] : cases) {
        const auto host = Start(arguments);
        const std::string output = host->Read();
        SCOPED_TRACE(testing::PrintToString(arguments) + "\n" + output + Log());
        EXPECT_EQ(host->Wait(), status);
        const bool isAnswer = status != 2 && text[0] != 'T' && text[0] != 'd';
        EXPECT_NE((isAnswer ? output : Log()).find(text), std::string::npos);
        EXPECT_EQ((output + Log()).find(kToken), std::string::npos);
    }
}

TEST_F(HostTest, ItSaysAtStartWhatItCannotFind) {
    Serve();
    EXPECT_TRUE(HasLogged("no notification database at " + m_root.Path("/var/lib/kivo/nexnotify.db")))
        << Log();
    EXPECT_FALSE(HasLogged("No one can sign in")) << Log();

    const std::string port = std::to_string(m_port);
    EXPECT_EQ(Start({"serve", "--port", port})->Wait(), 1);
    EXPECT_TRUE(HasLogged("Cannot listen on 127.0.0.1:" + port)) << Log();

    m_root.CreateDatabase();
    std::filesystem::remove_all(m_root.Path("/etc"));
    std::filesystem::remove_all(m_root.Path("/var/cache"));
    Serve();
    EXPECT_FALSE(HasLogged("database")) << Log();
    EXPECT_TRUE(HasLogged("there are no users in " + m_root.Path("/etc/kivo/users.json"))) << Log();
    EXPECT_TRUE(HasLogged("no English text catalogue at " + m_root.Path("/var/cache/texts/enu/mails")))
        << Log();
    EXPECT_EQ(Send().status, 401);

    if (!CanTakeOnIds()) {
        GTEST_SKIP() << "Only the superuser can take on another account's ids.";
    }
    chmod(m_root.Folder().c_str(), 0700);
    Serve({"--account", "nobody"});
    EXPECT_TRUE(HasLogged("The account nobody cannot enter " + m_root.Folder().string() + ": run chmod o+x"));
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

    EXPECT_EQ(Send({.path = "/webapi/Test/1/die"}).status, -1);
    EXPECT_EQ(Send().status, 200) << "One that dies of a request costs that request and no other.";
    EXPECT_TRUE(Eventually(areTwoOthers));

    kill(workers[0], SIGTERM);
    EXPECT_TRUE(Eventually(areTwoOthers));
    EXPECT_EQ(Send().status, 200);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        Send({.path = "/webapi/Test/1/die"});
    }
    EXPECT_EQ(Send().status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << "No pause grows by it.";

    EXPECT_TRUE(HasLogged("was ended by signal 9 and is replaced.")) << Log();
    EXPECT_TRUE(HasLogged("was ended by signal 9 and is replaced; it was in the call Test/1/die")) << Log();
    EXPECT_TRUE(HasLogged("ended with status 0 and is replaced")) << Log();
}

TEST_F(HostTest, ACallThatHangsIsEndedAndNamed) {
    // What is logged meanwhile goes into a pipe that is full.
    ASSERT_EQ(mkfifo(m_root.Path("/log").c_str(), 0600), 0);
    const Appliance::FileDescriptor log(open(m_root.Path("/log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    fcntl(log.Get(), F_SETPIPE_SZ, 4096);
    Serve({"--workers", "1", "--call-timeout", "1"});
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(Send({.path = "/webapi/Test/1/throw"}).status, 500);
    }
    while (!ReadUntil({}, log).empty()) {
    }
    EXPECT_EQ(Wait(m_root.Path("/fifo")).status, -1);
    EXPECT_EQ(Send().status, 200);
    EXPECT_NE(
        ReadUntil({}, log).find("reached the time limit and is replaced; it was in the call Test/1/wait"),
        std::string::npos);
}

TEST_F(HostTest, WhateverTheStarterLeftBehindItRunsAndEnds) {
    m_prepare = [] {
        signal(SIGCHLD, SIG_IGN);
        close(STDIN_FILENO);
        close(STDERR_FILENO);
        sigset_t alarms;
        sigemptyset(&alarms);
        sigaddset(&alarms, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarms, nullptr);
        if (fork() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(STDOUT_FILENO);
            pause();
        }
    };
    Serve({"--workers", "1", "--call-timeout", "1"});
    const Json::Value first = Echo()["worker"];
    EXPECT_EQ(Send({.path = "/webapi/Test/1/die"}).status, -1);
    EXPECT_EQ(Send({.path = "/webapi/Test/1/throw"}).status, 500) << "A line to log ends nobody.";
    const Json::Value second = Echo()["worker"];
    EXPECT_NE(second, first);
    EXPECT_EQ(Wait(m_root.Path("/fifo")).status, -1);
    EXPECT_NE(Echo()["worker"], second);

    const auto start = std::chrono::steady_clock::now();
    kill(m_host->Pid(), SIGHUP);
    EXPECT_EQ(m_host->Wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
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
    const RawConnection idle(m_port), halfSent(m_port);
    const std::string request = RawRequest(R"({"text":"late"})");
    halfSent.Send(request.substr(0, request.size() / 2));
    EXPECT_EQ(Send().status, 200);

    const std::string fifo = m_root.Path("/fifo");
    mkfifo(fifo.c_str(), 0600);
    auto waiting = std::async(std::launch::async, [&] { return Wait(fifo); });
    std::ofstream release(fifo);  // is open when the handler has begun
    kill(m_host->Pid(), SIGTERM);
    release.close();
    EXPECT_EQ(waiting.get().Envelope()["data"], "waited");
    EXPECT_TRUE(halfSent.Send(request.substr(request.size() / 2)));
    EXPECT_NE(halfSent.ReadAll().find("\"late\""), std::string::npos);
    EXPECT_EQ(m_host->Wait(), 0);
    EXPECT_EQ(idle.ReadAll(), "");
}

TEST_F(HostTest, AServiceManagerPassesTheSocketAndHearsOfItsUse) {
    const auto bound = [](int type, in_addr_t ip) {
        Appliance::FileDescriptor one(socket(AF_INET, type | SOCK_CLOEXEC, 0));
        const sockaddr_in address = {AF_INET, 0, {htonl(ip)}, {}};
        EXPECT_EQ(bind(one.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        listen(one.Get(), 16);
        return one;
    };
    const auto pass = [this](const Appliance::FileDescriptor& passed, const char* count) {
        m_prepare = [&passed, count] {
            dup2(passed.Get(), 3);
            fcntl(3, F_SETFD, 0);
            setenv("LISTEN_FDS", count, 1);
            setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        };
    };
    const auto listener = bound(SOCK_STREAM, INADDR_LOOPBACK);
    const auto anywhere = bound(SOCK_STREAM, INADDR_ANY), datagrams = bound(SOCK_DGRAM, INADDR_LOOPBACK);
    for (const auto& [wrong, count] :
         {std::pair{&listener, "2"}, {&listener, "0"}, {&anywhere, "1"}, {&datagrams, "1"}}) {
        pass(*wrong, count);
        EXPECT_EQ(Start({"serve"})->Wait(), 1);
        EXPECT_TRUE(HasLogged("is to pass one socket that listens on a loopback address")) << Log();
    }

    const Appliance::FileDescriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::string path = m_root.Path("/notify");
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(bind(manager.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const auto hear = [&manager] {
        char text[64] = {};
        EXPECT_TRUE(Eventually([&] { return recv(manager.Get(), text, sizeof text - 1, MSG_DONTWAIT) > 0; }));
        return std::string(text);
    };
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    pass(listener, "1");
    Serve();
    EXPECT_EQ(hear(), "READY=1");
    EXPECT_EQ(Send().status, 200);
    kill(m_host->Pid(), SIGTERM);
    EXPECT_EQ(m_host->Wait(), 0);
    EXPECT_EQ(hear(), "STOPPING=1");
    // Who comes meanwhile is answered by the next one.
    const RawConnection early(m_port);
    early.Send(RawRequest("{}"));
    Serve();
    EXPECT_TRUE(early.ReadAll().starts_with("HTTP/1.1 200"));
    EXPECT_EQ(hear(), "READY=1");
    unsetenv("NOTIFY_SOCKET");
}

TEST_F(HostTest, TheRequestLogHasALineARequestAndNothingOfItsContent) {
    Serve({"--workers", "1", "--log-requests"});
    const auto expectLine = [this](const std::string& rest) {
        const std::string line = m_host->Read('\n');
        const std::string expected = "20*-*-*T*:*:*.*Z " + rest + " [0-9]*.[0-9]";
        EXPECT_EQ(fnmatch(expected.c_str(), line.c_str(), 0), 0) << line << '\n' << expected;
    };
    const std::string token = kToken;
    const std::vector<std::pair<HttpRequest, std::string>> cases = {
        {{.path = "/webapi/Test/1/echo?" + token}, "alice POST /webapi/Test/1/echo 200"},
        {{.path = "/webapi/Test/1/fail"}, "alice POST /webapi/Test/1/fail 200"},
        {{.path = "/webapi/Test/1/" + token}, "alice POST - 404"},
        {{.path = "/" + token, .token = ""}, "- POST - 401"},
        {{.path = "/", .method = "GET", .token = ""}, "- GET / 200"},
        {{.path = "/style.css", .method = "HEAD"}, "- HEAD /style.css 200"},
        {{.path = "/session", .method = "GET"}, "alice GET /session 200"},
        {{.path = "/session", .body = R"({"code":"x"})", .token = ""}, "- POST /session 401"},
        {{.method = "PUT"}, "alice - /webapi/Test/1/echo 405"},
        {{.body = std::string(1 << 17, ' ')}, "alice POST /webapi/Test/1/echo 413"},
    };
    for (const auto& [request, line] : cases) {
        Send(request);
        expectLine(line);
    }
    const RawConnection connection(m_port);
    connection.Send("GET /" + token + " HTTP/1.1\r\nHost: other\r\n\r\n");
    connection.ReadAll();
    expectLine("- GET - 421");
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
    const auto expectLowered = [this] {
        std::ifstream file("/proc/" + std::to_string(m_host->Workers().at(0)) + "/status");
        const std::string status{std::istreambuf_iterator<char>(file), {}};
        EXPECT_NE(status.find("Uid:\t0\t65534\t0\t65534\nGid:\t0\t65534\t0\t65534\n"), status.npos) << status;
        EXPECT_NE(status.find("Groups:\t65534 \n"), status.npos) << status;
        // To change ids is the one right of the superuser that is left to whoever takes a worker over.
        EXPECT_NE(status.find("CapPrm:\t00000000000000c0\n"), status.npos) << status;
        EXPECT_NE(status.find("CapBnd:\t00000000000000c0\n"), status.npos) << status;
        EXPECT_NE(status.find("NoNewPrivs:\t1\n"), status.npos) << status;
    };
    Serve({"--workers", "1", "--account", "nobody"});
    expectLowered();

    // A worker that was left with the superuser's rights answers no one any more.
    const Json::Value before = Echo();
    EXPECT_EQ(before["effectiveUid"], 65534);
    EXPECT_EQ(Send({.path = "/webapi/Test/1/stayRaised"}).status, 200);
    const Json::Value after = Echo();
    EXPECT_EQ(after["effectiveUid"], 65534);
    EXPECT_NE(after["worker"], before["worker"]);

    // The module reads what only the superuser may, and the worker is as before.
    m_root.CreateDatabase();
    m_root.AddMessage({1026}, R"({"title":"Tag","time":5,"msg":["{}"]})", 5);
    Serve({"--workers", "1", "--account", "nobody", "--module", MODULE});
    const std::string notify = "/webapi/KIVO.Core.NEXNotify/1/notify";
    EXPECT_EQ(Send({.path = notify, .body = R"({"action":"load"})"}).Envelope()["data"]["total"], 1);
    EXPECT_EQ(Send({.path = notify, .body = R"({"action":"apply","clean":"all"})"}).status, 200);
    EXPECT_EQ(m_root.Query("SELECT * FROM nexnotify").size(), 0U);
    expectLowered();
}

}  // namespace
}  // namespace KIVO::Test
