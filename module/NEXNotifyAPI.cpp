#include "module/NEXNotifyAPI.h"

#include <utility>

namespace KIVO::NEXNotify {

NEXNotifyAPIBase::NEXNotifyAPIBase(APIRequest* request, APIResponse* response)
    : m_request(request), m_response(response) {}

void NEXNotifyAPIBase::Run() {
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

Json::Value NEXNotifyAPIBase::FormError(std::string sec, std::string key, int line) {
    Json::Value error(Json::objectValue);
    error["sec"] = std::move(sec);
    error["key"] = std::move(key);
    if (line >= 0) {
        error["line"] = line;
    }
    return error;
}

}  // namespace KIVO::NEXNotify
