// Any stored texts through the action "load" as it is, and in the plainest way: the answers must be the same
// to the letter. An input is three bytes (limit, offset, and a last bit for all), then the texts, oldest
// first, each ended by a NUL byte or the end; the text "\x01" stands for NULL.

#include <cstdint>

#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"

void KIVO::Fuzz::Try(const std::string& input) {
    const std::string bytes = input.substr(0, 3) + std::string(3, '\0');
    Json::Value parameters;
    parameters["action"] = "load";
    parameters["limit"] = static_cast<std::int8_t>(bytes[0]);
    parameters["offset"] = static_cast<std::int8_t>(bytes[1]);
    parameters["all"] = (bytes[2] & 1) != 0;
    StoredRows().clear();
    for (const std::string& text : SplitTexts(input, 3)) {
        StoredRows().push_back(text == "\x01" ? std::nullopt : std::optional(text));
    }

    APIRequest request(parameters, "alice", "enu", false);
    APIResponse response;
    APIResponse plain;
    NEXNotify_1_notify(&request, &response);
    plain.SetSuccess(PlainLoad(parameters));
    ExpectEqual("answer", Text(plain), Text(response));
    const bool hasFailed = !StoredRows().empty() && !plain.GetData().isMember("priorityMap");
    ExpectEqual("log", hasFailed ? "run sql error\n" : "", Log());
}
