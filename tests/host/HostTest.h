#pragma once

#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/kivocore/FileDescriptor.h"
#include "tests/support/ApplianceRoot.h"

namespace KIVO::Test {

/// The token of the user alice, an administrator.
inline constexpr char kToken[] = "alices-secret-token";

/// A running webapi-host with its output. The destructor ends it.
class HostProcess {
public:
    /// Standard error goes into the file.
    HostProcess(const std::vector<std::string>& arguments, const std::string& logFile);
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    /// Reads standard output up to its next line end or its own.
    std::string ReadLine();
    /// Reads standard output up to its end.
    std::string ReadAll();
    /// Waits for the process. Its exit status, or minus the signal that ended it.
    int Wait();

    pid_t Pid() const { return m_pid; }
    std::vector<pid_t> Workers() const;

private:
    Appliance::FileDescriptor m_output{-1};
    pid_t m_pid = -1;
};

struct HttpRequest {
    std::string path = "/webapi/Test/1/echo";
    std::string body = "{}";
    std::string method = "POST";
    std::string token = kToken;
    std::string contentType = "application/json";
    std::string language = {};
    bool isChunked = false;
};

struct HttpReply {
    /// 0 when the connection broke.
    int status = 0;
    std::multimap<std::string, std::string> headers = {};
    std::string body = {};

    std::string Header(const std::string& name) const;
    /// The body as JSON; null when it is none.
    Json::Value Envelope() const;
};

/// A connection on which a test sends what it likes.
class RawConnection {
public:
    explicit RawConnection(int port);
    /// False when the other side has closed.
    bool Send(const std::string& bytes) const;
    /// Reads until the other side closes.
    std::string ReadAll() const;

private:
    Appliance::FileDescriptor m_socket;
};

/// An appliance with the users alice (an administrator, German), bob (no token), carol and dave (one token
/// between them), catalogues in English and German and a folder for French.
class HostTest : public testing::Test {
protected:
    HostTest();

    /// Starts the host with the test module, and with the ids of the test unless --account says otherwise.
    std::unique_ptr<HostProcess> Start(std::vector<std::string> arguments) const;
    /// Starts "serve" on a free port and waits until it listens.
    void Serve(const std::vector<std::string>& arguments = {"--workers", "1"});

    HttpReply Send(const HttpRequest& request = {}) const;
    /// What Test/1/echo answers, null when it does not.
    Json::Value Echo() const { return Send().Envelope()["data"]; }
    /// The bytes of a request to the method with the body.
    static std::string RawRequest(const std::string& method, const std::string& body);

    /// The standard error of the last process started.
    std::string Log() const { return m_root.Read("/log").value_or(""); }

    ApplianceRoot m_root;
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
