// A module whose methods answer in every way that a module can, and fail in every way that the host must
// survive.

#include <json/value.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "kivocore/Export.h"
#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"
#include "webapi/APITable.h"

namespace {

using namespace KIVO;

/// Whose request it was and what this process is, so that a test sees what a handler sees.
void Echo(APIRequest* request, APIResponse* response) {
    Json::Value data;
    data["user"] = request->GetLoginUserName();
    data["language"] = request->GetUILanguage();
    data["administrator"] = request->IsAdmin();
    data["text"] = request->GetParam("text", Json::Value());
    data["worker"] = getpid();
    data["effectiveUid"] = geteuid();
    response->SetSuccess(data);
}

void Fail(APIRequest*, APIResponse* response) { response->SetError(117, "it failed"); }
void Throw(APIRequest*, APIResponse* response) {
    response->SetSuccess("half done");
    throw std::runtime_error("thrown by a handler");
}
void ThrowOther(APIRequest*, APIResponse*) { throw 7; }
void SetNothing(APIRequest*, APIResponse*) {}
void Die(APIRequest*, APIResponse*) { raise(SIGKILL); }

/// Leaves the process with the superuser's rights, as a scope does that cannot restore them.
void StayRaised(APIRequest*, APIResponse* response) { response->SetSuccess(seteuid(0)); }

/// Says in the folder "folder" that it has begun, and answers as soon as it is told to.
void Wait(APIRequest* request, APIResponse* response) {
    const std::filesystem::path folder = request->GetParam("folder", "").asString();
    std::ofstream(folder / "begun").flush();
    while (!std::filesystem::exists(folder / "go on")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    response->SetSuccess("waited");
}

bool Accept(APIRequest*, APIResponse*) { return true; }
bool RefuseSilently(APIRequest*, APIResponse*) { return false; }
bool Refuse(APIRequest*, APIResponse* response) {
    response->SetError(120, "not this one");
    return false;
}
bool RefuseWithSuccess(APIRequest*, APIResponse* response) {
    response->SetSuccess("no");
    return false;
}
bool ThrowInCheck(APIRequest*, APIResponse*) { throw std::runtime_error("thrown by a check function"); }

constexpr char kApi[] = "Test";

constexpr APITableRow kTable[] = {
    {kApi, 1, "echo", Echo},
    {kApi, 1, "fail", Fail},
    {kApi, 1, "throw", Throw},
    {kApi, 1, "throwOther", ThrowOther},
    {kApi, 1, "setNothing", SetNothing},
    {kApi, 1, "die", Die},
    {kApi, 1, "stayRaised", StayRaised},
    {kApi, 1, "wait", Wait},
    {kApi, 1, "refused", Echo},
    {kApi, 1, "refusedSilently", Echo},
    {kApi, 1, "refusedWithSuccess", Echo},
    {kApi, 1, "throwInCheck", Echo},
    {kApi, 2, "newer", Echo},
    {},
};

constexpr APICheckTableRow kCheckTable[] = {
    {kApi, 2, "newer", Accept, {}},
    {kApi, 1, "throwInCheck", ThrowInCheck, {}},
    {kApi, 1, "refusedWithSuccess", RefuseWithSuccess, {}},
    {kApi, 1, "refusedSilently", RefuseSilently, {}},
    {kApi, 1, "refused", Refuse, {}},
    {kApi, 1, "wait", Accept, {}},
    {kApi, 1, "stayRaised", Accept, {}},
    {kApi, 1, "die", Accept, {}},
    {kApi, 1, "setNothing", Accept, {}},
    {kApi, 1, "throwOther", Accept, {}},
    {kApi, 1, "throw", Accept, {}},
    {kApi, 1, "fail", Accept, {}},
    {kApi, 1, "echo", Accept, {}},
    {},
};

}  // namespace

extern "C" {

KIVO_PUBLIC const APITableRow* GetAPITable() { return kTable; }
KIVO_PUBLIC const APICheckTableRow* GetAPICheckTable() { return kCheckTable; }

}  // extern "C"
