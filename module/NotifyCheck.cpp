// The parameter check of method "notify". It knows the parameters that a client may send, not only those that
// the handler reads: "lastRead" and "start" are checked and then ignored.

#include <string>

#include "module/Actions.h"
#include "module/ErrorCodes.h"
#include "module/NEXNotifyAPI.h"
#include "webapi/APIValidator.h"
#include "webapi/WebAPIUtil.h"

namespace {

bool Refuse(KIVO::APIResponse* response, const char* name, const char* reason) {
    Json::Value refusal(Json::objectValue);
    refusal["name"] = name;
    refusal["reason"] = reason;
    response->SetError(KIVO::NEXNotify::kErrorBadParameter, refusal);
    return false;
}

}  // namespace

bool NEXNotify_1_notify_Check(KIVO::APIRequest* request, KIVO::APIResponse* response) {
    using KIVO::APIValidator;

    auto lastRead = request->GetAndCheckReal("lastRead", KIVO::PARAM_OPTIONAL, nullptr);
    lastRead.SetDefault(0.0);
    auto all = request->GetAndCheckBool("all", KIVO::PARAM_OPTIONAL, nullptr);
    all.SetDefault(false);
    auto limit = request->GetAndCheckInt("limit", KIVO::PARAM_OPTIONAL, nullptr);
    limit.SetDefault(0);
    auto start = request->GetAndCheckInt("start", KIVO::PARAM_OPTIONAL, nullptr);
    start.SetDefault(0);
    auto clean = request->GetAndCheckString("clean", KIVO::PARAM_OPTIONAL, nullptr);
    clean.SetDefault("");
    const auto action = request->GetAndCheckString("action", KIVO::PARAM_REQUIRED, nullptr);

    const auto isValid = [response](const char* name, const auto& parameter) {
        return !parameter.IsInvalid() || Refuse(response, name, parameter.IsSet() ? "type" : "required");
    };
    if (!isValid("lastRead", lastRead) || !isValid("all", all) || !isValid("limit", limit) ||
        !isValid("start", start) || !isValid("clean", clean) || !isValid("action", action)) {
        return false;
    }

    // Deleting is irrevocable, so the client has to say that it means all.
    const bool cleansAll = clean.IsSet() && APIValidator::IsEqual(clean, "all");
    if (APIValidator::IsEqual(action, KIVO_ACTION_APPLY) && !cleansAll) {
        return Refuse(response, "clean", "condition");
    }
    if (!action.IsSet() ||
        !APIValidator::IsBelong(action, KIVO::WebAPIUtil::ParseJson(KIVO::NEXNotify::kActions))) {
        return Refuse(response, "action", "condition");
    }
    return true;
}
