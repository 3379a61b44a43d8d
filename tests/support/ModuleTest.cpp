#include "tests/support/ModuleTest.h"

#include <syslog.h>

#include "module/NEXNotifyAPI.h"
#include "platform/kivocore/Json.h"

namespace KIVO::Test {

Json::Value Parse(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Appliance::ParseJson(text, value)) << text;
    return value;
}

std::string Text(const Json::Value& value) { return Appliance::WriteJson(value); }

std::string Text(const APIResponse& response) {
    if (response.GetAnswerCount() == 0) {
        return "nothing";
    }
    const bool isError = response.GetState() == APIResponse::State::Error;
    return (isError ? "error " + std::to_string(response.GetErrorCode()) : "success") + ": " +
           Text(response.GetData());
}

std::vector<std::string> LoggedTexts() {
    std::vector<std::string> texts;
    for (const auto& [priority, text] : LogLines()) {
        EXPECT_EQ(priority, LOG_ERR) << text;
        const size_t colon = text.find(':');
        const size_t blank = text.find(' ');
        texts.push_back(colon < blank ? text.substr(0, colon) + ":#" + text.substr(blank) : text);
    }
    return texts;
}

ModuleTest::ModuleTest() {
    ProcessIdentity() = {};
    ThePlatform() = {};
    LogLines().clear();
    m_root.WriteUsers({{.name = "alice", .groups = {"users", "administrators"}},
                       {.name = "bob", .uid = 1027, .apps = {"KIVO.App.Backup"}},
                       {.name = "carol", .uid = 1028, .hiddenTags = {"Hidden"}}});
}

APIResponse ModuleTest::Ask(const std::string& api, const std::string& method, const std::string& parameters,
                            const std::string& user, const std::string& language) {
    const auto find = [&](const auto* row) {
        while (row->api != api || row->method != method) {
            ++row;
        }
        return row;
    };
    APIRequest request(Parse(parameters), user, language, user == "alice");
    APIResponse response;
    if (find(GetAPICheckTable())->check(&request, &response)) {
        find(GetAPITable())->handler(&request, &response);
    }
    EXPECT_LE(response.GetAnswerCount(), 1);
    return response;
}

std::string ModuleTest::Notify(const std::string& parameters, const std::string& user,
                               const std::string& language) {
    return Text(Ask("KIVO.Core.NEXNotify", "notify", parameters, user, language));
}

}  // namespace KIVO::Test
