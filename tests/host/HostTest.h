#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <json/reader.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/kivocore/FileDescriptor.h"
#include "tests/support/ApplianceRoot.h"

namespace KIVO::Test {

/// The token of the user alice, an administrator.
inline constexpr char kToken[] = "alices-secret-token";

/// Reads up to the end or the letter, which is left out.
inline std::string ReadUntil(std::optional<char> last, const Appliance::FileDescriptor& descriptor) {
    std::string text;
    for (char letter = 0; read(descriptor.Get(), &letter, 1) == 1 && letter != last;) {
        text += letter;
    }
    return text;
}

/// A running webapi-host with its output. The destructor ends it.
class HostProcess {
public:
    /// Standard error goes into the file. `prepare` runs in the process before the program does.
    HostProcess(std::vector<std::string> arguments, const std::string& logFile,
                const std::function<void()>& prepare = {}) {
        std::vector<char*> texts = {const_cast<char*>(WEBAPI_HOST)};
        for (std::string& argument : arguments) {
            texts.push_back(argument.data());
        }
        texts.push_back(nullptr);
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_output = Appliance::FileDescriptor(ends[0]);
        const Appliance::FileDescriptor writer(ends[1]);
        m_pid = fork();
        if (m_pid == 0) {
            const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC;
            dup2(writer.Get(), STDOUT_FILENO);
            dup2(open(logFile.c_str(), flags, 0644), STDERR_FILENO);
            if (prepare) {
                prepare();
            }
            execv(WEBAPI_HOST, texts.data());
            _exit(127);
        }
    }

    ~HostProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            Wait();
        }
    }

    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    /// Reads standard output up to its end or the letter.
    std::string Read(std::optional<char> last = {}) { return ReadUntil(last, m_output); }

    /// Waits for the process. Its exit status, or minus the signal that ended it.
    int Wait() {
        int status = 0;
        waitpid(std::exchange(m_pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    pid_t Pid() const { return m_pid; }

    std::vector<pid_t> Workers() const {
        const std::string pid = std::to_string(m_pid);
        std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
        return {std::istream_iterator<pid_t>(children), {}};
    }

private:
    Appliance::FileDescriptor m_output{-1};
    pid_t m_pid = -1;
};

struct HttpRequest {
    std::string path = "/webapi/Test/1/echo";
    std::string body = "{}";
    std::string method = "POST";
    std::string token = kToken;
    std::string scheme = "Bearer ";
    std::string contentType = "application/json";
    std::string language = {};
    std::string host = "localhost";
    std::string address = "127.0.0.1";
};

/// Its status is -1 when the connection broke.
struct HttpReply : httplib::Response {
    /// The body as JSON, null when it is none.
    Json::Value Envelope() const {
        Json::Value envelope;
        Json::Reader().parse(body, envelope);
        return envelope;
    }
};

/// A connection on which a test sends what it likes.
class RawConnection {
public:
    explicit RawConnection(int port) {
        const in_addr loopback = {htonl(INADDR_LOOPBACK)};
        const sockaddr_in address = {AF_INET, htons(static_cast<in_port_t>(port)), loopback, {}};
        EXPECT_EQ(connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    /// False when the other side has closed.
    bool Send(const std::string& bytes) const {
        return send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize(bytes);
    }

    /// Reads until the other side closes.
    std::string ReadAll() const { return ReadUntil({}, m_socket); }

private:
    Appliance::FileDescriptor m_socket{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

/// An appliance with the users alice (an administrator, German), bob (no token), carol and dave (one token
/// between them), catalogues in English and German and a folder for French.
class HostTest : public testing::Test {
protected:
    HostTest() {
        m_root.WriteUsers({
            {.name = "alice", .language = "ger", .groups = {"administrators"}, .token = kToken},
            {.name = "bob", .uid = 1027},
            {.name = "carol", .uid = 1028, .token = "shared-token"},
            {.name = "dave", .uid = 1029, .token = "shared-token"},
        });
        m_root.WriteCatalogue("enu", "[Tag]\nmessage=Text\n");
        m_root.WriteCatalogue("ger", "[Tag]\nmessage=Text\n");
        m_root.Write("/var/cache/texts/fre/other", "");
    }

    /// Starts the host with the test module, and with the ids of the test unless --account says otherwise.
    std::unique_ptr<HostProcess> Start(std::vector<std::string> arguments) const {
        for (const auto& [option, value] : {std::pair{"--account", "root"}, {"--module", TEST_MODULE}}) {
            if (std::ranges::find(arguments, option) == arguments.end()) {
                arguments.insert(arguments.end(), {option, value});
            }
        }
        return std::make_unique<HostProcess>(std::move(arguments), m_root.Path("/log"), m_prepare);
    }

    /// Starts "serve" on a free port and waits until it listens.
    void Serve(std::vector<std::string> arguments = {"--workers", "1"}) {
        arguments.insert(arguments.begin(), {"serve", "--port", "0"});
        m_host = Start(std::move(arguments));
        const std::string line = m_host->Read('\n');
        ASSERT_EQ(line.rfind("Listening on http://127.0.0.1:", 0), 0U) << line << Log();
        m_port = std::stoi(line.substr(line.rfind(':') + 1));
    }

    HttpReply Send(const HttpRequest& request = {}) const {
        httplib::Request message;
        message.method = request.method;
        message.path = request.path;
        message.headers = {{"Host", request.host},
                           {"Authorization", request.scheme + request.token},
                           {"Content-Type", request.contentType},
                           {"KIVO-Language", request.language}};
        message.body = request.body;
        httplib::Client client(request.address, m_port);
        client.set_read_timeout(std::chrono::minutes(1));
        httplib::Result result = client.send(message);
        return result ? HttpReply{std::move(*result)} : HttpReply{};
    }

    /// A call that waits until the FIFO, which is made here, has been opened for writing and closed.
    HttpReply Wait(const std::string& fifo) const {
        mkfifo(fifo.c_str(), 0600);
        return Send({.path = "/webapi/Test/1/wait", .body = R"({"fifo":")" + fifo + "\"}"});
    }

    /// What Test/1/echo answers, null when it does not.
    Json::Value Echo() const { return Send().Envelope()["data"]; }

    /// The bytes of a request to the method with the body.
    static std::string RawRequest(const std::string& body, const std::string& method = "Test/1/echo") {
        return "POST /webapi/" + method +
               std::string(" HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n") +
               "Authorization: Bearer " + kToken +
               "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    }

    /// The standard error of the last process started.
    std::string Log() const { return m_root.Read("/log").value_or(""); }
    bool HasLogged(const std::string& text) const { return Log().find(text) != std::string::npos; }

    ApplianceRoot m_root;
    std::function<void()> m_prepare;
    std::unique_ptr<HostProcess> m_host;
    int m_port = 0;
};

/// Asks again and again until the condition holds, at most for ten seconds. Whether it held.
template <typename Condition>
bool Eventually(Condition condition) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

}  // namespace KIVO::Test
