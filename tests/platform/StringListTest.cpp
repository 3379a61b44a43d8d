#include <gtest/gtest.h>

#include <string>

#include "kivocore/list.h"

namespace {

TEST(StringList, KeepsItsStringsThroughGrowthAndAnswersOutsideThem) {
    for (const int capacity : {0, 1, 3, 1024}) {
        KLIBCSzList* list = KLIBCSzListAlloc(capacity);
        for (int index = 0; index < 500; ++index) {
            EXPECT_EQ(KLIBCSzListPush(&list, std::to_string(index % 499).c_str()), 0);
        }
        for (int index = 0; index < 499; ++index) {
            EXPECT_STREQ(KLIBCSzListGet(list, index), std::to_string(index).c_str());
            EXPECT_EQ(KLIBCSzListFind(list, std::to_string(index).c_str()), index);
        }
        EXPECT_EQ(KLIBCSzListFind(list, "1 "), -1);
        EXPECT_EQ(KLIBCSzListGet(list, -1), nullptr);
        EXPECT_EQ(KLIBCSzListGet(list, 500), nullptr);
        KLIBCSzListFree(list);
    }
    EXPECT_EQ(KLIBCSzListAlloc(-1), nullptr);
}

}  // namespace
