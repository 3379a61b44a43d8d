#include "tests/host/HostTest.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <json/reader.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace KIVO::Test {

HostProcess::HostProcess(const std::vector<std::string>& arguments, const std::string& logFile) {
    std::vector<char*> texts = {const_cast<char*>(WEBAPI_HOST)};
    for (const std::string& argument : arguments) {
        texts.push_back(const_cast<char*>(argument.c_str()));
    }
    texts.push_back(nullptr);

    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    m_output = Appliance::FileDescriptor(ends[0]);
    const Appliance::FileDescriptor writer(ends[1]);
    const Appliance::FileDescriptor log(
        open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644));
    m_pid = fork();
    if (m_pid == 0) {
        dup2(writer.Get(), STDOUT_FILENO);
        dup2(log.Get(), STDERR_FILENO);
        execv(WEBAPI_HOST, texts.data());
        _exit(127);
    }
}

HostProcess::~HostProcess() {
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        Wait();
    }
}

std::string HostProcess::ReadLine() {
    std::string line;
    for (char letter = 0; read(m_output.Get(), &letter, 1) == 1 && letter != '\n';) {
        line += letter;
    }
    return line;
}

std::string HostProcess::ReadAll() {
    std::string text;
    char buffer[4096];
    for (ssize_t size; (size = read(m_output.Get(), buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    return text;
}

int HostProcess::Wait() {
    int status = 0;
    waitpid(std::exchange(m_pid, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::vector<pid_t> HostProcess::Workers() const {
    const std::string pid = std::to_string(m_pid);
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    return {std::istream_iterator<pid_t>(children), {}};
}

std::string HttpReply::Header(const std::string& name) const {
    const auto header = headers.find(name);
    return header == headers.end() ? "" : header->second;
}

Json::Value HttpReply::Envelope() const {
    Json::Value envelope;
    Json::Reader().parse(body, envelope);
    return envelope;
}

RawConnection::RawConnection(int port) : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

bool RawConnection::Send(const std::string& bytes) const {
    return send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

std::string RawConnection::ReadAll() const {
    std::string text;
    char buffer[4096];
    for (ssize_t size; (size = recv(m_socket.Get(), buffer, sizeof buffer, 0)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    return text;
}

HostTest::HostTest() {
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

std::unique_ptr<HostProcess> HostTest::Start(std::vector<std::string> arguments) const {
    if (std::ranges::find(arguments, "--account") == arguments.end()) {
        arguments.insert(arguments.end(), {"--account", "root"});
    }
    if (std::ranges::find(arguments, "--module") == arguments.end()) {
        arguments.insert(arguments.end(), {"--module", TEST_MODULE});
    }
    return std::make_unique<HostProcess>(arguments, m_root.Path("/log"));
}

void HostTest::Serve(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"serve", "--port", "0"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    m_host = Start(all);
    const std::string line = m_host->ReadLine();
    ASSERT_EQ(line.rfind("Listening on http://127.0.0.1:", 0), 0U) << line << Log();
    m_port = std::stoi(line.substr(line.rfind(':') + 1));
}

HttpReply HostTest::Send(const HttpRequest& request) const {
    httplib::Request message;
    message.method = request.method;
    message.path = request.path;
    const auto setHeader = [&message](const char* name, const std::string& value) {
        if (!value.empty()) {
            message.headers.emplace(name, value);
        }
    };
    setHeader("Authorization", request.token.empty() ? "" : "Bearer " + request.token);
    setHeader("KIVO-Language", request.language);
    setHeader("Content-Type", request.contentType);
    if (request.isChunked) {
        setHeader("Transfer-Encoding", "chunked");
        message.is_chunked_content_provider_ = true;
        message.content_provider_ = [&request](std::size_t, std::size_t, httplib::DataSink& sink) {
            sink.write(request.body.data(), request.body.size());
            sink.done();
            return true;
        };
    } else {
        message.body = request.body;
    }
    httplib::Client client("127.0.0.1", m_port);
    client.set_read_timeout(std::chrono::minutes(1));
    const httplib::Result result = client.send(message);
    if (!result) {
        return {};
    }
    return {result->status, {result->headers.begin(), result->headers.end()}, result->body};
}

std::string HostTest::RawRequest(const std::string& method, const std::string& body) {
    return "POST /webapi/Test/1/" + method + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
           "Authorization: Bearer " + kToken +
           "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

}  // namespace KIVO::Test
