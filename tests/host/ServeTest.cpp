#include <sys/resource.h>

#include <ctime>
#include <map>

#include "host/Caller.h"
#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

using namespace std::chrono_literals;

TEST_F(HostTest, EachRequestGetsItsStatusAndOneSentence) {
    struct Case {
        HttpRequest request;
        int status;
        /// The envelope's code, and how its data begins.
        int code;
        std::string data;
    };
    const std::string checked = "/webapi/Test/1/checked";
    const std::string fits = "{}" + std::string(64 * 1024 - 2, ' ');
    const std::string tooLarge = fits + " ";
    const std::vector<Case> cases = {
        {{}, 200, 0, ""},
        {{.contentType = "Application/JSON ; charset=utf-8"}, 200, 0, ""},
        {{.body = fits}, 200, 0, ""},
        {{.body = fits, .isChunked = true}, 200, 0, ""},
        {{.path = "/webapi/Test/2/checked", .body = R"({"refuse":"error"})"}, 200, 0, ""},

        {{.path = "/webapi/Test/1/fail"}, 200, 117, "it failed"},
        {{.path = checked, .body = R"({"refuse":"error"})"}, 200, 120, "not this one"},
        {{.path = "/webapi/Test/1/throw"}, 500, 500, "The method failed"},
        {{.path = "/webapi/Test/1/throwOther"}, 500, 500, "The method failed"},
        {{.path = "/webapi/Test/1/setNothing"}, 500, 500, "The method failed"},
        {{.path = checked, .body = R"({"refuse":"silently"})"}, 500, 500, "The method failed"},
        {{.path = checked, .body = R"({"refuse":"success"})"}, 500, 500, "The method failed"},
        {{.path = checked, .body = R"({"refuse":"throw"})"}, 500, 500, "The method failed"},

        {{.body = ""}, 400, 400, "The request has no body"},
        {{.body = "[]"}, 400, 400, "The body is not a JSON object"},
        {{.body = "{} {}"}, 400, 400, "Line 1"},
        {{.body = "{\"a\":\"\xff\"}"}, 400, 400, "The text is not UTF-8"},

        {{.path = "/session", .token = ""}, 400, 400, "The parameter code"},
        {{.path = "/session", .body = R"({"code":1})"}, 400, 400, "The parameter code"},
        {{.path = "/session", .contentType = "text/plain"}, 415, 415, "The body's content type"},

        {{.path = "/nothing"}, 404, 404, "There is nothing"},
        {{.path = "/webapi/"}, 404, 404, "A method is addressed"},
        {{.path = "/webapi/Test/echo"}, 404, 404, "A method is addressed"},
        {{.path = "/webapi/test/1/echo"}, 404, 404, "There is no API"},
        {{.path = "/webapi/Test/1x/echo"}, 404, 404, "The version is not"},
        {{.path = "/webapi/Test/18446744073709551617/echo"}, 404, 404, "The version is not"},
        {{.path = "/webapi/Test/3/echo"}, 404, 404, "The API has no such version"},
        {{.path = "/webapi/Test/2/echo"}, 404, 404, "The API has no such method"},

        {{.method = "PUT"}, 405, 405, "The path does not take"},
        {{.path = "/session", .method = "PUT"}, 405, 405, "The path does not take"},
        {{.path = "/", .token = ""}, 405, 405, "The path does not take"},
        {{.contentType = "text/plain"}, 415, 415, "The body's content type"},
        {{.contentType = ""}, 415, 415, "The body's content type"},
        {{.body = tooLarge}, 413, 413, "The body is larger"},
        {{.body = tooLarge, .isChunked = true}, 413, 413, "The body is larger"},
        {{.body = std::string(3 << 20, ' '), .isChunked = true}, 413, 413, "The body is larger"},
        {{.body = tooLarge, .token = ""}, 401, 401, "The request carries no valid token"},
    };
    Serve();
    const auto workers = m_host->Workers();
    for (const auto& [request, status, code, data] : cases) {
        const HttpReply reply = Send(request);
        const Json::Value envelope = reply.Envelope();
        SCOPED_TRACE(request.method + " " + request.path + " " + request.contentType + " " +
                     request.body.substr(0, 80) + " -> " + reply.body.substr(0, 200));
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(envelope["success"].asBool(), code == 0);
        EXPECT_EQ(envelope["error"]["code"].asInt(), code);
        EXPECT_EQ(envelope["error"]["data"].asString().rfind(data, 0), 0U);
        EXPECT_EQ(reply.get_header_value("Content-Type"), "application/json; charset=utf-8");
        EXPECT_EQ(reply.get_header_value("Cache-Control"), "no-store");
        EXPECT_EQ(reply.get_header_value("X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(reply.get_header_value("Cross-Origin-Resource-Policy"), "same-origin");
        EXPECT_EQ(reply.get_header_value("WWW-Authenticate"), status == 401 ? "Bearer" : "");
        const char* const allowed = request.path.starts_with("/webapi") ? "POST"
                                    : request.path == "/session"        ? "GET, HEAD, POST"
                                                                        : "GET, HEAD";
        EXPECT_EQ(reply.get_header_value("Allow"), status == 405 ? allowed : "");
    }
    EXPECT_EQ(m_host->Workers(), workers);
}

TEST_F(HostTest, OnlyAUsersOwnTokenSignsIn) {
    Serve();
    const std::string token = kToken;
    const HttpReply refused = Send({.token = ""});
    EXPECT_EQ(refused.status, 401);
    for (const std::string wrong :
         {"x", kToken + 1, "alices-secret-toke", "alices-secret-tokenalices-secret-token",
          "\"alices-secret-token\"", "shared-token", "bob"}) {
        for (const std::string path : {"/webapi/Test/1/echo", "/webapi/No/1/echo", "/session", "/nothing"}) {
            const std::string method = path == "/session" ? "GET" : "POST";
            const HttpReply reply = Send({.path = path, .method = method, .token = wrong});
            EXPECT_EQ(reply.status, 401) << path << ' ' << wrong;
            EXPECT_EQ(reply.body, refused.body) << "A stranger learns nothing else.";
        }
    }

    // Taken away, a token is worth nothing from the next request on.
    EXPECT_EQ(Echo()["user"], "alice");
    m_root.WriteUsers({{.name = "alice", .token = "another-token"}});
    EXPECT_EQ(Send().status, 401);
    EXPECT_EQ(Send({.token = "another-token"}).status, 200);
    for (const auto& [size, status] : {std::pair{256, 200}, {257, 401}}) {
        const std::string longest(static_cast<std::size_t>(size), 'x');
        m_root.WriteUsers({{.name = "alice", .token = longest}});
        EXPECT_EQ(Send({.token = longest}).status, status) << size;
    }
    EXPECT_FALSE(HasLogged("token")) << Log();
}

TEST_F(HostTest, ASignInCodeIsExchangedForTheTokenOfItsUserWhileItIsFresh) {
    Serve();
    const auto exchange = [this](const std::string& code) {
        const std::string body = R"({"code":")" + code + "\"}";
        const HttpReply reply = Send({.path = "/session", .body = body, .token = ""});
        EXPECT_EQ(reply.status, reply.Envelope()["success"].asBool() ? 200 : 401) << reply.body;
        return reply.body;
    };
    const std::time_t now = std::time(nullptr);
    const std::string code = Host::MakeSignInCode("alice", now + 60).value();
    EXPECT_EQ(exchange(code), R"({"data":{"token":"alices-secret-token"},"success":true})");
    EXPECT_NE(exchange(Host::MakeSignInCode("alice", now - 1).value()).find("has expired"), code.npos);
    const std::size_t dot = code.find('.');
    const std::string later = std::to_string(now + 61);
    for (const std::string& wrong :
         {std::string(), std::string("x"), code.substr(0, code.size() - 1), code + "0",
          code.substr(0, dot + 1) + later + code.substr(code.rfind('.')), "626f62" + code.substr(dot),
          "6" + code, code.substr(0, dot)}) {
        EXPECT_NE(exchange(wrong).find("is not valid. For another, run: webapi-host sign-in"), code.npos)
            << wrong;
    }
    for (const char* user : {"bob", "carol", "nobody"}) {
        EXPECT_EQ(Host::MakeSignInCode(user, now + 60), std::nullopt) << user;
    }
    m_root.WriteUsers({{.name = "alice", .token = "another-token"}});
    EXPECT_NE(exchange(code).find("is not valid"), code.npos) << "A new token ends it.";
}

TEST_F(HostTest, BytesOfAnyKindHaveTheirStatusAndHurtNobody) {
    Serve({"--workers", "1", "--host-name", "nas.example"});
    const auto workers = m_host->Workers();
    const std::string token = kToken;
    const std::string close = "\r\nConnection: close\r\n\r\n";
    const std::string end = "\r\nHost: localhost" + close;
    const std::string credentials = "GET /session HTTP/1.1\r\nAuthorization: ";
    const std::string post =
        "POST /webapi/Test/1/echo HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer " + token +
        "\r\nContent-Type: application/json\r\n";
    std::vector<std::pair<std::string, std::string>> cases = {
        {credentials + "Bearer " + token + end, "200"},
        {credentials + "bEARER " + token + end, "200"},
        {credentials + "Basic " + token + end, "401"},
        {credentials + token + end, "401"},
        {credentials + "Bearer " + end, "401"},
        {credentials + "Bearer" + end, "401"},

        {"GET /../bin/webapi-host HTTP/1.1" + end, "401"},
        {"GET /%2e%2e/bin/webapi-host HTTP/1.1" + end, "401"},
        {"GET //etc/passwd HTTP/1.1" + end, "401"},

        {std::string(1 << 20, 'A'), "414"},
        {post + "X: " + std::string(20000, 'x') + "\r\n\r\n", "431"},
        {post + "Content-Length: 18446744073709551615\r\n\r\n{}", "413"},
        {post + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFF\r\n{}", "413"},

        {"GET / HTTP/1.1\r\nHost: LOCALHOST:1" + close, "200"},
        {"GET / HTTP/1.1\r\nHost: [::1]:80" + close, "200"},
        {"GET / HTTP/1.1\r\nHost: 127.0.0.9" + close, "200"},
        {"GET / HTTP/1.1\r\nHost: nas.example:443" + close, "200"},
        {"GET / HTTP/1.1\r\nHost: example" + close, "421"},
        {"GET / HTTP/1.1\r\nHost: 127.0.0.1.example:80" + close, "421"},
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
    EXPECT_EQ(m_host->Workers(), workers);
    EXPECT_FALSE(HasLogged(token)) << Log();
}

TEST_F(HostTest, TheHandlerLearnsWhoAsksAndInWhichLanguage) {
    Serve();
    const Json::Value echo = Send({.body = R"({"text":"Grüße \u0000 \ud83d\ude00"})"}).Envelope()["data"];
    EXPECT_EQ(echo["user"], "alice");
    EXPECT_EQ(echo["administrator"], true);
    EXPECT_EQ(echo["text"], Json::Value(std::string("Grüße \0 \U0001F600", 14)));
    const std::map<std::string, std::string> languages = {{"", "ger"},    {"enu", "enu"}, {"fre", "fre"},
                                                          {"ENU", "ger"}, {"ita", "ger"}, {"../enu", "ger"}};
    for (const auto& [header, language] : languages) {
        EXPECT_EQ(Send({.language = header}).Envelope()["data"]["language"], language) << header;
        // French has a folder, but no catalogue.
        EXPECT_EQ(Send({.path = "/session", .body = "", .method = "GET", .language = header}).body,
                  R"({"data":{"administrator":true,"language":")" + language +
                      R"(","languages":["enu","ger"],"user":"alice"},"success":true})");
    }
}

