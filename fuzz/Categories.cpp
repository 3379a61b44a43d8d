// Any category files and settings document through the action "loadHaveNtAppList" as it is, and by looking
// through every list from its start: they must answer the same, and fail alike where JSON's types do not fit.
// An input is a byte (bits: an administrator asks; in English), then the English file, the translated one and
// the settings.

#include <cstring>
#include <set>

#include "fuzz/Support.h"
#include "module/JsonFile.h"
#include "module/NEXNotifyAPI.h"
#include "webapi/WebAPIUtil.h"

namespace {

Json::Value PlainAnswer(const Json::Value& english, const Json::Value& translated,
                        const Json::Value& settings, bool isAdmin) {
    const Json::Value none(Json::arrayValue);
    const Json::Value englishEvents = english.get("All", none);
    const Json::Value choices = settings.get("KIVO.ZUI.NEXNotify.Setting.Application", Json::Value())
                                    .get("notifcationSettings", Json::Value());
    std::set<Json::Value> listed;
    Json::Value answer;
    answer["items"] = none;
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
        if (!row.isMember("category_enu") || row["category"].asString().empty() ||
            row["category_enu"].asString().empty() || !listed.insert(row["category_enu"]).second) {
            continue;
        }
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
    auto texts = SplitTexts(input, 1);
    texts.resize(3);
    const std::string user = isAdmin ? "admin" : "member";
    Root().Write("/var/cache/texts/enu/notification_category", texts[0]);
    Root().Write("/var/cache/texts/ger/notification_category", texts[1]);
    Root().Write("/etc/kivo/settings/users/" + user + ".json", texts[2]);

    Json::Value parameters;
    parameters["action"] = "loadHaveNtAppList";
    APIRequest request(parameters, user, isEnglish ? "enu" : "ger", isAdmin);
    APIResponse response;
    NEXNotify_1_notify(&request, &response);

    std::string expected = Text(APIResponse());
    std::string log = Logged(), expectedLog = "Fatal Error: ";
    try {
        const Json::Value settings = WebAPIUtil::ParseJson(texts[2]);
        Json::Value english, translated;
        const bool isParsed = NEXNotify::ParseJsonText(texts[0], english) &&
                              NEXNotify::ParseJsonText(texts[isEnglish ? 0 : 1], translated);
        expected = Success(isParsed ? PlainAnswer(english, translated, settings, isAdmin) : Json::arrayValue);
        expectedLog = isParsed ? "" : std::string("pasre json file failed. ") + std::strerror(EBADMSG) + '\n';
    } catch (const Json::Exception&) {
        log.resize(std::min(log.size(), expectedLog.size()));  // What the library says is its own matter.
    }
    ExpectEqual("answer", expected, Text(response));
    ExpectEqual("log", expectedLog, log);
}
