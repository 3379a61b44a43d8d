// Any bytes as what a client sends to the host's HTTP server, at the rate of so many bytes a read (the first
// byte of an input; 0: all at once). Every answer must be whole and of a known status, refusals must look as
// the host's do, nobody's token may be in an answer or in the log, and no handler is called unless the right
// header carries one.

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <map>
#include <string_view>

#include "fuzz/Support.h"
#include "host/HttpServer.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"
#include "webapi/APIRequest.h"

using namespace KIVO::Fuzz;
using KIVO::Appliance::FileDescriptor;

namespace {

constexpr std::string_view kToken = "Tok3n";

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

bool IsHostsEnvelope(const std::string& body, int status) {
    Json::Value envelope;
    if (!KIVO::Appliance::ParseJson(body, envelope)) {
        return false;
    }
    return status == 200 ? envelope["success"] == true
                         : envelope["success"] == false && envelope["error"]["code"] == status &&
                               envelope["error"]["data"].isString();
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
        if (body.size() != size ||
            (head.find("application/json") != std::string::npos && !IsHostsEnvelope(body, status))) {
            return head + body;
        }
    }
    return "";
}

struct Server {
    Server() {
        root.WriteUsers({{.name = "alice", .token = std::string(kToken)}, {.name = "bob"}});
        root.WriteCatalogue("ger", "");
        // A name of the kernel's choice: unlike a port, it is free again at once.
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
        bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address.sun_family);
        listen(listener.Get(), 1);
    }

    FileDescriptor Connect() const {
        sockaddr_un address = {};
        socklen_t size = sizeof address;
        getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
        FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        connect(client.Get(), reinterpret_cast<sockaddr*>(&address), size);
        return client;
    }

    const KIVO::Test::ApplianceRoot root;
    const KIVO::Host::Module module{""};  // this program
    const KIVO::Host::Page page = {{"/", {"<p>page</p>", "text/html"}}};
    const FileDescriptor listener{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
};

}  // namespace

extern "C" {

#define EXPORTED __attribute__((visibility("default")))

EXPORTED const KIVO::APITableRow* GetAPITable() { return kRows; }
EXPORTED const KIVO::APICheckTableRow* GetAPICheckTable() { return kCheckRows; }

/// As the server's library reads what there is, the client sends more.
EXPORTED ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
    const ssize_t count = recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
    SendMore();
    return count;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Server server;
    if (size < 2) {
        return 0;
    }
    g_calls = 0;
    Log().clear();
    const std::string input(data + 1, data + size);
    g_unsent = input;
    g_sendSize = data[0] != 0 ? data[0] : input.size();
    const FileDescriptor client = server.Connect();
    g_client = client.Get();
    SendMore();
    // Readable as soon as the server has closed the connection.
    const FileDescriptor closing(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event = {EPOLLRDHUP, {}};
    epoll_ctl(closing.Get(), EPOLL_CTL_ADD, client.Get(), &event);
    KIVO::Host::HttpServer(server.module, server.page, server.listener.Get())
        .Run(closing.Get(), closing.Get());

    std::string answers;
    char chunk[65536];
    for (ssize_t count = 0; (count = read(client.Get(), chunk, sizeof chunk)) > 0;) {
        answers.append(chunk, static_cast<std::size_t>(count));
    }
    ExpectEqual("answers", "", FirstWrong(answers));
    ExpectEqual("log", "", Log());
    ExpectEqual("token in an answer", "0", std::to_string(answers.find(kToken) != std::string::npos));
    if (g_calls > 0) {
        std::string lower = input;
        std::ranges::transform(lower, lower.begin(), [](unsigned char byte) { return std::tolower(byte); });
        const std::size_t header = lower.find("\nauthorization:");
        const std::size_t token = input.find(kToken, header);
        ExpectEqual("a call without a token", "0",
                    std::to_string(header == std::string::npos || token == std::string::npos));
    }
    return 0;
}

}  // extern "C"