TEST_F(HostTest, ThePageIsServedWithoutAToken) {
    Serve();
    const HttpReply page = Send({.path = "/", .body = "", .method = "GET", .token = ""});
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(page.get_header_value("Content-Security-Policy"),
              "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
              "manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
              "require-trusted-types-for 'script'; trusted-types 'none'");
    EXPECT_EQ(page.get_header_value("Referrer-Policy"), "no-referrer");
    EXPECT_EQ(page.get_header_value("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(page.get_header_value("Cross-Origin-Opener-Policy"), "same-origin");
    EXPECT_EQ(page.get_header_value("Cross-Origin-Resource-Policy"), "same-origin");
    EXPECT_NE(page.body.find("<html"), std::string::npos);
    const HttpReply head = Send({.path = "/", .body = "", .method = "HEAD", .token = ""});
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.get_header_value("Content-Length"), std::to_string(page.body.size()));
    EXPECT_EQ(Send({.address = "127.0.0.2"}).status, -1) << "One address alone is listened on.";
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

    // Nor does one that wants more than a worker may have, or that leaves much behind.
    const auto residentPages = [&] {
        std::size_t mapped = 0, resident = 0;
        std::ifstream("/proc/" + std::to_string(workers.at(0)) + "/statm") >> mapped >> resident;
        return resident;
    };
    const std::size_t before = residentPages();
    for (const auto& [mebibytes, status] : {std::pair{"4000", 500}, {"60", 200}, {"28", 200}}) {
        const std::string body = std::string(R"({"mebibytes":)") + mebibytes + "}";
        EXPECT_EQ(Send({.path = "/webapi/Test/1/enlarge", .body = body}).status, status) << mebibytes;
    }
    EXPECT_EQ(Send().status, 200);
    EXPECT_LT((residentPages() - before) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), 34UL << 20);
    EXPECT_EQ(m_host->Workers(), workers);
}

TEST_F(HostTest, IdleConnectionsKeepNobodyOutHoweverFewDescriptorsThereAre) {
    m_prepare = [] {
        const rlimit few = {64, 64};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    Serve();
    std::vector<RawConnection> idle;
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
