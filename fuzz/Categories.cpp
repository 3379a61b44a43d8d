// Any category files and settings document through the action "loadHaveNtAppList" as it is, and by looking
// through every list from its start: the answers must be the same to the letter, and where JSON's types end
// the one they must end the other. An input is a byte (bits: an administrator asks; in English), then the
// English file, the translated one and the settings, each ended by a NUL byte or the end.

#include <cstring>

#include "fuzz/Support.h"
#include "module/JsonFile.h"
#include "module/NEXNotifyAPI.h"

namespace {

Json::Value PlainAnswer(const Json::Value& english, const Json::Value& translated,
                        const Json::Value& settings, bool isAdmin) {
    const Json::Value none(Json::arrayValue);
    const Json::Value englishEvents = english.get("All", none);
    Json::Value categories(Json::arrayValue);
    for (const Json::Value& event : translated.get("All", none)) {
        Json::Value row;
        row["category"] = event.get("group", "");
        row["appids"] = none;
        row["nexnotify"] = "on";
        for (const Json::Value& entry : englishEvents) {
            if (entry["name"] == event.get("name", "")) {
                row["category_enu"] = entry.get("group", "");
                row["app"] = entry.get("appid", "");
                if (!row["app"].asString().empty()) {
                    row["appids"].append(row["app"]);
                }
                break;
            }
        }
        bool isListed = !row.isMember("category_enu") || row["category"].asString().empty() ||
                        row["category_enu"].asString().empty();
        for (const Json::Value& listed : categories) {
            isListed = isListed || listed["category_enu"] == row["category_enu"];
        }
        if (!isListed) {
            categories.append(row);
        }
    }
    Json::Value answer;
    answer["items"] = none;
    const Json::Value application = settings.get("KIVO.ZUI.NEXNotify.Setting.Application", Json::Value());
    const Json::Value choices = application.get("notifcationSettings", Json::Value());
    for (Json::Value& row : categories) {
        for (const Json::Value& choice : choices) {
            if (choice["category_enu"] == row["category_enu"] && choice["app"] == row["app"]) {
                row["nexnotify"] = choice["nexnotify"];
                break;
            }
        }
        if (row["appids"].empty() || isAdmin ||
            row["app"].asString().c_str() == std::string_view(KIVO::Fuzz::kApp)) {
            answer["items"].append(row);
        }
    }
    answer["total"] = answer["items"].size();
    return answer;
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    const bool isAdmin = (input[0] & 1) != 0;
    const bool isEnglish = (input[0] & 2) != 0;
    const auto texts = SplitTexts(input, 1, 3);
    const std::string user = isAdmin ? "admin" : "member";
    Root().Write("/var/cache/texts/enu/notification_category", texts[0]);
    Root().Write("/var/cache/texts/ger/notification_category", texts[1]);
    Root().Write("/etc/kivo/settings/users/" + user + ".json", texts[2]);

    Json::Value parameters;
    parameters["action"] = "loadHaveNtAppList";
    APIRequest request(parameters, user, isEnglish ? "enu" : "ger", isAdmin);
    APIResponse response;
    NEXNotify_1_notify(&request, &response);

    APIResponse expected;
    std::string expectedLog;
    Json::Value english;
    Json::Value translated;
    Json::Value settings;
    Appliance::ParseJson(texts[2], settings);
    if (!NEXNotify::ParseJsonText(texts[0], english) ||
        !NEXNotify::ParseJsonText(texts[isEnglish ? 0 : 1], translated)) {
        expected.SetSuccess(Json::Value(Json::arrayValue));
        expectedLog = std::string("pasre json file failed. ") + std::strerror(EBADMSG) + '\n';
    } else {
        try {
            expected.SetSuccess(PlainAnswer(english, translated, settings, isAdmin));
        } catch (const Json::Exception&) {
            expectedLog = "Fatal Error: ";
        }
    }
    ExpectEqual("answer", Text(expected), Text(response));
    // What the library says is its own matter.
    ExpectEqual("log", expectedLog, Log().substr(0, expectedLog.empty() ? Log().size() : expectedLog.size()));
}
