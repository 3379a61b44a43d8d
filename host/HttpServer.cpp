#include "host/HttpServer.h"

#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <initializer_list>
#include <iterator>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/Caller.h"
#include "host/Dispatch.h"
#include "host/Refusal.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBodyLimit = 64UL * 1024;
constexpr std::size_t kConnectionMemory = 16UL * 1024;
/// At this many connections a new one takes the place of the oldest, so that idle ones, which cost their
/// owner nothing, keep nobody out; a higher limit alone would only be reached later.
constexpr unsigned kConnectionLimit = 512;
/// For those that are cut off and not yet closed: at its own limit the library would let newcomers wait.
constexpr unsigned kSpareConnections = 64;
constexpr std::chrono::seconds kIdleTimeout = 10s;
/// For one request from its first byte to its answer's last, with the idle time before it: every byte starts
/// the idle timeout anew, so that without this a sender could hold a connection for as long as it likes.
constexpr std::chrono::seconds kRequestTime = 30s;
constexpr std::chrono::seconds kDrainTime = 10s;

constexpr std::string_view kApiPrefix = "/webapi/";
constexpr std::string_view kFailure =
    R"({"error":{"code":500,"data":"The server could not answer."},"success":false})";
constexpr char kJson[] = "application/json; charset=utf-8";

/// The page asks nothing from any other origin, and no other page may frame it.
constexpr char kContentSecurityPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// The request header's value, "" when the request does not carry it.
std::string_view Header(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Whose bearer token the request carries. Throws a Refusal 401.
Caller Authenticate(MHD_Connection* connection) {
    constexpr std::string_view kScheme = "Bearer ";
    const std::string_view credentials = Header(connection, MHD_HTTP_HEADER_AUTHORIZATION);
    std::optional<Caller> caller;
    if (EqualsIgnoringCase(credentials.substr(0, kScheme.size()), kScheme)) {
        caller = FindCallerByToken(credentials.substr(kScheme.size()));
    }
    if (!caller) {
        throw Refusal(MHD_HTTP_UNAUTHORIZED, "The request carries no valid token.");
    }
    const std::string language(Header(connection, "KIVO-Language"));
    if (HasLanguage(language)) {
        caller->language = language;
    }
    return std::move(*caller);
}

void RequireMethod(std::string_view method, std::initializer_list<std::string_view> accepted,
                   const char* allow) {
    if (std::ranges::find(accepted, method) == accepted.end()) {
        throw Refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "The path does not take this HTTP method.", allow);
    }
}

