#include "webapi/APIRequest.h"

#include <gtest/gtest.h>

#include <string>

#include "webapi/APIResponse.h"
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
    struct Row {
        const char* json;
        bool isReal;
        bool isInt;
        bool isBool;
        bool isString;
    };
    for (const Row& row : {
             Row{"5", true, true, false, false},
             Row{"-0", true, true, false, false},
             Row{"5.0", true, false, false, false},
             Row{"5e0", true, false, false, false},
             Row{"2147483647", true, true, false, false},
             Row{"2147483648", true, false, false, false},
             Row{"-2147483648", true, true, false, false},
             Row{"-2147483649", true, false, false, false},
             Row{"99999999999999999999", true, false, false, false},
             Row{"true", false, false, true, false},
             Row{"\"\"", false, false, false, true},
             Row{"\"5\"", false, false, false, true},
             Row{"\"true\"", false, false, false, true},
             Row{"null", false, false, false, false},
             Row{"[5]", false, false, false, false},
             Row{"{}", false, false, false, false},
         }) {
        const APIRequest request = MakeRequest(std::string("{\"p\": ") + row.json + "}");
        const auto real = request.GetAndCheckReal("p", PARAM_OPTIONAL, nullptr);
        const auto integer = request.GetAndCheckInt("p", PARAM_OPTIONAL, nullptr);
        const auto boolean = request.GetAndCheckBool("p", PARAM_OPTIONAL, nullptr);
        const auto string = request.GetAndCheckString("p", PARAM_REQUIRED, nullptr);
        EXPECT_EQ(!real.IsInvalid(), row.isReal) << row.json;
        EXPECT_EQ(!integer.IsInvalid(), row.isInt) << row.json;
        EXPECT_EQ(!boolean.IsInvalid(), row.isBool) << row.json;
        EXPECT_EQ(!string.IsInvalid(), row.isString) << row.json;
        EXPECT_TRUE(real.IsSet() && integer.IsSet() && boolean.IsSet() && string.IsSet()) << row.json;
    }
}

TEST(Request, MissingPresentAndRefusedParameters) {
    const APIRequest request = MakeRequest("{\"n\": 7, \"null\": null}");
    auto missing = request.GetAndCheckInt("m", PARAM_OPTIONAL, nullptr);
    missing.SetDefault(3);
    EXPECT_TRUE(!missing.IsSet() && !missing.IsInvalid() && missing.Get() == 3);
    const auto required = request.GetAndCheckInt("m", PARAM_REQUIRED, nullptr);
    EXPECT_TRUE(!required.IsSet() && required.IsInvalid());
    auto present = request.GetAndCheckInt("n", PARAM_REQUIRED, nullptr);
    present.SetDefault(3);
    EXPECT_TRUE(present.IsSet() && !present.IsInvalid() && present.Get() == 7);
    const auto refused = request.GetAndCheckInt("n", PARAM_OPTIONAL,
                                                [](const Json::Value& value) { return value.asInt() < 5; });
    EXPECT_TRUE(refused.IsSet() && refused.IsInvalid());

    EXPECT_EQ(request.GetParam("n", "default"), Json::Value(7));
    EXPECT_EQ(request.GetParam("m", "default"), Json::Value("default"));
    EXPECT_EQ(request.GetParam("null", "default"), Json::Value());
}

TEST(Validator, ComparesWholeStrings) {
    const auto load = APIParameter<std::string>::Present("load");
    EXPECT_TRUE(APIValidator::IsEqual(load, "load"));
    EXPECT_FALSE(APIValidator::IsEqual(load, "LOAD"));
    EXPECT_FALSE(
        APIValidator::IsEqual(APIParameter<std::string>::Present(std::string("load\0x", 6)), "load"));
    const auto belongs = [&](const char* array) {
        return APIValidator::IsBelong(load, WebAPIUtil::ParseJson(array));
    };
    EXPECT_TRUE(belongs("[1, null, \"apply\", \"load\"]"));
    EXPECT_FALSE(belongs("[\"apply\", \"Load\"]"));
    EXPECT_FALSE(belongs("[]"));
    EXPECT_FALSE(belongs("\"load\""));
    EXPECT_FALSE(belongs("not JSON"));
}

TEST(Response, TheLastAnswerCounts) {
    KIVO::APIResponse response;
    EXPECT_EQ(response.GetState(), KIVO::APIResponse::State::Unset);
    response.SetError(117, "error");
    response.SetSuccess("data");
    EXPECT_EQ(response.GetState(), KIVO::APIResponse::State::Success);
    EXPECT_EQ(response.GetErrorCode(), 0);
    EXPECT_EQ(response.GetData(), Json::Value("data"));
    EXPECT_EQ(response.GetAnswerCount(), 2);
}

}  // namespace
