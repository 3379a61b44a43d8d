#include "host/Serve.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/HttpServer.h"
#include "host/Memory.h"
#include "host/Router.h"
#include "host/ServiceManager.h"
#include "host/Supervisor.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

/// A non-blocking socket that listens on the loopback address.
Appliance::FileDescriptor Listen(const std::string& ip, std::uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
    address.sin_port = htons(port);
    const int on = 1;

    Appliance::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0) {
        throw std::runtime_error("Cannot listen on " + ip + ":" + std::to_string(port) + ": " +
                                 std::strerror(errno) + ".");
    }
    return listener;
}

/// "ADDRESS:PORT" of a listening socket.
std::string NameOf(const Appliance::FileDescriptor& listener) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    char ip[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, ip, sizeof ip);
    return std::string(ip) + ":" + std::to_string(ntohs(address.sin_port));
}

bool IsReadable(const std::string& path) { return faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0; }

/// Warns of what is not as the superuser needs it.
void CheckAsSuperuser() {
    const std::string usersFile = Appliance::Rooted(Appliance::kUsersPath);
    struct stat status {};
    if (stat(usersFile.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0) {
        syslog(LOG_WARNING, "Every account can read %s and so sign in as anyone: run chmod o-r on it.",
               usersFile.c_str());
    }
    const std::string database = Appliance::Rooted(Appliance::kDatabasePath);
    if (!IsReadable(database)) {
        syslog(LOG_WARNING, "There is no notification database at %s that can be read.", database.c_str());
    }
}

/// Warns of what the account must be able to read.
void CheckAsAccount(const Account& account) {
    if (const auto folder = FirstClosedFolder(Appliance::Rooted("/"))) {
        syslog(
            LOG_WARNING,
            "The account %s cannot enter %s: run chmod o+x on it, or put the appliance elsewhere and name it "
            "with --root.",
            account.name.c_str(), folder->c_str());
        return;
    }
    if (Appliance::LoadUsers()->empty()) {
        syslog(LOG_WARNING, "No one can sign in: there are no users in %s, or it cannot be read.",
               Appliance::Rooted(Appliance::kUsersPath).c_str());
    }
    const std::string catalogue = Appliance::CataloguePath("enu");
    if (!IsReadable(catalogue)) {
        syslog(LOG_WARNING, "There is no English text catalogue at %s that can be read.", catalogue.c_str());
    }
}

/// A pipe that is full as nobody reads it would hold up whoever logs: its own way into it drops lines
/// instead. Anything else that the starter gave stays as it is, for the starter shares it.
void LetOutputHoldNoOneUp() {
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        struct stat status {};
        if (fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode)) {
            const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
            const Appliance::FileDescriptor own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            if (own.IsOpen()) {
                dup2(own.Get(), descriptor);
            }
        }
    }
}

/// A descriptor that is readable when this worker alone is told to end.
Appliance::FileDescriptor StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return Appliance::FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

}  // namespace

void Serve(const Module& module, const ServeOptions& options) {
    assert(IsLoopback(options.address));
    LetOutputHoldNoOneUp();
    const Page page = ReadPage(options.pageFolder);
    if (page.empty()) {
        syslog(LOG_WARNING, "There is no notification centre page in %s.", options.pageFolder.c_str());
    }
    std::optional<Appliance::FileDescriptor> passed = TakeListener();
    const Appliance::FileDescriptor listener =
        passed ? *std::move(passed) : Listen(options.address, options.port);
    LimitDescriptors(kDescriptorsForConnections + kOtherDescriptors);

    // From here on the supervisor has the account's ids too: the workers are born with them, and its real and
    // saved ids let it signal them all the same.
    LimitCapabilities();
    CheckAsSuperuser();
    Become(options.account);
    CheckAsAccount(options.account);

    // Neither a reader of the log nor a client that goes away may end a worker.
    std::signal(SIGPIPE, SIG_IGN);
    const auto work = [&](int lifeline, Activity& activity) {
        KeepFreedMemory();
        LimitMemory();
        const Appliance::FileDescriptor stopSignals = StopSignals();
        const Router router(module, page, activity, options.router);
        ServeHttp(router, listener.Get(), stopSignals.Get(), lifeline,
                  {options.shouldLogRequests, [] { TellServiceManager("READY=1"); }});
    };
    const auto nameCall = [&module](int call) -> std::string {
        const std::size_t i = static_cast<std::size_t>(call) - 1;
        if (i >= module.Rows().size()) {
            return "of no method";
        }
        const APITableRow& row = module.Rows()[i];
        return std::string(row.api) + "/" + std::to_string(row.version) + "/" + row.method;
    };
    Supervisor supervisor(options.workerCount, work, nameCall);
    std::cout << "Listening on http://" << NameOf(listener) << std::endl;
    supervisor.Run();
}

}  // namespace KIVO::Host
