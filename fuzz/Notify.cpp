// Any JSON object as the parameters of method "notify", through its check function and, whatever that says,
// through its handler: both must answer as the plain rules below say, and log nothing.

#include <tuple>

#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"

namespace {

bool IsInteger(const Json::Value& value) { return value.isInt() && value.type() != Json::realValue; }

/// What the check function should answer.
std::string PlainCheck(const Json::Value& parameters) {
    const Json::Value& action = parameters["action"];
    const bool isKnown = action == "load" || action == "apply" || action == "loadHaveNtAppList";
    const std::tuple<bool, std::string, std::string> rules[] = {
        {parameters.get("lastRead", 0).isNumeric(), "lastRead", "type"},
        {parameters.get("all", false).isBool(), "all", "type"},
        {IsInteger(parameters.get("limit", 0)), "limit", "type"},
        {IsInteger(parameters.get("start", 0)), "start", "type"},
        {parameters.get("clean", "").isString(), "clean", "type"},
        {parameters.get("action", "").isString(), "action", "type"},
        {parameters.isMember("action"), "action", "required"},
        {action != "apply" || parameters["clean"] == "all", "clean", "condition"},
        {isKnown, "action", "condition"}};
    for (const auto& [isKept, name, reason] : rules) {
        if (!isKept) {
            return R"(1 times, error 120: {"name":")" + name + R"(","reason":")" + reason + "\"}";
        }
    }
    return "0 times, error 0: null";
}

/// What the handler should answer.
std::string PlainNotify(const Json::Value& parameters) {
    const auto converts = [&](const char* name, Json::ValueType type) {
        return parameters[name].isConvertibleTo(type);
    };
    if (!converts("action", Json::stringValue) || !converts("clean", Json::stringValue) ||
        !converts("offset", Json::intValue) || !converts("limit", Json::intValue) ||
        !converts("all", Json::booleanValue)) {
        return R"(1 times, error 117: {"key":"error_system","line":83,"sec":"common"})";
    }
    const std::string action = parameters["action"].asString();
    if (action == "load") {
        return KIVO::Fuzz::Success(KIVO::Fuzz::PlainLoad(parameters));
    }
    if (action == "apply") {
        return KIVO::Fuzz::Success(Json::Value());
    }
    return action == "loadHaveNtAppList"
               ? R"(1 times, error 0: {"items":[],"total":0})"
               : R"(1 times, error 101: {"key":"error_system","line":106,"sec":"common"})";
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    if (storedRows.empty()) {
        storedRows = {R"({"title":"Known","time":1})", R"({"title":"Hidden","time":2})",
                      R"({"title":"Known"})", R"({"title":"Known","time":3})"};
        Root().Write("/var/cache/texts/enu/notification_category", "{}");
    }
    Root().Write("/var/log/kivo/events.jsonl", "");
    Json::Value parameters;
    if (!Appliance::ParseJson(input, parameters) || !parameters.isObject()) {
        return;
    }
    APIRequest request(parameters, "alice", "enu", false);
    APIResponse checked;
    APIResponse answered;
    Expect("acceptance", NEXNotify_1_notify_Check(&request, &checked) == (checked.GetAnswerCount() == 0));
    NEXNotify_1_notify(&request, &answered);
    ExpectEqual("check", PlainCheck(parameters), Text(checked));
    ExpectEqual("answer", PlainNotify(parameters), Text(answered));
    ExpectEqual("log", "", Logged());
}