void RequireJson(MHD_Connection* connection) {
    std::string_view type = Header(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
    type = type.substr(0, type.find(';'));
    type = type.substr(0, type.find_last_not_of(" \t") + 1);
    if (!EqualsIgnoringCase(type, "application/json")) {
        throw Refusal(MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, "The body's content type is not application/json.");
    }
}

/// The size that the request announces for its body; 0 when it has none or sends it in chunks.
std::size_t AnnouncedBodySize(MHD_Connection* connection) {
    const std::string_view text = Header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    std::size_t size = 0;
    std::from_chars(text.data(), text.data() + text.size(), size);
    return size;
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

}  // namespace

/// One request, from its first line until its answer is sent.
struct HttpServer::Request {
    explicit Request(std::size_t& count) : m_count(count) { ++m_count; }
    ~Request() { --m_count; }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    bool hasBegun = false;
    std::string body;
    bool isTooLarge = false;

private:
    std::size_t& m_count;
};

HttpServer::HttpServer(const Module& module, const Page& page, int listenSocket)
    : m_module(module),
      m_page(page),
      m_effectiveUid(geteuid()),
      m_failure(MakeResponse(kFailure, MHD_RESPMEM_PERSISTENT, {{MHD_HTTP_HEADER_CONTENT_TYPE, kJson}})) {
    // The library's own error log stays off: it quotes what clients send, and that may be a token.
    m_daemon.reset(MHD_start_daemon(
        MHD_USE_EPOLL, 0, nullptr, nullptr, &HttpServer::OnRequest, this, MHD_OPTION_LISTEN_SOCKET,
        listenSocket, MHD_OPTION_NOTIFY_CONNECTION, &HttpServer::OnConnection, this,
        MHD_OPTION_URI_LOG_CALLBACK, &HttpServer::OnRequestLine, this, MHD_OPTION_NOTIFY_COMPLETED,
        &HttpServer::OnCompleted, this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
        MHD_OPTION_CONNECTION_LIMIT, kConnectionLimit + kSpareConnections, MHD_OPTION_CONNECTION_TIMEOUT,
        static_cast<unsigned>(kIdleTimeout.count()), MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END));
    if (!m_daemon) {
        throw std::runtime_error("The HTTP server cannot start.");
    }
}

HttpServer::~HttpServer() {
    // A daemon that was not told to leave the listening socket alone would close it.
    BeginDraining();
}

void HttpServer::Run(int stopDescriptor, int lifeline) {
    pollfd descriptors[] = {
        {MHD_get_daemon_info(m_daemon.get(), MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0},
        {stopDescriptor, POLLIN, 0},
        {lifeline, POLLIN, 0},
    };
    std::optional<Clock::time_point> end;
    do {
        std::chrono::milliseconds timeout = kIdleTimeout;
        if (MHD_UNSIGNED_LONG_LONG untilTimeout = 0;
            MHD_get_timeout(m_daemon.get(), &untilTimeout) == MHD_YES) {
            timeout = std::min(timeout, std::chrono::milliseconds(untilTimeout));
        }
        if (end) {
            timeout = std::min(timeout, std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()));
        }
        poll(descriptors, std::size(descriptors), static_cast<int>(std::max(timeout, 0ms).count()));
        MHD_run(m_daemon.get());
        if (geteuid() != m_effectiveUid) {
            throw std::runtime_error("The effective user id was not restored: this worker ends.");
        }
        // Here is often enough: each byte of a slow client comes by, and one of which none comes is idle.
        while (!m_connections.empty() && Clock::now() - m_connections.front().since > kRequestTime) {
            CutOffOldest();
        }
        if (!end && (descriptors[1].revents || descriptors[2].revents)) {
            BeginDraining();
            end = Clock::now() + kDrainTime;
            descriptors[1].fd = descriptors[2].fd = -1;
            // Reads what came along with the connections accepted last.
            MHD_run(m_daemon.get());
        }
    } while (!end || (m_requestsUnderWay > 0 && Clock::now() < *end));
}

void HttpServer::BeginDraining() {
    m_isDraining = true;
    MHD_quiesce_daemon(m_daemon.get());
}

void HttpServer::Renew(Connection& connection) {
    connection.since = Clock::now();
    m_connections.splice(m_connections.end(), m_connections, connection.place);
}

void HttpServer::CutOffOldest() {
    // The library has no call for this; it closes a connection whose socket is shut down.
    shutdown(m_connections.front().socket, SHUT_RDWR);
    Renew(m_connections.front());
}

void HttpServer::OnConnection(void* self, MHD_Connection* connection, void** context,
                              MHD_ConnectionNotificationCode change) noexcept {
    HttpServer& server = *static_cast<HttpServer*>(self);
    if (change == MHD_CONNECTION_NOTIFY_CLOSED) {
        if (*context) {
            server.m_connections.erase(static_cast<Connection*>(*context)->place);
        }
        return;
    }
    const int socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    try {
        Connection& added = server.m_connections.emplace_back(Connection{socket, Clock::now(), {}});
        added.place = std::prev(server.m_connections.end());
        *context = &added;
    } catch (const std::bad_alloc&) {
        shutdown(socket, SHUT_RDWR);
    }
    if (server.m_connections.size() > kConnectionLimit) {
        server.CutOffOldest();
    }
}

void* HttpServer::OnRequestLine(void* self, const char*, MHD_Connection*) noexcept {
    return new (std::nothrow) Request(static_cast<HttpServer*>(self)->m_requestsUnderWay);
}

void HttpServer::OnCompleted(void* self, MHD_Connection* connection, void** request,
                             MHD_RequestTerminationCode) noexcept {
    delete static_cast<Request*>(*request);
    if (void* const context =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context) {
        static_cast<HttpServer*>(self)->Renew(*static_cast<Connection*>(context));
    }
}

MHD_Result HttpServer::OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                                 const char*, const char* upload, std::size_t* uploadSize,
                                 void** requestPointer) noexcept {
    const HttpServer& server = *static_cast<HttpServer*>(self);
    if (geteuid() != server.m_effectiveUid) {
        return MHD_NO;
    }
    try {
        if (!*requestPointer) {
            throw std::bad_alloc();
        }
        Request& request = *static_cast<Request*>(*requestPointer);
        if (!request.hasBegun) {
            request.hasBegun = true;
            request.isTooLarge = AnnouncedBodySize(connection) > kBodyLimit;
            request.body.reserve(kBodyLimit);
            return request.isTooLarge ? server.Send(connection, path, method, request) : MHD_YES;
        }
        if (*uploadSize > 0) {
            // No answer can be sent before the body has ended, so one that grows too large is read on.
            request.isTooLarge |= *uploadSize > kBodyLimit - request.body.size();
            if (!request.isTooLarge) {
                request.body.append(upload, *uploadSize);
            }
            *uploadSize = 0;
            return MHD_YES;
        }
        return server.Send(connection, path, method, request);
    } catch (const std::exception& exception) {
        syslog(LOG_ERR, "A request could not be answered: %s.", exception.what());
        return MHD_queue_response(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, server.m_failure.get());
    }
}

