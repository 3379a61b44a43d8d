#include "webapi/APIRequest.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "webapi/APIValidator.h"
#include "webapi/WebAPIUtil.h"

namespace {

using KIVO::APIParameter;
using KIVO::APIRequest;
using KIVO::APIValidator;
using KIVO::PARAM_OPTIONAL;
using KIVO::PARAM_REQUIRED;
using KIVO::WebAPIUtil;

APIRequest MakeRequest(const std::string& parameters) {
    return APIRequest(WebAPIUtil::ParseJson(parameters), "alice", "enu", false);
}

TEST(Request, TypedReadsTakeJsonsOwnTypes) {
    for (const auto& [json, types] : std::map<std::string, std::string>{{"5", "real int "},
                                                                        {"-0", "real int "},
                                                                        {"5.0", "real "},
                                                                        {"5e0", "real "},
                                                                        {"2147483647", "real int "},
                                                                        {"2147483648", "real "},
                                                                        {"-2147483648", "real int "},
                                                                        {"-2147483649", "real "},
                                                                        {"99999999999999999999", "real "},
                                                                        {"true", "bool "},
                                                                        {"\"\"", "string "},
                                                                        {"\"5\"", "string "},
                                                                        {"\"true\"", "string "},
                                                                        {"null", ""},
                                                                        {"[5]", ""},
                                                                        {"{}", ""}}) {
        const APIRequest request = MakeRequest("{\"p\": " + json + "}");
        std::string taken;
        const auto note = [&](const auto& parameter, const char* type) {
            EXPECT_TRUE(parameter.IsSet()) << json;
            taken += parameter.IsInvalid() ? "" : type;
        };
        note(request.GetAndCheckReal("p", PARAM_OPTIONAL, nullptr), "real ");
        note(request.GetAndCheckInt("p", PARAM_OPTIONAL, nullptr), "int ");
        note(request.GetAndCheckBool("p", PARAM_OPTIONAL, nullptr), "bool ");
        note(request.GetAndCheckString("p", PARAM_REQUIRED, nullptr), "string ");
        EXPECT_EQ(taken, types) << json;
    }
}

TEST(Request, MissingPresentAndRefusedParameters) {
    const APIRequest request = MakeRequest("{\"n\": 7, \"null\": null}");
    const auto isBelow5 = [](const Json::Value& value) { return value.asInt() < 5; };
    auto missing = request.GetAndCheckInt("m", PARAM_OPTIONAL, isBelow5);
    missing.SetDefault(3);
    EXPECT_TRUE(!missing.IsSet() && !missing.IsInvalid() && missing.Get() == 3);
    EXPECT_TRUE(request.GetAndCheckInt("m", PARAM_REQUIRED, nullptr).IsInvalid());
    auto present = request.GetAndCheckInt("n", PARAM_REQUIRED, nullptr);
    present.SetDefault(3);
    EXPECT_TRUE(present.IsSet() && !present.IsInvalid() && present.Get() == 7);
    EXPECT_TRUE(request.GetAndCheckInt("n", PARAM_OPTIONAL, isBelow5).IsInvalid());
    EXPECT_EQ(request.GetParam("m", "default"), Json::Value("default"));
    EXPECT_EQ(request.GetParam("null", "default"), Json::Value());
}

TEST(Validator, ComparesWholeStrings) {
    const auto load = APIParameter<std::string>::Present("load");
    EXPECT_TRUE(APIValidator::IsEqual(load, "load"));
    EXPECT_FALSE(APIValidator::IsEqual(load, "LOAD"));
    EXPECT_FALSE(
        APIValidator::IsEqual(APIParameter<std::string>::Present(std::string("load\0x", 6)), "load"));
    EXPECT_TRUE(APIValidator::IsBelong(load, WebAPIUtil::ParseJson("[1, null, \"apply\", \"load\"]")));
    for (const char* array : {"[\"apply\", \"Load\"]", "[]", "\"load\"", "not JSON"}) {
        EXPECT_FALSE(APIValidator::IsBelong(load, WebAPIUtil::ParseJson(array))) << array;
    }
}

}  // namespace
