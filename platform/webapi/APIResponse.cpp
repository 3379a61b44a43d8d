#include "webapi/APIResponse.h"

namespace KIVO {

void APIResponse::SetSuccess(const Json::Value& data) {
    m_data = data;
    m_state = State::Success;
    m_errorCode = 0;
    ++m_answerCount;
}

void APIResponse::SetError(int code, const Json::Value& error) {
    m_data = error;
    m_state = State::Error;
    m_errorCode = code;
    ++m_answerCount;
}

}  // namespace KIVO
