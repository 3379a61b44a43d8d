#include "notify/Notify.h"

#include <exception>

#include "module/Actions.h"
#include "module/ErrorCodes.h"
#include "module/RunAs.h"
#include "module/SourceLines.h"

namespace KIVO::NEXNotify {

Notify::Notify(APIRequest* request, APIResponse* response)
    : NEXNotifyAPIBase(request, response), m_userName(request->GetLoginUserName()) {}

int Notify::ParseParams() {
    try {
        m_action = m_request->GetParam("action", Json::Value("")).asString();
        m_clean = m_request->GetParam("clean", Json::Value("")).asString();
        m_offset = m_request->GetParam("offset", Json::Value(0)).asInt();
        m_limit = m_request->GetParam("limit", Json::Value(0)).asInt();
        m_all = m_request->GetParam("all", Json::Value(false)).asBool();
    } catch (const std::exception&) {
        m_error = FormError("common", "error_system", SourceLines::kParametersNotConverted);
        return kErrorSystem;
    }
    return kSuccess;
}

int Notify::Execute() {
    if (m_action == KIVO_ACTION_LOAD) {
        IF_RUN_AS2("root", SourceLines::kRunLoadAsRoot) { return ExecuteLoad(); }
        return kErrorSystem;
    }
    if (m_action == KIVO_ACTION_APPLY) {
        IF_RUN_AS2("root", SourceLines::kRunApplyAsRoot) { return ExecuteApply(); }
        return kErrorSystem;
    }
    if (m_action == KIVO_ACTION_CATEGORIES) {
        return ExecuteLoadHaveNtAppList();
    }
    m_error = FormError("common", "error_system", SourceLines::kUnknownAction);
    return kErrorBadRequest;
}

}  // namespace KIVO::NEXNotify
