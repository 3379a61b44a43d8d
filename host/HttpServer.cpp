#include "host/HttpServer.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <chrono>
#include <deque>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "host/Memory.h"
#include "host/RequestLog.h"

namespace KIVO::Host {

namespace {

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

constexpr std::size_t kConnectionMemory = 16UL * 1024;
/// Descriptors for connections that are cut off and not yet closed: at its own limit the library would let
/// newcomers wait.
constexpr unsigned kMostSpare = 64;
constexpr std::chrono::seconds kIdleTimeout = 10s;
/// For one request from its first byte to its answer's last, with the idle time before it: every byte starts
/// the idle timeout anew, so that without this a sender could hold a connection for as long as it likes.
constexpr std::chrono::seconds kRequestTime = 30s;
constexpr std::chrono::seconds kDrainTime = 10s;
/// Between two looks at who may ask.
constexpr std::chrono::seconds kUsersTime = 1s;
/// How long the first byte of a request may take that was accepted as the draining began.
constexpr std::chrono::milliseconds kFirstByteTime = 100ms;

/// The size that the request announces for its body; none for one that comes in chunks.
std::optional<std::size_t> AnnouncedBodySize(const HttpRequest& request) {
    if (!request.Header(MHD_HTTP_HEADER_TRANSFER_ENCODING).empty()) {
        return std::nullopt;
    }
    const std::string_view text = request.Header(MHD_HTTP_HEADER_CONTENT_LENGTH);
    std::size_t size = 0;
    std::from_chars(text.data(), text.data() + text.size(), size);
    return size;
}

/// Whether the value stands where it was sent, behind its name's colon. The library moves the name of a
/// header that goes on in a second line, and puts that line behind the name.
bool IsInPlace(std::string_view name, std::string_view value) {
    const char* place = name.data() + name.size() + 1;
    while (place < value.data() && (*place == ' ' || *place == '\t')) {
        ++place;
    }
    return place == value.data();
}

void ReadHeaders(MHD_Connection* connection, HttpRequest& request) {
    // As many as there are, so that nothing is thrown through the library.
    request.headers.reserve(
        static_cast<std::size_t>(MHD_get_connection_values_n(connection, MHD_HEADER_KIND, nullptr, nullptr)));
    const auto add = [](void* argument, MHD_ValueKind, const char* nameText, std::size_t nameSize,
                        const char* valueText, std::size_t valueSize) {
        const std::string_view name(nameText, nameSize), value(valueText, valueSize);
        HttpRequest& read = *static_cast<HttpRequest*>(argument);
        read.headers.emplace_back(name, value);
        read.hasFoldedHeader |= !IsInPlace(name, value);
        return MHD_YES;
    };
    MHD_get_connection_values_n(connection, MHD_HEADER_KIND, add, &request);
}

unsigned DescriptorsForConnections() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t left = limit.rlim_cur - std::min<rlim_t>(kOtherDescriptors, limit.rlim_cur - 1);
    return static_cast<unsigned>(std::min<rlim_t>(left, kDescriptorsForConnections));
}

struct Destroy {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, Destroy>;

/// Takes the answer's body.
Response MakeResponse(HttpAnswer& answer) {
    auto body = std::make_unique<std::string>(std::move(answer.body));
    const auto release = [](void* text) { delete static_cast<std::string*>(text); };
    Response response(MHD_create_response_from_buffer_with_free_callback_cls(body->size(), body->data(),
                                                                             release, body.get()));
    if (!response) {
        throw std::bad_alloc();
    }
    static_cast<void>(body.release());
    for (const auto& [name, value] : answer.headers) {
        if (MHD_add_response_header(response.get(), name, value) != MHD_YES) {
            throw std::bad_alloc();
        }
    }
    return response;
}

struct Connection {
    int socket;
    /// When it was accepted or its last request ended.
    Clock::time_point since;
    std::list<Connection>::iterator place;
    MHD_Connection* handle;
    /// Its request has waited, and is the next to be answered.
    bool isDue = false;
    bool isCutOff = false;
};

/// One request, from its first line until its answer is sent.
struct Request {
    explicit Request(std::size_t& count) : m_count(count) { ++m_count; }
    ~Request() { --m_count; }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    HttpRequest content;
    const Clock::time_point start = Clock::now();

private:
    std::size_t& m_count;
};

/// Reads requests with the library and sends what the router answers.
class Server {
public:
    Server(const Router& router, int listenSocket, bool shouldLog)
        : m_router(router), m_shouldLog(shouldLog) {
        // The library's own error log stays off: it quotes what clients send, and that may be a token.
        m_daemon.reset(MHD_start_daemon(
            MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, &OnRequest, this,
            MHD_OPTION_LISTEN_SOCKET, listenSocket, MHD_OPTION_NOTIFY_CONNECTION, &OnConnection, this,
            MHD_OPTION_URI_LOG_CALLBACK, &OnRequestLine, this, MHD_OPTION_NOTIFY_COMPLETED, &OnCompleted,
            this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_CONNECTION_LIMIT,
            m_mostDescriptors, MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(kIdleTimeout.count()),
            MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END));
        if (!m_daemon) {
            throw std::runtime_error("The HTTP server cannot start.");
        }
    }
    ~Server() {
        // A daemon that was not told to leave the listening socket alone would close it.
        BeginDraining();
        while (!m_connections.empty() && !m_waiting.empty()) {
            CutOffOldest();
        }
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void Run(int stopDescriptor, int lifeline) {
        pollfd descriptors[] = {
            {MHD_get_daemon_info(m_daemon.get(), MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0},
            {stopDescriptor, POLLIN, 0},
            {lifeline, POLLIN, 0},
        };
        std::optional<Clock::time_point> end;
        Clock::time_point lastLook;
        do {
            std::chrono::milliseconds timeout = kUsersTime;
            if (MHD_UNSIGNED_LONG_LONG untilTimeout = 0;
                MHD_get_timeout(m_daemon.get(), &untilTimeout) == MHD_YES) {
                timeout = std::min(timeout, std::chrono::milliseconds(untilTimeout));
            }
            if (end) {
                timeout = std::min(timeout, kFirstByteTime / 10);
            }
            if (!m_waiting.empty()) {
                timeout = 0ms;
            }
            poll(descriptors, std::size(descriptors), static_cast<int>(std::max(timeout, 0ms).count()));
            if (const auto now = Clock::now(); now - lastLook >= kUsersTime) {
                m_router.LookAtUsers();
                lastLook = now;
            }
            m_hasCalled = false;
            ResumeNext();
            MHD_run(m_daemon.get());
            if (geteuid() != m_effectiveUid) {
                throw std::runtime_error("The effective user id was not restored: this worker ends.");
            }
            if (std::exchange(m_hasAnswered, false)) {
                m_memory.Trim();
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
        } while (!end || (MayBeAsked() && Clock::now() < *end));
    }

private:
    struct Stop {
        void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
    };

    static Connection* ContextOf(MHD_Connection* connection) {
        return static_cast<Connection*>(
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    }

    static void OnConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode change) noexcept {
        Server& server = *static_cast<Server*>(self);
        if (change == MHD_CONNECTION_NOTIFY_CLOSED) {
            if (*context) {
                server.m_connections.erase(static_cast<Connection*>(*context)->place);
            }
            return;
        }
        const int socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        try {
            Connection& added =
                server.m_connections.emplace_back(Connection{socket, Clock::now(), {}, connection});
            added.place = std::prev(server.m_connections.end());
            *context = &added;
        } catch (const std::bad_alloc&) {
            shutdown(socket, SHUT_RDWR);
        }
        if (server.m_connections.size() > server.m_mostConnections) {
            server.CutOffOldest();
        }
    }

    static void* OnRequestLine(void* self, const char*, MHD_Connection*) noexcept {
        return new (std::nothrow) Request(static_cast<Server*>(self)->m_requestsUnderWay);
    }

    static void OnCompleted(void* self, MHD_Connection* connection, void** request,
                            MHD_RequestTerminationCode) noexcept {
        delete static_cast<Request*>(*request);
        static_cast<Server*>(self)->m_hasAnswered = true;
        if (Connection* const context = ContextOf(connection)) {
            static_cast<Server*>(self)->Renew(*context);
        }
    }

    static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                                const char*, const char* upload, std::size_t* uploadSize,
                                void** requestPointer) noexcept {
        Server& server = *static_cast<Server*>(self);
        Connection* const context = ContextOf(connection);
        if (geteuid() != server.m_effectiveUid || !context || context->isCutOff) {
            return MHD_NO;
        }
        try {
            if (!*requestPointer) {
                throw std::bad_alloc();
            }
            Request& whole = *static_cast<Request*>(*requestPointer);
            HttpRequest& request = whole.content;
            const bool hasBegun = !request.method.empty();
            if (!hasBegun) {
                request.method = method;
                request.path = path;
                ReadHeaders(connection, request);
                if (auto refusal = server.m_router.RefuseHead(request)) {
                    return server.Send(connection, whole, *std::move(refusal), true);
                }
                const std::size_t size = AnnouncedBodySize(request).value_or(kBodyLimit);
                request.isBodyTooLarge = size > kBodyLimit;
                // Memory that is short later could not be answered before the body has ended.
                request.body.reserve(std::min(size, kBodyLimit));
            } else if (*uploadSize > 0) {
                // Nor could one that grows too large, so it is read on.
                request.isBodyTooLarge |= *uploadSize > kBodyLimit - request.body.size();
                if (!request.isBodyTooLarge) {
                    request.body.append(upload, *uploadSize);
                }
                *uploadSize = 0;
                return MHD_YES;
            } else if (server.MustWait(*context, request)) {
                return MHD_YES;
            }
            return hasBegun || request.isBodyTooLarge
                       ? server.Send(connection, whole, server.m_router.Answer(request), server.m_isDraining)
                       : MHD_YES;
        } catch (const std::exception& exception) {
            syslog(LOG_ERR, "A request could not be answered: %s.", exception.what());
            if (*requestPointer) {
                server.Log(*static_cast<Request*>(*requestPointer), {MHD_HTTP_INTERNAL_SERVER_ERROR, {}, {}});
            }
            return MHD_queue_response(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, server.m_failure.get());
        }
    }

    void Log(const Request& request, const HttpAnswer& answer) const {
        if (m_shouldLog) {
            LogRequest(request.content, answer, Clock::now() - request.start);
        }
    }

    MHD_Result Send(MHD_Connection* connection, const Request& request, HttpAnswer answer,
                    bool isLast) const {
        if (isLast) {
            answer.headers.emplace_back(MHD_HTTP_HEADER_CONNECTION, "close");
        }
        const unsigned status = answer.status;
        const Response response = MakeResponse(answer);
        Log(request, answer);
        return MHD_queue_response(connection, status, response.get());
    }

    /// Whether the request has to wait until its turn comes. One is answered in each round of the loop, so
    /// that a user with a thousand connections keeps nobody else waiting.
    [[nodiscard]] bool MustWait(Connection& connection, const HttpRequest& request) {
        const auto turn = Router::TurnOf(request);
        if (!turn || std::exchange(connection.isDue, false)) {
            return false;
        }
        if (!std::exchange(m_hasCalled, true) && m_waiting.empty()) {
            return false;
        }
        m_waiting[std::string(*turn)].push_back(&connection);
        MHD_suspend_connection(connection.handle);
        return true;
    }

    /// Whose turn it is gets the answer to the oldest request.
    void ResumeNext() {
        if (m_waiting.empty()) {
            return;
        }
        auto turn = m_waiting.upper_bound(m_lastTurn);
        turn = turn == m_waiting.end() ? m_waiting.begin() : turn;
        m_lastTurn = turn->first;
        Resume(*turn->second.front());
        m_hasCalled = true;
    }

    /// Ends its wait, if it waits.
    void Resume(Connection& connection) {
        for (auto& [turn, connections] : m_waiting) {
            if (std::erase(connections, &connection) > 0) {
                connection.isDue = true;
                MHD_resume_connection(connection.handle);
            }
        }
        std::erase_if(m_waiting, [](const auto& entry) { return entry.second.empty(); });
    }

    /// Puts it behind all others, as of now.
    void Renew(Connection& connection) {
        connection.since = Clock::now();
        m_connections.splice(m_connections.end(), m_connections, connection.place);
    }

    /// Closes the connection that has gone longest without a whole request.
    void CutOffOldest() {
        // The library has no call for this; it closes a connection whose socket is shut down.
        Connection& oldest = m_connections.front();
        shutdown(oldest.socket, SHUT_RDWR);
        oldest.isCutOff = true;
        Resume(oldest);
        Renew(oldest);
    }

    /// Whether there is a request under way, or one may be in a moment on a connection that is new.
    bool MayBeAsked() const {
        return m_requestsUnderWay > 0 ||
               (!m_connections.empty() && Clock::now() - m_connections.back().since < kFirstByteTime);
    }

    /// Accepts no one more.
    void BeginDraining() {
        m_isDraining = true;
        MHD_quiesce_daemon(m_daemon.get());
    }

    const Router& m_router;
    const bool m_shouldLog;
    const unsigned m_mostDescriptors = DescriptorsForConnections();
    /// At this many connections a new one takes the place of the oldest, so that idle ones, which cost their
    /// owner nothing, keep nobody out; a higher limit alone would only be reached later.
    const unsigned m_mostConnections = m_mostDescriptors - std::min(kMostSpare, m_mostDescriptors / 2);
    const uid_t m_effectiveUid = geteuid();
    /// The open connections, the one that has gone longest without a whole request in front.
    std::list<Connection> m_connections;
    std::size_t m_requestsUnderWay = 0;
    /// The connections whose requests wait for their turn, by whose it is.
    std::map<std::string, std::deque<Connection*>> m_waiting;
    std::string m_lastTurn;
    /// In this round of the loop.
    bool m_hasCalled = false;
    bool m_isDraining = false;
    /// Since the memory was looked at.
    bool m_hasAnswered = false;
    MemoryTrimmer m_memory;
    /// Made beforehand, for a request that there is no memory to answer.
    HttpAnswer m_failureAnswer = Router::Failure();
    const Response m_failure = MakeResponse(m_failureAnswer);
    std::unique_ptr<MHD_Daemon, Stop> m_daemon;
};

}  // namespace

void ServeHttp(const Router& router, int listenSocket, int stopDescriptor, int lifeline,
               const HttpOptions& options) {
    assert(fcntl(listenSocket, F_GETFL) & O_NONBLOCK);
    Server server(router, listenSocket, options.shouldLogRequests);
    options.onReady();
    server.Run(stopDescriptor, lifeline);
}

}  // namespace KIVO::Host
