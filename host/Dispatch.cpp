#include "host/Dispatch.h"

#include <syslog.h>

#include <exception>

#include "host/Refusal.h"
#include "platform/kivocore/Json.h"
#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"

namespace KIVO::Host {

namespace {

Json::Value ParseParameters(const std::string& body) {
    if (body.empty()) {
        throw Refusal(400, "The request has no body: send {} when there are no parameters.");
    }
    Json::Value parameters;
    std::string error;
    if (!Appliance::ParseJson(body, parameters, &error)) {
        throw Refusal(400, error);
    }
    if (!parameters.isObject()) {
        throw Refusal(400, "The body is not a JSON object.");
    }
    return parameters;
}

[[noreturn]] void RefuseForMethod(const APITableRow& row, const char* fault) {
    syslog(LOG_ERR, "%s/%llu/%s %s", row.api, static_cast<unsigned long long>(row.version), row.method,
           fault);
    throw Refusal(500, "The method failed and gave no answer.");
}

/// Lets the method answer. True when its check function accepted the request.
bool Call(const Method& method, APIRequest& request, APIResponse& response) {
    std::string fault = "threw something that is no std::exception";
    try {
        if (!method.check(&request, &response)) {
            return false;
        }
        method.row->handler(&request, &response);
        return true;
    } catch (const std::exception& exception) {
        fault = std::string("threw: ") + exception.what();
    } catch (...) {
    }
    RefuseForMethod(*method.row, fault.c_str());
}

}  // namespace

Json::Value SuccessEnvelope(const Json::Value& data) {
    Json::Value envelope(Json::objectValue);
    envelope["success"] = true;
    envelope["data"] = data;
    return envelope;
}

Json::Value ErrorEnvelope(int code, const Json::Value& data) {
    Json::Value envelope(Json::objectValue);
    envelope["success"] = false;
    envelope["error"]["code"] = code;
    envelope["error"]["data"] = data;
    return envelope;
}

Json::Value Dispatch(const Method& method, const Caller& caller, const std::string& body) {
    APIRequest request(ParseParameters(body), caller.userName, caller.language, caller.isAdmin);
    APIResponse response;
    const bool accepted = Call(method, request, response);
    if (response.GetState() == APIResponse::State::Error) {
        return ErrorEnvelope(response.GetErrorCode(), response.GetData());
    }
    if (!accepted) {
        RefuseForMethod(*method.row, "was refused by its check function without an answer");
    }
    if (response.GetState() == APIResponse::State::Unset) {
        RefuseForMethod(*method.row, "set no answer");
    }
    return SuccessEnvelope(response.GetData());
}

}  // namespace KIVO::Host
