#pragma once

#include <json/value.h>
#include <microhttpd.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <list>
#include <memory>
#include <string_view>
#include <utility>

#include "host/Module.h"
#include "host/Page.h"

namespace KIVO::Host {

/// Answers HTTP requests, one at a time, on a listening socket that it may share with other processes.
class HttpServer {
public:
    /// Borrows the arguments; the socket is non-blocking. Throws std::runtime_error when it cannot start.
    HttpServer(const Module& module, const Page& page, int listenSocket);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Serves until one of the two descriptors becomes readable or is closed at its other end; then accepts
    /// no one more, answers the requests under way, for at most ten seconds, and returns.
    void Run(int stopDescriptor, int lifeline);

private:
    using Clock = std::chrono::steady_clock;

    struct Request;

    struct Connection {
        int socket;
        /// When it was accepted or its last request ended.
        Clock::time_point since;
        std::list<Connection>::iterator place;
    };

    struct Stop {
        void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
    };
    struct Destroy {
        void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
    };
    using Response = std::unique_ptr<MHD_Response, Destroy>;
    using Headers = std::initializer_list<std::pair<const char*, const char*>>;

    static void OnConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode change) noexcept;
    static void* OnRequestLine(void* self, const char* uri, MHD_Connection* connection) noexcept;
    static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                                const char* version, const char* upload, std::size_t* uploadSize,
                                void** request) noexcept;
    static void OnCompleted(void* self, MHD_Connection* connection, void** request,
                            MHD_RequestTerminationCode reason) noexcept;

    static Response MakeResponse(std::string_view content, MHD_ResponseMemoryMode mode, Headers headers);
    static Response MakeJsonResponse(const Json::Value& envelope);

    Response Answer(MHD_Connection* connection, std::string_view path, std::string_view httpMethod,
                    const Request& request) const;
    MHD_Result Send(MHD_Connection* connection, std::string_view path, std::string_view httpMethod,
                    const Request& request) const;

    /// Puts it behind all others, as of now.
    void Renew(Connection& connection);
    /// Closes the connection that has gone longest without a whole request.
    void CutOffOldest();
    /// Accepts no one more.
    void BeginDraining();

    const Module& m_module;
    const Page& m_page;
    const uid_t m_effectiveUid;
    /// The open connections, the one that has gone longest without a whole request in front.
    std::list<Connection> m_connections;
    /// Requests from their first line until their answer is sent.
    std::size_t m_requestsUnderWay = 0;
    bool m_isDraining = false;
    /// Made beforehand, for a request that there is no memory to answer.
    const Response m_failure;
    std::unique_ptr<MHD_Daemon, Stop> m_daemon;
};

}  // namespace KIVO::Host
