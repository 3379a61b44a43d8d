// What a request is answered with: no socket is needed for that, nor a process.

#include "host/Router.h"

#include <ctime>
#include <map>

#include "host/Caller.h"
#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

using Headers = std::map<std::string, std::string>;

const Headers kSafeHeaders = {{"X-Content-Type-Options", "nosniff"},
                              {"Cross-Origin-Opener-Policy", "same-origin"},
                              {"Cross-Origin-Resource-Policy", "same-origin"}};

class RouterTest : public HostTest {
protected:
    Host::HttpAnswer Ask(const HttpRequest& request = {}) const {
        const std::string credentials = request.scheme + request.token;
        const Host::HttpRequest read = {.method = request.method,
                                        .path = request.path,
                                        .headers = {{"Host", request.host},
                                                    {"authorization", credentials},
                                                    {"Content-Type", request.contentType},
                                                    {"KIVO-Language", request.language}},
                                        .body = request.body,
                                        .isBodyTooLarge = request.body.size() > Host::kBodyLimit};
        const auto refusal = m_router.RefuseHead(read);
        return refusal ? *refusal : m_router.Answer(read);
    }

    const Host::Module m_module{TEST_MODULE};
    const Host::Page m_page = {{"/", {"<p>page</p>", "text/html"}},
                               {"/404.html", {"{root}a {root}", "text/html"}}};
    Host::Activity m_activity = 0;
    const Host::Router m_router{m_module, m_page, m_activity, {.hostNames = {"nas.example"}}};
};

TEST_F(RouterTest, EachRequestGetsItsStatusAndOneSentence) {
    struct Case {
        HttpRequest request;
        unsigned status;
        /// The envelope's code, and how its data begins.
        int code;
        std::string data;
    };
    const std::string checked = "/webapi/Test/1/checked";
    const std::string tooLarge(64 * 1024 + 1, ' ');
    const std::vector<Case> cases = {
        {{}, 200, 0, ""},
        {{.contentType = "Application/JSON ; charset=utf-8"}, 200, 0, ""},
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
        {{.path = "/../bin/webapi-host", .method = "GET"}, 404, 404, "There is nothing"},
        {{.path = "//etc/passwd", .method = "GET"}, 404, 404, "There is nothing"},
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
        {{.body = tooLarge}, 413, 413, "The body is larger than 64 KiB."},
        {{.body = tooLarge, .token = ""}, 401, 401, "The request carries no valid token"},

        {{.host = "LOCALHOST:1"}, 200, 0, ""},
        {{.host = "[::1]:80"}, 200, 0, ""},
        {{.host = "127.0.0.9"}, 200, 0, ""},
        {{.host = "nas.example:443"}, 200, 0, ""},
        {{.host = ""}, 421, 421, "The Host is not one"},
        {{.host = "example"}, 421, 421, "The Host is not one"},
        {{.host = "127.0.0.1.example:80"}, 421, 421, "The Host is not one"},
    };
    for (const auto& [request, status, code, data] : cases) {
        const Host::HttpAnswer answer = Ask(request);
        SCOPED_TRACE(request.method + " " + request.path + " " + request.body + " -> " + answer.body);
        EXPECT_EQ(answer.status, status);
        EXPECT_TRUE(answer.body.starts_with(code == 0 ? "{\"data\":"
                                                      : "{\"error\":{\"code\":" + std::to_string(code) +
                                                            ",\"data\":\"" + data));
        EXPECT_TRUE(answer.body.ends_with(code == 0 ? ",\"success\":true}" : "},\"success\":false}"));
        Headers headers = kSafeHeaders;
        headers["Content-Type"] = "application/json; charset=utf-8";
        headers["Cache-Control"] = "no-store";
        if (status == 401) {
            headers["WWW-Authenticate"] = "Bearer";
        } else if (status == 405) {
            headers["Allow"] = request.path.starts_with("/webapi") ? "POST"
                               : request.path == "/session"        ? "GET, HEAD, POST"
                                                                   : "GET, HEAD";
        }
        EXPECT_EQ(Headers(answer.headers.begin(), answer.headers.end()), headers);
    }
}

