#pragma once

#include <cstddef>
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

/// Decides what each request is answered with. It knows nothing of sockets and of no HTTP library.
class Router {
public:
    /// Borrows the module.
    Router(const Module& module, Page page);

    /// The answer of the page's file, the session or the method at the path, or the refusal of any of them.
    HttpAnswer Answer(const HttpRequest& request) const;

    /// The answer to a request that cannot be answered otherwise.
    static HttpAnswer Failure();

private:
    HttpAnswer Route(const HttpRequest& request) const;

    const Module& m_module;
    const Page m_page;
};

}  // namespace KIVO::Host
