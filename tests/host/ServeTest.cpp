#include <sys/resource.h>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

using namespace std::chrono_literals;

TEST_F(HostTest, BytesOfAnyKindHaveTheirStatusAndHurtNobody) {
    Serve();
    const auto workers = m_host->Workers();
    const std::string token = kToken;
    const std::string end = "\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    const std::string credentials = "GET /session HTTP/1.1\r\nAuthorization: ";
    const std::string post =
        "POST /webapi/Test/1/echo HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer " + token +
        "\r\nContent-Type: application/json\r\n";
    const std::string chunked = post + "Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string fits = "{}" + std::string(64 * 1024 - 2, ' ');
    std::vector<std::pair<std::string, std::string>> cases = {
        {credentials + "Bearer " + token + end, "200"},
        {"GET /%2e%2e/bin/webapi-host HTTP/1.1" + end, "401"},
        {"GET / HTTP/1.1" + end, "200"},
        {"HEAD / HTTP/1.1" + end, "200"},

        {std::string(1 << 20, 'A'), "414"},
        {post + "X: " + std::string(20000, 'x') + "\r\n\r\n", "431"},
        {post + "Content-Length: 18446744073709551615\r\n\r\n{}", "413"},
        {chunked + "FFFFFFFFFFFFFFFFF\r\n{}", "413"},

        {RawRequest(fits), "200"},
        {RawRequest(fits + " "), "413"},
        {chunked + "10000\r\n" + fits + "\r\n0\r\n\r\n", "200"},
        {chunked + "10001\r\n" + fits + " \r\n0\r\n\r\n", "413"},
        {chunked + "300000\r\n" + std::string(3 << 20, ' ') + "\r\n0\r\n\r\n", "413"},
    };
    // Of two readings of a request none is taken, nor anything behind it.
    for (const char* headers :
         {"Content-Length: 2\r\nContent-Length: 2", "Content-Length: 2\r\nTransfer-Encoding: chunked",
          "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked", "Transfer-Encoding: gzip",
          "Transfer-Encoding:\r\n chunked", "Content-Length:\r\n 2", "Content-Lengt: 2\r\n h", "X: a\r\n b",
          "Content-Length : 2", "Content-Length\t: 2", "Content-Length: +2", "X: a\rContent-Length: 2",
          "Host: localhost\r\nContent-Length: 2", "Authorization: Bearer x\r\nContent-Length: 2"}) {
        cases.emplace_back(post + headers + "\r\n\r\n{}" + credentials + "Bearer " + token + end, "400");
    }
    for (const auto& [bytes, status] : cases) {
        const RawConnection connection(m_port);
        connection.Send(bytes);
        const std::string replies = connection.ReadAll();
        EXPECT_EQ(replies.find("HTTP/1.1 " + status), 0U) << bytes.substr(0, 300) << replies;
        EXPECT_EQ(replies.find("HTTP/1.1 200", 1), replies.npos) << bytes.substr(0, 300) << replies;
        EXPECT_EQ(Send().status, 200);
    }
    EXPECT_EQ(Send({.address = "127.0.0.2"}).status, -1) << "One address alone is listened on.";
    EXPECT_EQ(m_host->Workers(), workers);
    EXPECT_FALSE(HasLogged(token)) << Log();
}

TEST_F(HostTest, ARequestThatMemoryIsTooShortForCostsNoOther) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "With AddressSanitizer memory that runs short ends the process.";
#endif
    Serve();
    std::string numbers = "1";
    while (numbers.size() < 60'000) {
        numbers += ",1";
    }
    const std::string request = RawRequest(R"({"text":[)" + numbers + "]}");
    const RawConnection connection(m_port);
    connection.Send(request.substr(0, request.size() / 2));
    EXPECT_EQ(Send().status, 200);

    const auto workers = m_host->Workers();
    rlimit earlier = {};
    prlimit(workers.at(0), RLIMIT_AS, nullptr, &earlier);
    const rlimit none = {0, earlier.rlim_max};
    prlimit(workers.at(0), RLIMIT_AS, &none, nullptr);
    connection.Send(request.substr(request.size() / 2));
    const std::string reply = connection.ReadAll();
    EXPECT_TRUE(reply.starts_with("HTTP/1.1 500") && reply.find(R"("code":500)") != reply.npos)
        << reply << Log();
    prlimit(workers.at(0), RLIMIT_AS, &earlier, nullptr);
    EXPECT_EQ(Send().status, 200);

    EXPECT_LT(earlier.rlim_cur, rlim_t{3} << 30) << "One may want more than there is.";

    // Nor does one that leaves much behind.
    const auto residentPages = [&] {
        std::size_t mapped = 0, resident = 0;
        std::ifstream("/proc/" + std::to_string(workers.at(0)) + "/statm") >> mapped >> resident;
        return resident;
    };
    const std::size_t before = residentPages();
    for (const char* body : {R"({"mebibytes":60})", R"({"mebibytes":28})", "{}"}) {
        EXPECT_EQ(Send({.path = "/webapi/Test/1/enlarge", .body = body}).status, 200) << body;
    }
    EXPECT_LT(residentPages(), before + (18UL << 20) / static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(m_host->Workers(), workers);
}

TEST_F(HostTest, IdleConnectionsKeepNobodyOutHoweverFewDescriptorsThereAre) {
    m_prepare = [] {
        const rlimit few = {64, 64};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    Serve();
    std::vector<RawConnection> idle;
    idle.reserve(200);
    for (int i = 0; i < 200; ++i) {
        idle.emplace_back(m_port);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Send().status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST_F(HostTest, AUserWithManyRequestsKeepsNobodyElseWaiting) {
    m_root.WriteUsers({{.name = "alice", .token = kToken}, {.name = "bob", .token = "bobs-token"}});
    Serve();
    std::vector<RawConnection> greedy;
    for (int i = 0; i < 30; ++i) {
        greedy.emplace_back(m_port);
        greedy.back().Send(RawRequest("{}", "Test/1/nap"));
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Send({.token = "bobs-token"}).status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 750ms);
    for (const RawConnection& connection : greedy) {
        EXPECT_NE(connection.ReadAll().find("rested"), std::string::npos);
    }
    EXPECT_GT(std::chrono::steady_clock::now() - start, 750ms);
}

// That bytes which keep coming, or idle connections by the thousand, hold nobody up is the soak's to show.
TEST_F(HostTest, ASlowSenderKeepsNobodyWaitingAndASilentOneIsCutOff) {
    Serve();
    const std::string request = RawRequest(R"({"text":"slow"})");
    const RawConnection idle(m_port), stopped(m_port);
    stopped.Send(request.substr(0, request.size() - 1));
    const auto start = std::chrono::steady_clock::now();
    const RawConnection slow(m_port);
    for (const char letter : request) {
        slow.Send({letter});
        EXPECT_EQ(Send().status, 200);
    }
    EXPECT_NE(slow.ReadAll().find("\"text\":\"slow\""), std::string::npos);
    EXPECT_EQ(stopped.ReadAll(), "");
    EXPECT_EQ(idle.ReadAll(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 15s);
}

}  // namespace
}  // namespace KIVO::Test