TEST_F(RouterTest, OnlyAUsersOwnTokenSignsIn) {
    const std::string refused = Ask({.token = ""}).body;
    for (const std::string wrong :
         {"Bearer x", "Bearer lices-secret-token", "Bearer alices-secret-toke", "Bearer shared-token",
          "Bearer alices-secret-tokenalices-secret-token", "Bearer \"alices-secret-token\"", "Bearer bob",
          "Bearer", "", "Basic alices-secret-token", "alices-secret-token"}) {
        for (const std::string path : {"/webapi/Test/1/echo", "/webapi/No/1/echo", "/session", "/nothing"}) {
            const char* const method = path == "/session" ? "GET" : "POST";
            const auto answer = Ask({.path = path, .method = method, .token = wrong, .scheme = ""});
            EXPECT_EQ(answer.status, 401U) << path << ' ' << wrong;
            EXPECT_EQ(answer.body, refused) << "A stranger learns nothing else.";
        }
    }
    EXPECT_EQ(Ask({.scheme = "bEARER "}).status, 200U);

    // Taken away, a token is worth nothing from the next request on.
    for (const auto& [size, status] : {std::pair{256, 200U}, {257, 401U}}) {
        const std::string longest(static_cast<std::size_t>(size), 'x');
        m_root.WriteUsers({{.name = "alice", .token = longest}});
        EXPECT_EQ(Ask({.token = longest}).status, status) << size;
        EXPECT_EQ(Ask().status, 401U);
    }
}

TEST_F(RouterTest, ASignInCodeIsExchangedForTheTokenOfItsUserWhileItIsFresh) {
    const auto exchange = [this](const std::string& code) {
        const auto answer = Ask({.path = "/session", .body = R"({"code":")" + code + "\"}", .token = ""});
        EXPECT_EQ(answer.status, answer.body.ends_with("true}") ? 200U : 401U) << answer.body;
        return answer.body;
    };
    const std::time_t now = std::time(nullptr);
    const std::string code = Host::MakeSignInCode("alice", now + 60).value();
    EXPECT_EQ(exchange(code), R"({"data":{"token":"alices-secret-token"},"success":true})");
    EXPECT_NE(exchange(Host::MakeSignInCode("alice", now - 1).value()).find("has expired"), code.npos);
    const std::size_t dot = code.find('.');
    for (const std::string& wrong :
         {std::string(), std::string("x"), code.substr(0, code.size() - 1), code + "0",
          code.substr(0, dot + 1) + std::to_string(now + 61) + code.substr(code.rfind('.')),
          "626f62" + code.substr(dot), "6" + code, code.substr(0, dot)}) {
        EXPECT_NE(exchange(wrong).find("is not valid. For another, run: webapi-host sign-in"), code.npos)
            << wrong;
    }
    for (const char* user : {"bob", "carol", "nobody"}) {
        EXPECT_EQ(Host::MakeSignInCode(user, now + 60), std::nullopt) << user;
    }
    m_root.WriteUsers({{.name = "alice", .token = "another-token"}});
    EXPECT_NE(exchange(code).find("is not valid"), code.npos) << "A new token ends it.";
}

TEST_F(RouterTest, TheHandlerLearnsWhoAsksAndInWhichLanguage) {
    const Headers languages = {{"", "ger"},    {"enu", "enu"}, {"fre", "fre"},
                               {"ENU", "ger"}, {"ita", "ger"}, {"../enu", "ger"}};
    for (const auto& [header, language] : languages) {
        const auto echo = Ask({.body = R"({"text":"Grüße \u0000 \ud83d\ude00"})", .language = header}).body;
        EXPECT_TRUE(echo.starts_with(R"({"data":{"administrator":true,)")) << echo;
        EXPECT_NE(echo.find("\"" + language + R"(","text":"Grüße \u0000 😀","user":"alice")"), echo.npos);
        // French has a folder, but no catalogue.
        EXPECT_EQ(Ask({.path = "/session", .method = "GET", .language = header}).body,
                  R"({"data":{"administrator":true,"language":")" + language +
                      R"(","languages":["enu","ger"],"user":"alice"},"success":true})");
    }
}

TEST_F(RouterTest, ThePageNeedsNoToken) {
    const Host::HttpAnswer page = Ask({.path = "/", .method = "GET", .token = ""});
    EXPECT_EQ(std::to_string(page.status) + page.body, "200<p>page</p>");
    Headers headers = kSafeHeaders;
    headers["Content-Type"] = "text/html";
    headers["Cache-Control"] = "no-cache";
    headers["Content-Security-Policy"] =
        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
        "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
        "require-trusted-types-for 'script'; trusted-types 'none'";
    headers["Referrer-Policy"] = "no-referrer";
    EXPECT_EQ(Headers(page.headers.begin(), page.headers.end()), headers);

    // Behind a proxy the server's root may be a path of its own.
    for (const auto& [path, body] :
         {std::pair{"/404.html", "./a ./"}, {"/nope", "./a ./"}, {"/a/b/", "./../../a ./../../"}}) {
        const Host::HttpRequest reading = {"GET", path, {{"Accept", "text/html"}}};
        EXPECT_EQ(m_router.Answer(reading).body, body);
    }
}

}  // namespace
}  // namespace KIVO::Test
