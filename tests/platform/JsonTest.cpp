#include "platform/kivocore/Json.h"

#include <gtest/gtest.h>

#include "webapi/WebAPIUtil.h"

namespace {

using namespace std::string_literals;
using KIVO::Appliance::ParseJson;
using KIVO::Appliance::WriteJson;

TEST(Json, AcceptsOneValueAndNothingElse) {
    for (const std::string& text : {"null"s, "\"x\""s, " 1 "s, "{\"a\": [1, 2.5, true]}"s,
                                    "\"\xc3\xa9 \\u00e9\""s, std::string(900, '[') + std::string(900, ']')}) {
        Json::Value value("before");
        EXPECT_TRUE(ParseJson(text, value)) << text;
        EXPECT_NE(value, Json::Value("before"));
    }
    for (const std::string& text :
         {""s, "{"s, "{} {}"s, "[1,]"s, "{a: 1}"s, "'x'"s, "NaN"s, "{\"a\": 1, \"a\": 2}"s, "// note\n1"s,
          "1 /* note */"s, "\"\xff\""s, "\"a\0b\""s, std::string(5000, '[')}) {
        Json::Value value("before");
        std::string error;
        EXPECT_FALSE(ParseJson(text, value, &error)) << text;
        EXPECT_EQ(value, Json::Value("before"));
        EXPECT_TRUE(!error.empty() && error.find('\n') == std::string::npos) << error;
        EXPECT_TRUE(KIVO::WebAPIUtil::ParseJson(text).isNull()) << text;
    }
}

TEST(Json, WritesUtf8OnOneLineWhateverTheStringsHold) {
    Json::Value value;
    value["\n"] = "caf\xc3\xa9\x01\x1f\x7f \b\f\n\r\t\"\\/\0"s;
    value["a"].append(Json::Value());
    value["a"].append(true);
    value["n"].append(Json::Int64{-9223372036854775807});
    value["n"].append(Json::UInt64{18446744073709551615U});
    value["n"].append(0.1);
    value["n"].append(2.0);
    value["o"] = Json::objectValue;
    EXPECT_EQ(WriteJson(value),
              "{\"\\n\":\"caf\xc3\xa9\\u0001\\u001f\x7f \\b\\f\\n\\r\\t\\\"\\\\/\\u0000\",\"a\":[null,true],"
              "\"n\":[-9223372036854775807,18446744073709551615,0.10000000000000001,2.0],\"o\":{}}");
    for (const auto& [bytes, written] : {
             std::pair("caf\xe9!", "\"caf\xef\xbf\xbd!\""),
             {"cut \xc3", "\"cut \xef\xbf\xbd\""},
             {"\xf4\xbf\xbf\xbf", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
             {"\xc0\xaf", "\"\xef\xbf\xbd\xef\xbf\xbd\""},
         }) {
        EXPECT_EQ(WriteJson(bytes), written);
    }
}

}  // namespace
