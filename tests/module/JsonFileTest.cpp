#include "module/JsonFile.h"

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"

namespace KIVO::Test {
namespace {

TEST(JsonFile, MemoryThatIsShortIsNoFaultOfTheText) {
    failsOnce = true;  // else the library has no memory to say so
    bool isParsed = false;
    for (long count = 0; !isParsed; ++count) {
        bool isThrown = false;
        Json::Value value;
        try {
            const AllocationLimit limit(count);
            isParsed = NEXNotify::ParseJsonText(R"({"a name": ["a text", 1]})", value);
        } catch (const std::exception&) {
            isThrown = true;
        }
        ASSERT_TRUE(isParsed || isThrown) << count;
    }
    failsOnce = false;
}

TEST(JsonFile, CommentsAreNoPartOfTheValue) {
    Json::Value value;
    EXPECT_TRUE(NEXNotify::ParseJsonText("{\"a\": /* why */ 1}", value));
    EXPECT_EQ(value.toStyledString(), "{\n\t\"a\" : 1\n}\n");
}

}  // namespace
}  // namespace KIVO::Test
