#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Module.h"
#include "host/Page.h"
#include "host/Supervisor.h"

namespace KIVO::Host {

/// The longest body that a request may have.
inline constexpr std::size_t kBodyLimit = 64UL * 1024;

/// A request as an HTTP library has read it, whose texts it borrows but for the body.
struct HttpRequest {
    std::string_view method;
    std::string_view path;
    /// In the order in which they were sent.
    std::vector<std::pair<std::string_view, std::string_view>> headers = {};
    std::string body = {};
    /// A header went on in a further line, of which not every reader makes the same.
    bool hasFoldedHeader = false;
    /// The body is longer than kBodyLimit, and not all of it was kept.
    bool isBodyTooLarge = false;

    /// The value of the first header of that name, in any case; "" when the request does not carry it.
    [[nodiscard]] std::string_view Header(std::string_view name) const;
};

struct HttpAnswer {
    unsigned status;
    std::vector<std::pair<const char*, const char*>> headers;
    std::string body;
    /// For the log: whose request it was and what is at its path; "" for nobody's and nothing that is known.
    std::string user = {};
    std::string target = {};
};

/// Whether it is the text of an IPv4 loopback address.
[[nodiscard]] bool IsLoopback(const std::string& address);

/// How a router is set up.
struct RouterOptions {
    /// The names by which the server may be called besides the loopback names.
    std::vector<std::string> hostNames = {};
    /// A call that takes longer ends the process by SIGALRM. At least one.
    std::chrono::seconds callTimeout{30};
};

/// Decides what each request is answered with. It knows nothing of sockets and of no HTTP library.
class Router {
public:
    /// Borrows the module, the page and the activity, which tells at each call which of the module's rows it
    /// is of, counted from 1, and is that number's negative afterwards.
    Router(const Module& module, const Page& page, Activity& activity, RouterOptions options = {});

    /// What a request is refused with that two readers may read as two, or that is meant for another host, so
    /// that its connection is to be closed before its body is read. Nothing for any other.
    [[nodiscard]] std::optional<HttpAnswer> RefuseHead(const HttpRequest& request) const;

    /// The answer of the page's file, the session or the method at the path, or the refusal of any of them.
    [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;

    /// Whose turn it has to be for the request to be answered, as its answer may take its time: a token,
    /// whether or not it signs anyone in. Nothing for a request that is answered at once.
    [[nodiscard]] static std::optional<std::string_view> TurnOf(const HttpRequest& request);

    /// To be called every second also while nobody asks, so that this process learns of a token that was
    /// taken away before the users file may become unreadable.
    void LookAtUsers() const noexcept;

    /// The answer to a request that cannot be answered otherwise.
    [[nodiscard]] static HttpAnswer Failure();

private:
    void CheckHost(std::string_view host) const;
    [[nodiscard]] HttpAnswer Route(const HttpRequest& request, std::string& user, std::string& target) const;

    const Module& m_module;
    const Page& m_page;
    Activity& m_activity;
    const RouterOptions m_options;
};

}  // namespace KIVO::Host
