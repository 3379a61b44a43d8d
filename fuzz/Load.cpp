// Any stored texts through the action "load": it must answer what the plainest way to read them gives. An
// input is three bytes (limit, offset, and a last bit for all), then the texts, oldest first; "\x01" stands
// for NULL.

#include "fuzz/Support.h"
#include "module/NEXNotifyAPI.h"

void KIVO::Fuzz::Try(const std::string& input) {
    Root();
    const std::string bytes = input + std::string(3, '\0');
    Json::Value parameters;
    parameters["action"] = "load";
    parameters["limit"] = static_cast<signed char>(bytes[0]);
    parameters["offset"] = static_cast<signed char>(bytes[1]);
    parameters["all"] = (bytes[2] & 1) != 0;
    storedRows.clear();
    for (const std::string& text : SplitTexts(input, 3)) {
        storedRows.push_back(text == "\x01" ? std::nullopt : std::optional(text));
    }

    APIRequest request(parameters, "alice", "enu", false);
    APIResponse response;
    NEXNotify_1_notify(&request, &response);
    const Json::Value plain = PlainLoad(parameters);
    ExpectEqual("answer", Success(plain), Text(response));
    ExpectEqual("log", storedRows.empty() || plain.isMember("priorityMap") ? "" : "run sql error\n",
                Logged());
}
