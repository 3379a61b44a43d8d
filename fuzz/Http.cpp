// Any bytes as what a client sends to the host's HTTP server. Every answer must be whole and of a known
// status, nobody's token may be in an answer or in the log, and no handler is called unless the right header
// has one. The first byte of an input is how many bytes the server reads at a time; 0: all at once.

#include <regex.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cctype>
#include <cstdio>
#include <string_view>

#include "fuzz/Support.h"
#include "host/HttpServer.h"
#include "platform/kivocore/FileDescriptor.h"

using KIVO::Appliance::FileDescriptor;

namespace {

/// What the client has yet to send, and how much of it at a time.
int g_client;
std::string_view g_unsent;
std::size_t g_sendSize;

/// The end of the client's bytes goes by itself: with the last ones at once, the server's library would not
/// see it.
void SendMore() {
    const std::string_view next = g_unsent.substr(0, g_sendSize);
    if (next.empty()) {
        shutdown(g_client, SHUT_WR);
    }
    send(g_client, next.data(), next.size(), MSG_NOSIGNAL);
    g_unsent.remove_prefix(next.size());
}

/// An answer of a known status with the caller's name, a refusal by the host, the page, what the server's
/// library has to say, or, as to HEAD, no body.
constexpr char kAnswer[] =
    "^HTTP/1\\.[01] (100|200|400|401|404|405|413|414|415|421|431|501|505) [^\r]*\r\n([^\r]+\r\n)*\r\n"
    R"((\{"data":("alice"|\{[^}]*\}),"success":true\}|)"
    R"(\{"error":\{"code":\1,"data":"([^"\]|\\.)*"\},"success":false\}|)"
    "<p>page</p>|<html>[^\r]*</html>)?";

}  // namespace

/// As the server's library reads what there is, the client sends more.
extern "C" KIVO_PUBLIC ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
    const ssize_t count = recvfrom(descriptor, buffer, size, flags, nullptr, nullptr);
    SendMore();
    return count;
}

void KIVO::Fuzz::Try(const std::string& input) {
    Root();
    static const FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Unlike a port, such a name is free again at once.
    static sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    static auto* const name = reinterpret_cast<sockaddr*>(&address);
    if (address.sun_path[1] == '\0') {
        std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "fuzz_http %d", getpid());
        Expect("bind", bind(listener.Get(), name, sizeof address) == 0 && listen(listener.Get(), 1) == 0);
    }
    g_unsent = std::string_view(input).substr(input.empty() ? 0 : 1);
    g_sendSize = input[0] != 0 ? static_cast<unsigned char>(input[0]) : input.size();
    const FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Expect("connect", connect(client.Get(), name, sizeof address) == 0);
    g_client = client.Get();
    SendMore();
    // Readable as soon as the server has closed the connection.
    const FileDescriptor closing(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event = {EPOLLRDHUP, {}};
    epoll_ctl(closing.Get(), EPOLL_CTL_ADD, client.Get(), &event);
    Host::ServeHttp(Router(), listener.Get(), closing.Get(), closing.Get());

    std::string answers;
    char chunk[65536];
    for (ssize_t count = 0; (count = read(client.Get(), chunk, sizeof chunk)) > 0;) {
        answers.append(chunk, static_cast<std::size_t>(count));
    }
    ExpectEqual("log", "", Logged());
    Expect("no token in an answer", answers.find(kToken) == answers.npos);
    static regex_t expected;
    static const bool isCompiled = regcomp(&expected, kAnswer, REG_EXTENDED) == 0;
    Expect("expression", isCompiled);
    for (regmatch_t match; regexec(&expected, answers.c_str(), 1, &match, 0) == 0;) {
        answers.erase(0, static_cast<std::size_t>(match.rm_eo));
    }
    ExpectEqual("answers that are not as they should be", "", answers);
    constexpr std::string_view kHeader = "\nauthorization:";
    const auto header =
        std::search(input.begin(), input.end(), kHeader.begin(), kHeader.end(),
                    [](unsigned char byte, char expectedByte) { return std::tolower(byte) == expectedByte; });
    const bool hasToken = std::string(header, input.end()).find(kToken) != input.npos;
    Expect("no call without a token", calls == 0 || hasToken);
}
