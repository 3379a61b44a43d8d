#include "host/Dispatch.h"

#include <syslog.h>

#include <cassert>
#include <exception>

#include "host/Refusal.h"
#include "platform/kivocore/Json.h"
#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"

namespace KIVO::Host {

namespace {

constexpr char kNoAnswer[] = "The method failed and gave no answer.";

/// Lets the method answer. True when its check function accepted the request.
[[nodiscard]] bool Call(const Method& method, APIRequest& request, APIResponse& response) {
    std::string thrown = "something that is no std::exception";
    try {
        if (!method.check(&request, &response)) {
            return false;
        }
        method.row->handler(&request, &response);
        return true;
    } catch (const std::exception& exception) {
        thrown = exception.what();
    } catch (...) {
    }
    syslog(LOG_ERR, "%s/%llu/%s threw: %s", method.row->api,
           static_cast<unsigned long long>(method.row->version), method.row->method, thrown.c_str());
    throw Refusal(500, kNoAnswer);
}

}  // namespace

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

std::string SuccessEnvelope(const std::string& data) { return R"({"data":)" + data + R"(,"success":true})"; }

std::string ErrorEnvelope(int code, const std::string& data) {
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"data":)" + data + R"(},"success":false})";
}

std::string Dispatch(const Method& method, const Caller& caller, const std::string& body) {
    assert(method.row && method.check);
    APIRequest request(ParseParameters(body), caller.userName, caller.language, caller.isAdmin);
    std::string data;
    APIResponse response(&data);
    const bool accepted = Call(method, request, response);
    if (response.GetState() == APIResponse::State::Error) {
        return ErrorEnvelope(response.GetErrorCode(), data);
    }
    // What a method has to say about giving none is in its own log lines.
    if (!accepted || response.GetState() == APIResponse::State::Unset) {
        throw Refusal(500, kNoAnswer);
    }
    return SuccessEnvelope(data);
}

}  // namespace KIVO::Host
