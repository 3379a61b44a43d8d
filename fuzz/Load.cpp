// Any stored texts through the action "load" as it is, and in the plainest way: the answers must be the same
// to the letter. An input is three bytes (limit, offset, and a last bit for all), then the texts, oldest
// first, each ended by a NUL byte or the end; the text "\x01" stands for NULL.

#include "fuzz/StoredRows.h"
#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"
#include "tests/support/PlainLoad.h"

using namespace KIVO::Fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const int limit = static_cast<std::int8_t>(data[0]);
    const int offset = static_cast<std::int8_t>(data[1]);
    const bool all = (data[2] & 1) != 0;
    StoredRows().clear();
    Log().clear();
    for (const std::string& text : SplitTexts(data + 3, size - 3)) {
        StoredRows().push_back(text == "\x01" ? std::nullopt : std::optional(text));
    }

    Json::Value parameters;
    parameters["action"] = "load";
    parameters["limit"] = limit;
    parameters["offset"] = offset;
    parameters["all"] = all;
    KIVO::APIRequest request(parameters, "alice", "enu", false);
    KIVO::APIResponse response;
    NEXNotify_1_notify(&request, &response);

    const Json::Value plain = KIVO::Test::PlainLoad(StoredRows(), limit, offset, all, IsEnabled, IsAllowed);
    ExpectEqual("answer", Text(plain), Text(response.GetData()));
    const bool hasFailed = !StoredRows().empty() && !plain.isMember("priorityMap");
    ExpectEqual("log", hasFailed ? "run sql error\n" : "", Log());
    return 0;
}
