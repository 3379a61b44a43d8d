// Any bytes as what a client sends to the host's HTTP server, at the rate of so many bytes a read (the first
// byte of an input; 0: all at once). Every answer must be whole and of a known status, refusals must look as
// the host's do, nobody's token may be in an answer or in the log, and no handler is called unless the right
// header carries one.

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cctype>
#include <cstdio>
#include <string_view>

#include "fuzz/Support.h"
#include "host/HttpServer.h"
#include "platform/kivocore/FileDescriptor.h"
#include "webapi/APIRequest.h"

using KIVO::Appliance::FileDescriptor;

namespace {

int g_calls;

const KIVO::APITableRow kRows[] = {{"Test", 1, "user",
                                    [](KIVO::APIRequest* request, KIVO::APIResponse* response) {
                                        ++g_calls;
                                        response->SetSuccess(request->GetLoginUserName());
                                    }},
                                   {}};
const KIVO::APICheckTableRow kCheckRows[] = {
    {"Test", 1, "user", [](KIVO::APIRequest*, KIVO::APIResponse*) { return true; }, {}}, {}};

/// What the client has yet to send, and how much of it at a time.
int g_client;
std::string_view g_unsent;
std::size_t g_sendSize;

/// The end of the client's bytes goes by itself: with the last ones at once, the server's library would not
/// see it.
void SendMore() {
    if (g_unsent.empty()) {
        shutdown(g_client, SHUT_WR);
        return;
    }
    const ssize_t count =
        send(g_client, g_unsent.data(), std::min(g_sendSize, g_unsent.size()), MSG_NOSIGNAL);
    g_unsent.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : g_unsent.size());
}

/// Which of the answers is not as it should be, "" when none.
std::string FirstWrong(std::string_view answers) {
    constexpr int kKnown[] = {100, 200, 400, 401, 404, 405, 413, 414, 415, 431, 501, 505};
    while (!answers.empty()) {
        const std::string head(answers.substr(0, answers.find("\r\n\r\n")));
        int status = 0;
        if (std::sscanf(head.c_str(), "HTTP/1.%*1[01] %3d ", &status) != 1 ||
            std::ranges::count(kKnown, status) == 0) {
            return head;
        }
        answers.remove_prefix(std::min(head.size() + 4, answers.size()));
        const std::size_t length = head.find("Content-Length: ");
        // The answer to HEAD has no body.
        if (length == std::string::npos || answers.empty() || answers.starts_with("HTTP/1.")) {
            continue;
        }
        const std::size_t size = std::stoul(head.substr(length + 16));
        const std::string body(answers.substr(0, size));
        answers.remove_prefix(body.size());
        Json::Value envelope;
        const bool isJson = head.find("application/json") != std::string::npos;
        if (body.size() != size || (isJson && !KIVO::Appliance::ParseJson(body, envelope)) ||
            (isJson && envelope["success"] != (status == 200)) ||
            (isJson && status != 200 &&
             (envelope["error"]["code"] != status || !envelope["error"]["data"].isString()))) {
            return head + body;
        }
    }
    return "";
}

}  // namespace

extern "C" {

EXPORTED const KIVO::APITableRow* GetAPITable() { return kRows; }
EXPORTED const KIVO::APICheckTableRow* GetAPICheckTable() { return kCheckRows; }

/// As the server's library reads what there is, the client sends more.
EXPORTED ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
    const ssize_t count = recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
    SendMore();
    return count;
}

}  // extern "C"

void KIVO::Fuzz::Try(const std::string& input) {
    Root();
    static const Host::Module module("");  // this program
    static const Host::Page page = {{"/", {"<p>page</p>", "text/html"}}};
    static const FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Unlike a port, such a name is free again at once.
    static sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    static auto* const name = reinterpret_cast<sockaddr*>(&address);
    if (address.sun_path[1] == '\0') {
        std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "fuzz_http %d", getpid());
        bind(listener.Get(), name, sizeof address);
        listen(listener.Get(), 1);
    }
    if (input.size() < 2) {
        return;
    }
    g_calls = 0;
    g_unsent = std::string_view(input).substr(1);
    g_sendSize = input[0] != 0 ? static_cast<unsigned char>(input[0]) : input.size();
    const FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    connect(client.Get(), name, sizeof address);
    g_client = client.Get();
    SendMore();
    // Readable as soon as the server has closed the connection.
    const FileDescriptor closing(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event = {EPOLLRDHUP, {}};
    epoll_ctl(closing.Get(), EPOLL_CTL_ADD, client.Get(), &event);
    Host::HttpServer(module, page, listener.Get()).Run(closing.Get(), closing.Get());

    std::string answers;
    char chunk[65536];
    for (ssize_t count = 0; (count = read(client.Get(), chunk, sizeof chunk)) > 0;) {
        answers.append(chunk, static_cast<std::size_t>(count));
    }
    ExpectEqual("answers", "", FirstWrong(answers));
    ExpectEqual("log", "", Log());
    Expect("no token in an answer", answers.find(kToken) == answers.npos);
    std::string lower = input;
    std::ranges::transform(lower, lower.begin(), [](unsigned char byte) { return std::tolower(byte); });
    const std::size_t header = lower.find("\nauthorization:");
    Expect("no call without a token",
           g_calls == 0 || (header != input.npos && input.find(kToken, header) != input.npos));
}
