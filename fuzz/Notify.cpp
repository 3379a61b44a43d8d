// Any JSON object as the parameters of method "notify", through its check function and, whatever that says,
// through its handler: both must answer as the plain rules below say.

#include <initializer_list>

#include "fuzz/StoredRows.h"
#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"
#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"
#include "tests/support/PlainLoad.h"

using namespace KIVO::Fuzz;
using KIVO::APIResponse;

namespace {

const std::initializer_list<const char*> kActions = {"load", "apply", "loadHaveNtAppList"};

/// The answer of the check function.
APIResponse PlainCheck(const Json::Value& parameters) {
    APIResponse response;
    const auto refuse = [&](const char* name, const char* reason) {
        Json::Value refusal;
        refusal["name"] = name;
        refusal["reason"] = reason;
        response.SetError(120, refusal);
        return response;
    };
    const auto isInteger = [](const Json::Value& value) {
        return value.isInt() && value.type() != Json::realValue;
    };
    struct Rule {
        const char* name;
        bool hasType;
    };
    for (const auto& [name, hasType] :
         {Rule{"lastRead", parameters["lastRead"].isNumeric()}, Rule{"all", parameters["all"].isBool()},
          Rule{"limit", isInteger(parameters["limit"])}, Rule{"start", isInteger(parameters["start"])},
          Rule{"clean", parameters["clean"].isString()}, Rule{"action", parameters["action"].isString()}}) {
        if (parameters.isMember(name) && !hasType) {
            return refuse(name, "type");
        }
    }
    if (!parameters.isMember("action")) {
        return refuse("action", "required");
    }
    if (parameters["action"] == "apply" && parameters["clean"] != "all") {
        return refuse("clean", "condition");
    }
    for (const char* action : kActions) {
        if (parameters["action"] == action) {
            return response;
        }
    }
    return refuse("action", "condition");
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
    struct Rule {
        const char* name;
        Json::ValueType type;
    };
    for (const auto& [name, type] :
         {Rule{"action", Json::stringValue}, Rule{"clean", Json::stringValue}, Rule{"offset", Json::intValue},
          Rule{"limit", Json::intValue}, Rule{"all", Json::booleanValue}}) {
        if (!parameters[name].isConvertibleTo(type)) {
            return fail(117, 83);
        }
    }
    const std::string action = parameters["action"].asString();
    if (action == "load") {
        answer =
            KIVO::Test::PlainLoad(StoredRows(), parameters["limit"].asInt(), parameters["offset"].asInt(),
                                  parameters["all"].asBool(), IsEnabled, IsAllowed);
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const KIVO::Test::ApplianceRoot root;
    if (StoredRows().empty()) {
        StoredRows() = {R"({"title":"Known","time":1})", R"({"title":"Hidden","time":2})",
                        R"({"title":"Known"})", R"({"title":"Known","time":3})"};
        root.Write("/var/cache/texts/enu/notification_category", "{}");
    }
    Json::Value parameters;
    if (!KIVO::Appliance::ParseJson(std::string(data, data + size), parameters) || !parameters.isObject()) {
        return 0;
    }
    KIVO::APIRequest request(parameters, "alice", "enu", false);
    APIResponse checked;
    APIResponse answered;
    Log().clear();
    const bool isAccepted = NEXNotify_1_notify_Check(&request, &checked);
    NEXNotify_1_notify(&request, &answered);
    ExpectEqual("check", Text(PlainCheck(parameters)), Text(checked));
    ExpectEqual("acceptance", std::to_string(checked.GetAnswerCount() == 0), std::to_string(isAccepted));
    ExpectEqual("answer", Text(PlainNotify(parameters)), Text(answered));
    ExpectEqual("log", "", Log());
    return 0;
}
