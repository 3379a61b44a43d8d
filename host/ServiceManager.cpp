#include "host/ServiceManager.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace KIVO::Host {

namespace {

constexpr int kFirstPassed = 3;

std::string Variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

int Option(int socket, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

bool ListensOnLoopback(int socket) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    return Option(socket, SO_DOMAIN) == AF_INET && Option(socket, SO_TYPE) == SOCK_STREAM &&
           Option(socket, SO_ACCEPTCONN) == 1 &&
           getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           ntohl(address.sin_addr.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

}  // namespace

std::optional<Appliance::FileDescriptor> TakeListener() {
    const std::string process = Variable("LISTEN_PID");
    const std::string count = Variable("LISTEN_FDS");
    for (const char* const name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
        unsetenv(name);
    }
    if (process != std::to_string(getpid())) {
        return std::nullopt;  // meant for whoever started this process, if anybody
    }
    if (count != "1" || !ListensOnLoopback(kFirstPassed)) {
        throw std::runtime_error(
            "The service manager is to pass one socket that listens on a loopback address (127.0.0.0/8).");
    }
    fcntl(kFirstPassed, F_SETFD, FD_CLOEXEC);
    fcntl(kFirstPassed, F_SETFL, O_NONBLOCK);
    return Appliance::FileDescriptor(kFirstPassed);
}

void TellServiceManager(const char* state) {
    const std::string path = Variable("NOTIFY_SOCKET");
    sockaddr_un address = {AF_UNIX, {}};
    if (path.size() < 2 || path.size() > sizeof address.sun_path) {
        return;
    }
    path.copy(address.sun_path, path.size());
    if (path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const std::string_view text = state;
    const Appliance::FileDescriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::size_t size = offsetof(sockaddr_un, sun_path) + path.size();
    sendto(manager.Get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
           reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size));
}

bool IsStandardErrorTheJournal() {
    struct stat status {};
    return fstat(STDERR_FILENO, &status) == 0 &&
           Variable("JOURNAL_STREAM") == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

}  // namespace KIVO::Host
