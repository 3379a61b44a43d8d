#include "webapi/APIResponse.h"

#include "platform/kivocore/Json.h"

namespace KIVO {

void APIResponse::SetSuccess(const Json::Value& data) {
    Keep(data);
    m_state = State::Success;
    m_errorCode = 0;
    ++m_answerCount;
}

void APIResponse::SetError(int code, const Json::Value& error) {
    Keep(error);
    m_state = State::Error;
    m_errorCode = code;
    ++m_answerCount;
}

void APIResponse::Keep(const Json::Value& data) {
    if (m_text != nullptr) {
        *m_text = Appliance::WriteJson(data);
    } else {
        m_data = data;
    }
}

}  // namespace KIVO
