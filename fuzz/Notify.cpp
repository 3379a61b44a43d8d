// Any JSON object as the parameters of method "notify", through its check function and, whatever that says,
// through its handler: both must answer as the plain rules below say.

#include <tuple>

#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"

using KIVO::APIResponse;

namespace {

/// The answer of the check function.
APIResponse PlainCheck(const Json::Value& parameters) {
    const auto isWrong = [&](const char* name, bool (Json::Value::*hasType)() const) {
        return parameters.isMember(name) && !(parameters[name].*hasType)();
    };
    const auto isNoInteger = [&](const char* name) {
        return isWrong(name, &Json::Value::isInt) || parameters[name].type() == Json::realValue;
    };
    const Json::Value& action = parameters["action"];
    const bool isKnown = action == "load" || action == "apply" || action == "loadHaveNtAppList";
    const std::tuple<bool, const char*, const char*> rules[] = {
        {isWrong("lastRead", &Json::Value::isNumeric), "lastRead", "type"},
        {isWrong("all", &Json::Value::isBool), "all", "type"},
        {isNoInteger("limit"), "limit", "type"},
        {isNoInteger("start"), "start", "type"},
        {isWrong("clean", &Json::Value::isString), "clean", "type"},
        {isWrong("action", &Json::Value::isString), "action", "type"},
        {!parameters.isMember("action"), "action", "required"},
        {action == "apply" && parameters["clean"] != "all", "clean", "condition"},
        {!isKnown, "action", "condition"}};
    APIResponse response;
    for (const auto& [isBroken, name, reason] : rules) {
        if (isBroken && response.GetAnswerCount() == 0) {
            Json::Value refusal;
            refusal["name"] = name;
            refusal["reason"] = reason;
            response.SetError(120, refusal);
        }
    }
    return response;
}

/// The answer of the handler.
APIResponse PlainNotify(const Json::Value& parameters) {
    APIResponse response;
    Json::Value answer;
    const auto fail = [&](int code, int line) {
        answer["sec"] = "common";
        answer["key"] = "error_system";
        answer["line"] = line;
        response.SetError(code, answer);
        return response;
    };
    const auto isWrong = [&](const char* name, Json::ValueType type) {
        return !parameters[name].isConvertibleTo(type);
    };
    if (isWrong("action", Json::stringValue) || isWrong("clean", Json::stringValue) ||
        isWrong("offset", Json::intValue) || isWrong("limit", Json::intValue) ||
        isWrong("all", Json::booleanValue)) {
        return fail(117, 83);
    }
    const std::string action = parameters["action"].asString();
    if (action == "load") {
        answer = KIVO::Fuzz::PlainLoad(parameters);
    } else if (action == "loadHaveNtAppList") {
        answer["items"] = Json::Value(Json::arrayValue);
        answer["total"] = 0;
    } else if (action != "apply") {
        return fail(101, 106);
    }
    response.SetSuccess(answer);
    return response;
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    if (StoredRows().empty()) {
        StoredRows() = {R"({"title":"Known","time":1})", R"({"title":"Hidden","time":2})",
                        R"({"title":"Known"})", R"({"title":"Known","time":3})"};
        Root().Write("/var/cache/texts/enu/notification_category", "{}");
    }
    Json::Value parameters;
    if (!Appliance::ParseJson(input, parameters) || !parameters.isObject()) {
        return;
    }
    APIRequest request(parameters, "alice", "enu", false);
    APIResponse checked;
    APIResponse answered;
    Expect("acceptance", NEXNotify_1_notify_Check(&request, &checked) == (checked.GetAnswerCount() == 0));
    NEXNotify_1_notify(&request, &answered);
    ExpectEqual("check", Text(PlainCheck(parameters)), Text(checked));
    ExpectEqual("answer", Text(PlainNotify(parameters)), Text(answered));
    ExpectEqual("log", "", Log());
}
