#pragma once

#include <stdexcept>
#include <string>

namespace KIVO::Host {

/// Ends a request that the host answers in the module's place. What() is one sentence for the client; it
/// repeats no path and no header, so that a token never ends up in an answer.
class Refusal : public std::runtime_error {
public:
    /// `status` is the HTTP status, `allow` for status 405 the methods that the path takes.
    Refusal(unsigned status, const std::string& sentence, const char* allow = nullptr)
        : std::runtime_error(sentence), m_status(status), m_allow(allow) {}

    unsigned Status() const { return m_status; }
    const char* Allow() const { return m_allow; }

private:
    unsigned m_status;
    const char* m_allow;
};

}  // namespace KIVO::Host
