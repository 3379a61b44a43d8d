#include "host/Router.h"

#include <arpa/inet.h>
#include <glib.h>
#include <netinet/in.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <initializer_list>
#include <new>
#include <optional>

#include "host/Caller.h"
#include "host/Dispatch.h"
#include "host/Refusal.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

constexpr std::string_view kApiPrefix = "/webapi/";
constexpr std::string_view kSessionPath = "/session";
constexpr std::string_view kNotFoundPage = "/404.html";

/// The page asks nothing from any other origin and makes no script out of a text, and no other page may frame
/// it.
constexpr char kContentSecurityPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Throws a Refusal 400 when another reader might find another request in these headers, or another end of
/// it.
void CheckHeaders(const HttpRequest& request) {
    constexpr std::string_view kDigits = "0123456789";
    constexpr std::string_view kTokenSigns = "!#$%&'*+-.^_`|~";
    const auto isTokenLetter = [&](unsigned char letter) {
        return g_ascii_isalnum(letter) || kTokenSigns.find(static_cast<char>(letter)) != kTokenSigns.npos;
    };
    int lengths = 0, hosts = 0, credentials = 0;
    bool isSound = !request.hasFoldedHeader;
    for (const auto& [name, value] : request.headers) {
        isSound &= !name.empty() && std::ranges::all_of(name, isTokenLetter);
        isSound &= std::ranges::none_of(
            value, [](char letter) { return g_ascii_iscntrl(letter) && letter != '\t'; });
        if (EqualsIgnoringCase(name, "Content-Length")) {
            ++lengths;
            isSound &= !value.empty() && value.find_first_not_of(kDigits) == value.npos;
        } else if (EqualsIgnoringCase(name, "Transfer-Encoding")) {
            ++lengths;
            isSound &= EqualsIgnoringCase(value, "chunked");
        }
        hosts += EqualsIgnoringCase(name, "Host");
        credentials += EqualsIgnoringCase(name, "Authorization");
    }
    if (!isSound || lengths > 1 || hosts > 1 || credentials > 1) {
        throw Refusal(400, "The request's headers can be read in more than one way.");
    }
}

bool IsCall(const HttpRequest& request) { return request.path.starts_with(kApiPrefix); }

/// The token that the request carries; "", which signs nobody in, when it carries none.
std::string_view TokenOf(const HttpRequest& request) {
    constexpr std::string_view kScheme = "Bearer ";
    const std::string_view credentials = request.Header("Authorization");
    return EqualsIgnoringCase(credentials.substr(0, kScheme.size()), kScheme)
               ? credentials.substr(kScheme.size())
               : "";
}

/// Whose token the request carries. Throws a Refusal 401.
Caller Authenticate(const HttpRequest& request) {
    std::optional<Caller> caller = FindCallerByToken(TokenOf(request));
    if (!caller) {
        throw Refusal(401, "The request carries no valid token.");
    }
    const std::string language(request.Header("KIVO-Language"));
    if (HasLanguage(language)) {
        caller->language = language;
    }
    return std::move(*caller);
}

void RequireMethod(const HttpRequest& request, std::initializer_list<std::string_view> accepted,
                   const char* allow) {
    if (std::ranges::find(accepted, request.method) == accepted.end()) {
        throw Refusal(405, "The path does not take this HTTP method.", allow);
    }
}

void RequireJson(const HttpRequest& request) {
    std::string_view type = request.Header("Content-Type");
    type = type.substr(0, type.find(';'));
    type = type.substr(0, type.find_last_not_of(" \t") + 1);
    if (!EqualsIgnoringCase(type, "application/json")) {
        throw Refusal(415, "The body's content type is not application/json.");
    }
    if (request.isBodyTooLarge) {
        throw Refusal(413, "The body is larger than " + std::to_string(kBodyLimit / 1024) + " KiB.");
    }
}