MHD_Result HttpServer::Send(MHD_Connection* connection, std::string_view path, std::string_view httpMethod,
                            const Request& request) const {
    unsigned status = MHD_HTTP_OK;
    Response response;
    try {
        response = Answer(connection, path, httpMethod, request);
    } catch (const Refusal& refusal) {
        status = refusal.Status();
        response = MakeJsonResponse(ErrorEnvelope(static_cast<int>(status), refusal.what()));
        if (status == MHD_HTTP_UNAUTHORIZED) {
            MHD_add_response_header(response.get(), MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
        }
        if (refusal.Allow()) {
            MHD_add_response_header(response.get(), MHD_HTTP_HEADER_ALLOW, refusal.Allow());
        }
    }
    if (m_isDraining) {
        MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONNECTION, "close");
    }
    return MHD_queue_response(connection, status, response.get());
}

HttpServer::Response HttpServer::Answer(MHD_Connection* connection, std::string_view path,
                                        std::string_view httpMethod, const Request& request) const {
    if (const auto file = m_page.find(path); file != m_page.end()) {
        RequireMethod(httpMethod, {MHD_HTTP_METHOD_GET, MHD_HTTP_METHOD_HEAD}, "GET, HEAD");
        return MakeResponse(file->second.content, MHD_RESPMEM_PERSISTENT,
                            {{MHD_HTTP_HEADER_CONTENT_TYPE, file->second.type},
                             {MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache"},
                             {MHD_HTTP_HEADER_CONTENT_SECURITY_POLICY, kContentSecurityPolicy},
                             {"Referrer-Policy", "no-referrer"}});
    }
    const Appliance::UsersSnapshot users;  // Who asks, and all that is asked about it, are of one moment.
    // Before anything else, so that a stranger learns nothing but that a token is wanted.
    const Caller caller = Authenticate(connection);
    if (path == "/session") {
        RequireMethod(httpMethod, {MHD_HTTP_METHOD_GET, MHD_HTTP_METHOD_HEAD}, "GET, HEAD");
        return MakeJsonResponse(SuccessEnvelope(DescribeSession(caller)));
    }
    if (!path.starts_with(kApiPrefix)) {
        throw Refusal(MHD_HTTP_NOT_FOUND, "There is nothing at this path.");
    }
    const Method method = m_module.Find(path.substr(kApiPrefix.size()));
    RequireMethod(httpMethod, {MHD_HTTP_METHOD_POST}, "POST");
    RequireJson(connection);
    if (request.isTooLarge) {
        throw Refusal(MHD_HTTP_CONTENT_TOO_LARGE, "The body is larger than 64 KiB.");
    }
    return MakeJsonResponse(Dispatch(method, caller, request.body));
}

HttpServer::Response HttpServer::MakeJsonResponse(const Json::Value& envelope) {
    return MakeResponse(Appliance::WriteJson(envelope), MHD_RESPMEM_MUST_COPY,
                        {{MHD_HTTP_HEADER_CONTENT_TYPE, kJson}, {MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"}});
}

HttpServer::Response HttpServer::MakeResponse(std::string_view content, MHD_ResponseMemoryMode mode,
                                              Headers headers) {
    Response response(
        MHD_create_response_from_buffer(content.size(), const_cast<char*>(content.data()), mode));
    if (!response) {
        throw std::bad_alloc();
    }
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_X_CONTENT_TYPE_OPTIONS, "nosniff");
    for (const auto& [name, value] : headers) {
        if (MHD_add_response_header(response.get(), name, value) != MHD_YES) {
            throw std::bad_alloc();
        }
    }
    return response;
}

}  // namespace KIVO::Host
