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
    EXPECT_EQ(WriteJson("caf\xc3\xa9\n\"\0"s), "\"caf\xc3\xa9\\n\\\"\\u0000\"");
    for (const char* bytes : {"caf\xe9", "\xff", "cut \xc3", "\xed\xa0\x80"}) {
        Json::Value back;
        ASSERT_TRUE(ParseJson(WriteJson(bytes), back)) << WriteJson(bytes);
        EXPECT_NE(back.asString().find("\xef\xbf\xbd"), std::string::npos);
    }
}

}  // namespace
