#include "tests/support/ModuleTest.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

#include "module/NEXNotifyAPI.h"

namespace KIVO::Test {

namespace {

template <typename Row>
const Row* FindRow(const Row* row, const std::string& api, const std::string& method) {
    while (row->api != nullptr && (row->api != api || row->method != method)) {
        ++row;
    }
    return row;
}

}  // namespace

Json::Value Parse(const std::string& text) {
    Json::Value value;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors << text;
    return value;
}

std::string Text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

std::string Text(const APIResponse& response) {
    switch (response.GetState()) {
        case APIResponse::State::Success:
            return "success: " + Text(response.GetData());
        case APIResponse::State::Error:
            return "error " + std::to_string(response.GetErrorCode()) + ": " + Text(response.GetData());
        default:
            return "nothing";
    }
}

ModuleTest::ModuleTest() {
    ProcessIdentity() = {};
    ThePlatform() = {};
    LogLines().clear();
    m_root.WriteUsers({
        {.name = "alice", .uid = 1026, .groups = {"administrators", "users"}},
        {.name = "bob", .uid = 1027, .apps = {"KIVO.App.Backup"}},
        {.name = "carol", .uid = 1028, .hiddenTags = {"Hidden"}},
    });
}

APIResponse ModuleTest::Ask(const std::string& api, const std::string& method, const std::string& parameters,
                            const std::string& user, const std::string& language) {
    APIRequest request(Parse(parameters), user, language, user == "alice");
    APIResponse response;
    if (FindRow(GetAPICheckTable(), api, method)->check(&request, &response)) {
        FindRow(GetAPITable(), api, method)->handler(&request, &response);
    }
    EXPECT_LE(response.GetAnswerCount(), 1);
    return response;
}

std::string ModuleTest::Notify(const std::string& parameters, const std::string& user,
                               const std::string& language) {
    return Text(Ask("KIVO.Core.NEXNotify", "notify", parameters, user, language));
}

}  // namespace KIVO::Test
