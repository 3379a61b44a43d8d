#pragma once

#include <json/value.h>

#include <string>

#include "kivocore/Export.h"

namespace KIVO {

/// The answer to one request. A handler sets it once; the server sends it. For one thread
/// at a time.
class KIVO_PUBLIC APIResponse {
public:
    enum class State { Unset, Success, Error };

    /// Keeps a copy of the data; or with a text, which it borrows, writes it there as JSON and no data.
    explicit APIResponse(std::string* text = nullptr) : m_text(text) {}

    /// Answers with success and a copy of `data`.
    void SetSuccess(const Json::Value& data);
    /// Answers with an error code of the web-API framework and a copy of `error`.
    void SetError(int code, const Json::Value& error);

    /// What has been set; when both were, the last one.
    State GetState() const { return m_state; }
    /// The error code; 0 unless the state is Error.
    int GetErrorCode() const { return m_errorCode; }
    /// The success data or the error data; null while nothing is set.
    const Json::Value& GetData() const { return m_data; }
    /// How often an answer was set.
    int GetAnswerCount() const { return m_answerCount; }

private:
    void Keep(const Json::Value& data);

    std::string* m_text;
    State m_state = State::Unset;
    int m_errorCode = 0;
    int m_answerCount = 0;
    Json::Value m_data;
};

}  // namespace KIVO
