#include <gtest/gtest.h>

#include "kivocore/error.h"
#include "kivocore/file.h"
#include "kivocore/list.h"
#include "tests/support/ApplianceRoot.h"

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

TEST(StringList, TakesTheSectionsOfAFileInItsOrder) {
    const KIVO::Test::ApplianceRoot root;
    root.Write("/sections", "[Zeta]\nkey=1\n\n# note\n[alpha:beta]\n[Zeta]\nother=2\n");
    root.Write("/empty", "");
    KLIBCSzList* list = KLIBCSzListAlloc(1);
    KLIBCSzListPush(&list, "earlier");
    for (const auto& [path, count] :
         {std::pair("/sections", 2), std::pair("/empty", 0), std::pair("/missing", -1)}) {
        EXPECT_EQ(KLIBCFileEnumSection(root.Path(path).c_str(), &list), count) << path;
    }
    EXPECT_EQ(KLIBCErrGet(), 0x0900);
    EXPECT_STREQ(KLIBCErrorGetFile(), "File.cpp");
    EXPECT_EQ(KLIBCSzListSize(list), 3);
    EXPECT_STREQ(KLIBCSzListGet(list, 1), "Zeta");
    EXPECT_STREQ(KLIBCSzListGet(list, 2), "alpha:beta");
    KLIBCSzListFree(list);
}

}  // namespace
