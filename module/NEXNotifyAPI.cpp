#include "module/NEXNotifyAPI.h"

#include <cassert>

namespace KIVO::NEXNotify {

NEXNotifyAPIBase::NEXNotifyAPIBase(APIRequest* request, APIResponse* response)
    : m_request(request), m_response(response) {
    assert(m_request != nullptr && m_response != nullptr);
}

void NEXNotifyAPIBase::Run() {
    assert(m_error.isNull() && m_result.isNull());  // as they are until the first run
    int code = ParseParams();
    if (code == 0) {
        code = Execute();
    }
    if (code == 0) {
        code = FormOutput();
    }
    if (code != 0) {
        m_response->SetError(code, m_error);
    } else {
        m_response->SetSuccess(m_result);
    }
}

// The signature is the one that derived classes override.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Json::Value NEXNotifyAPIBase::FormError(std::string sec, std::string key, int line) {
    Json::Value error(Json::objectValue);
    error["sec"] = sec;
    error["key"] = key;
    if (line >= 0) {
        error["line"] = line;
    }
    return error;
}

}  // namespace KIVO::NEXNotify