/// Whether a browser wants to show what is at the path, which none of the paths for programs is.
bool IsForReading(const HttpRequest& request) {
    return request.method == "GET" && request.path != kSessionPath && !IsCall(request) &&
           request.Header("Accept").find("text/html") != std::string_view::npos;
}

/// The text with the way from the path to the server's root in place of each "{root}": behind a proxy the
/// root may be a path of its own.
std::string FillInRoot(const std::string& text, std::string_view path) {
    constexpr std::string_view kRoot = "{root}";
    std::string way = "./";
    for (auto slashes = std::ranges::count(path, '/'); slashes > 1; --slashes) {
        way += "../";
    }
    std::string filled = text;
    for (std::size_t place = 0; (place = filled.find(kRoot, place)) != filled.npos; place += way.size()) {
        filled.replace(place, kRoot.size(), way);
    }
    return filled;
}

Json::Value DescribeSession(const Caller& caller) {
    Json::Value session(Json::objectValue);
    session["user"] = caller.userName;
    session["administrator"] = caller.isAdmin;
    session["language"] = caller.language;
    session["languages"] = Json::Value(Json::arrayValue);
    for (const std::string& language : Appliance::InstalledLanguages()) {
        session["languages"].append(language);
    }
    return session;
}

/// The session that the code of a sign-in link begins.
Json::Value SignIn(const std::string& body) {
    const Json::Value parameters = ParseParameters(body);
    const Json::Value& code = parameters["code"];
    if (!code.isString()) {
        throw Refusal(400, "The parameter code is missing or no string.");
    }
    Json::Value session(Json::objectValue);
    session["token"] = ExchangeSignInCode(code.asString());
    return session;
}

/// While it lives, the activity tells of the call, and the process ends when the time is up: only that is
/// sure to end a call that waits for ever, whatever for.
class CallScope {
public:
    CallScope(Activity& activity, int call, std::chrono::seconds timeout) : m_activity(activity) {
        m_activity = call;
        alarm(static_cast<unsigned>(timeout.count()));
    }
    ~CallScope() {
        alarm(0);
        m_activity = -m_activity;
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    Activity& m_activity;
};

using Headers = decltype(HttpAnswer::headers);

HttpAnswer MakeAnswer(unsigned status, Headers headers, std::string body) {
    headers.insert(headers.end(), {{"X-Content-Type-Options", "nosniff"},
                                   {"Cross-Origin-Opener-Policy", "same-origin"},
                                   {"Cross-Origin-Resource-Policy", "same-origin"}});
    return {status, std::move(headers), std::move(body)};
}

HttpAnswer MakeJsonAnswer(unsigned status, std::string body) {
    return MakeAnswer(status,
                      {{"Content-Type", "application/json; charset=utf-8"}, {"Cache-Control", "no-store"}},
                      std::move(body));
}

HttpAnswer MakeAnswer(const Refusal& refusal) {
    const int status = static_cast<int>(refusal.Status());
    HttpAnswer answer =
        MakeJsonAnswer(refusal.Status(), ErrorEnvelope(status, Appliance::WriteJson(refusal.what())));
    if (status == 401) {
        answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    }
    if (refusal.Allow()) {
        answer.headers.emplace_back("Allow", refusal.Allow());
    }
    return answer;
}

}  // namespace

std::string_view HttpRequest::Header(std::string_view name) const {
    const auto header = std::ranges::find_if(
        headers, [name](const auto& candidate) { return EqualsIgnoringCase(candidate.first, name); });
    return header == headers.end() ? "" : header->second;
}

Router::Router(const Module& module, const Page& page, Activity& activity, RouterOptions options)
    : m_module(module), m_page(page), m_activity(activity), m_options(std::move(options)) {
    assert(m_options.callTimeout > std::chrono::seconds(0));
}

std::optional<HttpAnswer> Router::RefuseHead(const HttpRequest& request) const {
    try {
        CheckHeaders(request);
        // A client of HTTP 1.0 need not say it; the library sees to it that every other does.
        for (const auto& [name, value] : request.headers) {
            if (EqualsIgnoringCase(name, "Host")) {
                CheckHost(value);
            }
        }
        return std::nullopt;
    } catch (const Refusal& refusal) {
        return MakeAnswer(refusal);
    }
}

