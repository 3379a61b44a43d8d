// A module whose methods answer in every way that a module can, and fail in every way that the host must
// survive.

#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

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

void Throw(APIRequest*, APIResponse* response) {
    response->SetSuccess("half done");
    throw std::runtime_error("thrown by a handler");
}

/// Answers when the other end of the FIFO at the path "fifo" has been opened and closed.
void Wait(APIRequest* request, APIResponse* response) {
    std::ifstream(request->GetParam("fifo", "").asString()).get();
    response->SetSuccess("waited");
}

void Nap(APIRequest*, APIResponse* response) {
    usleep(50'000);
    response->SetSuccess("rested");
}

/// Answers as many MiB as the parameter "mebibytes" says, in pieces of which each takes a KiB.
void Enlarge(APIRequest* request, APIResponse* response) {
    Json::Value pieces(Json::arrayValue);
    for (int i = request->GetParam("mebibytes", 0).asInt() * 1024; i > 0; --i) {
        pieces.append(std::string(900, 'x'));
    }
    response->SetSuccess(pieces);
}

bool Accept(APIRequest*, APIResponse*) { return true; }

/// Refuses in the way that the parameter "refuse" names.
bool Check(APIRequest* request, APIResponse* response) {
    const Json::Value way = request->GetParam("refuse", Json::Value());
    if (way == "throw") {
        throw std::runtime_error("thrown by a check function");
    }
    if (way == "error") {
        response->SetError(120, "not this one");
    } else if (way == "success") {
        response->SetSuccess("no");
    }
    return way.isNull();
}

constexpr char kApi[] = "Test";

constexpr APITableRow kTable[] = {
    {kApi, 1, "echo", Echo},
    {kApi, 1, "fail", [](APIRequest*, APIResponse* response) { response->SetError(117, "it failed"); }},
    {kApi, 1, "throw", Throw},
    {kApi, 1, "throwOther", [](APIRequest*, APIResponse*) { throw 7; }},
    {kApi, 1, "setNothing", [](APIRequest*, APIResponse*) {}},
    {kApi, 1, "die", [](APIRequest*, APIResponse*) { raise(SIGKILL); }},
    // Leaves the process with the superuser's rights, as a scope does that cannot restore them.
    {kApi, 1, "stayRaised", [](APIRequest*, APIResponse* response) { response->SetSuccess(seteuid(0)); }},
    {kApi, 1, "wait", Wait},
    {kApi, 1, "nap", Nap},
    {kApi, 1, "enlarge", Enlarge},
    {kApi, 1, "checked", Echo},
    {kApi, 2, "checked", Echo},
    {},
};

/// In another order and with one check function that differs: the rows of the two tables belong together by
/// their versions and names.
const auto kCheckTable = [] {
    std::array<APICheckTableRow, std::size(kTable)> rows = {};
    std::transform(std::rbegin(kTable) + 1, std::rend(kTable), rows.begin(), [](const APITableRow& row) {
        const bool isChecked = row.version == 1 && row.method == std::string_view("checked");
        return APICheckTableRow{row.api, row.version, row.method, isChecked ? Check : Accept, {}};
    });
    return rows;
}();

}  // namespace

extern "C" {

KIVO_PUBLIC const APITableRow* GetAPITable() { return kTable; }
KIVO_PUBLIC const APICheckTableRow* GetAPICheckTable() { return kCheckTable.data(); }

}  // extern "C"
