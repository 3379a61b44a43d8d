#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Module.h"
#include "host/Page.h"

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
    std::string_view Header(std::string_view name) const;
};

struct HttpAnswer {
    unsigned status;
    std::vector<std::pair<const char*, const char*>> headers;
    std::string body;
};

/// Whether it is the text of an IPv4 loopback address.
[[nodiscard]] bool IsLoopback(const std::string& address);

/// Decides what each request is answered with. It knows nothing of sockets and of no HTTP library.
class Router {
public:
    /// Borrows the module. `hostNames` are those by which it may be called besides the loopback names.
    Router(const Module& module, Page page, std::vector<std::string> hostNames = {});

    /// What a request is refused with that two readers may read as two, or that is meant for another host, so
    /// that its connection is to be closed before its body is read. Nothing for any other.
    [[nodiscard]] std::optional<HttpAnswer> RefuseHead(const HttpRequest& request) const;

    /// The answer of the page's file, the session or the method at the path, or the refusal of any of them.
    HttpAnswer Answer(const HttpRequest& request) const;

    /// The answer to a request that cannot be answered otherwise.
    static HttpAnswer Failure();

private:
    void CheckHost(std::string_view host) const;
    HttpAnswer Route(const HttpRequest& request) const;

    const Module& m_module;
    const Page m_page;
    const std::vector<std::string> m_hostNames;
};

}  // namespace KIVO::Host