HttpAnswer Router::Answer(const HttpRequest& request) const {
    std::string user, target;
    HttpAnswer answer;
    try {
        answer = Route(request, user, target);
    } catch (const Refusal& refusal) {
        answer = MakeAnswer(refusal);
    }
    answer.user = std::move(user);
    answer.target = std::move(target);
    return answer;
}

bool IsLoopback(const std::string& address) {
    in_addr parsed = {};
    return inet_pton(AF_INET, address.c_str(), &parsed) == 1 &&
           ntohl(parsed.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

std::optional<std::string_view> Router::TurnOf(const HttpRequest& request) {
    return IsCall(request) ? std::optional(TokenOf(request)) : std::nullopt;
}

void Router::LookAtUsers() const noexcept try { Appliance::LoadUsers(); } catch (const std::bad_alloc&) {
    // The next look may find more memory.
}

HttpAnswer Router::Failure() {
    return MakeJsonAnswer(500,
                          R"({"error":{"code":500,"data":"The server could not answer."},"success":false})");
}

/// A name that someone else's site has made lead here is none of this server's.
void Router::CheckHost(std::string_view host) const {
    const std::size_t port = host.find_last_not_of("0123456789");
    if (port != host.npos && host[port] == ':') {
        host = host.substr(0, port);
    }
    const auto isHost = [host](std::string_view name) { return EqualsIgnoringCase(host, name); };
    if (!isHost("localhost") && !isHost("[::1]") && !IsLoopback(std::string(host)) &&
        std::ranges::none_of(m_options.hostNames, isHost)) {
        throw Refusal(421, "The Host is not one by which this server is called; --host-name names more.");
    }
}

HttpAnswer Router::Route(const HttpRequest& request, std::string& user, std::string& target) const {
    auto file = m_page.find(request.path);
    const unsigned status = file == m_page.end() ? 404 : 200;
    if (status == 200 || request.path == kSessionPath) {
        target = request.path;
    } else if (IsForReading(request)) {
        file = m_page.find(kNotFoundPage);
    }
    if (file != m_page.end()) {
        RequireMethod(request, {"GET", "HEAD"}, "GET, HEAD");
        return MakeAnswer(status,
                          {{"Content-Type", file->second.type},
                           {"Cache-Control", "no-cache"},
                           {"Content-Security-Policy", kContentSecurityPolicy},
                           {"Referrer-Policy", "no-referrer"}},
                          file->first == kNotFoundPage ? FillInRoot(file->second.content, request.path)
                                                       : file->second.content);
    }
    if (request.path == kSessionPath && request.method == "POST") {
        RequireJson(request);
        return MakeJsonAnswer(200, SuccessEnvelope(Appliance::WriteJson(SignIn(request.body))));
    }
    const Appliance::UsersSnapshot users;  // Who asks, and all that is asked about it, are of one moment.
    // Before anything else, so that a stranger learns nothing but that a token is wanted.
    const Caller caller = Authenticate(request);
    user = caller.userName;
    if (request.path == kSessionPath) {
        RequireMethod(request, {"GET", "HEAD"}, "GET, HEAD, POST");
        return MakeJsonAnswer(200, SuccessEnvelope(Appliance::WriteJson(DescribeSession(caller))));
    }
    if (!IsCall(request)) {
        throw Refusal(404, "There is nothing at this path.");
    }
    const Method method = m_module.Find(request.path.substr(kApiPrefix.size()));
    target = request.path;
    RequireMethod(request, {"POST"}, "POST");
    RequireJson(request);
    const CallScope call(m_activity, static_cast<int>(method.row - m_module.Rows().data()) + 1,
                         m_options.callTimeout);
    return MakeJsonAnswer(200, Dispatch(method, caller, request.body));
}

}  // namespace KIVO::Host
