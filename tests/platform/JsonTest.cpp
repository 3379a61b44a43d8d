#include "platform/kivocore/Json.h"

#include <gtest/gtest.h>

#include <string>

#include "webapi/WebAPIUtil.h"

namespace {

using namespace std::string_literals;
using KIVO::Appliance::ParseJson;
using KIVO::Appliance::WriteJson;

TEST(Json, AcceptsOneValueAndNothingElse) {
    for (const std::string& text : {"null"s, "\"x\""s, " 1 "s, "[{}]"s, "{\"a\": [1, 2.5, true]}"s,
                                    "\"\xc3\xa9 \\u00e9\""s, std::string(900, '[') + std::string(900, ']')}) {
        Json::Value value("before");
        EXPECT_TRUE(ParseJson(text, value)) << text;
        EXPECT_NE(value, Json::Value("before"));
    }
    for (const std::string& text :
         {""s, " "s, "{"s, "{} {}"s, "[1,]"s, "[1 2]"s, "{a: 1}"s, "'x'"s, "NaN"s, "{\"a\": 1, \"a\": 2}"s,
          "// note\n1"s, "1 /* note */"s, "\"\xff\""s, "\"a\0b\""s, std::string(5000, '[')}) {
        Json::Value value("before");
        std::string error;
        EXPECT_FALSE(ParseJson(text, value, &error)) << text;
        EXPECT_EQ(value, Json::Value("before"));
        EXPECT_NE(error, "") << text;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        EXPECT_TRUE(KIVO::WebAPIUtil::ParseJson(text).isNull()) << text;
    }
}

TEST(Json, WritesUtf8OnOneLineWhateverTheStringsHold) {
    Json::Value value;
    value["a"].append("caf\xc3\xa9\n\"");
    value["a"].append("nul\0"s);
    EXPECT_EQ(WriteJson(value), "{\"a\":[\"caf\xc3\xa9\\n\\\"\",\"nul\\u0000\"]}");

    for (const char* bytes : {"caf\xe9", "\xff", "cut \xc3", "\xed\xa0\x80"}) {
        Json::Value back;
        ASSERT_TRUE(ParseJson(WriteJson(Json::Value(bytes)), back)) << WriteJson(Json::Value(bytes));
        EXPECT_NE(back.asString().find("\xef\xbf\xbd"), std::string::npos);
    }
}

}  // namespace
