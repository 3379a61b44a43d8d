#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kivocore/error.h"
#include "kivocore/file.h"
#include "kivocore/list.h"
#include "tests/support/ApplianceRoot.h"

namespace {

/// Releases whatever list the handle names in the end: the list moves when it grows.
struct List {
    KLIBCSzList* handle;

    explicit List(int capacity) : handle(KLIBCSzListAlloc(capacity)) {}
    ~List() { KLIBCSzListFree(handle); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;
};

TEST(StringList, KeepsItsStringsThroughGrowthAndAnswersOutsideThem) {
    for (const int capacity : {0, 1, 3, 1024}) {
        List list(capacity);
        ASSERT_NE(list.handle, nullptr);
        for (int index = 0; index < 500; ++index) {
            ASSERT_EQ(KLIBCSzListPush(&list.handle, ("text " + std::to_string(index % 499)).c_str()), 0);
        }
        for (int index = 0; index < 499; ++index) {
            const std::string text = "text " + std::to_string(index);
            EXPECT_EQ(KLIBCSzListGet(list.handle, index), text);
            EXPECT_EQ(KLIBCSzListFind(list.handle, text.c_str()), index);
        }
        EXPECT_EQ(KLIBCSzListFind(list.handle, "Text 1"), -1);
        EXPECT_EQ(KLIBCSzListGet(list.handle, -1), nullptr);
        EXPECT_EQ(KLIBCSzListGet(list.handle, 500), nullptr);
    }
    EXPECT_EQ(KLIBCSzListAlloc(-1), nullptr);
    KLIBCSzListFree(nullptr);
}

TEST(StringList, TakesTheSectionsOfAFileInItsOrder) {
    const KIVO::Test::ApplianceRoot root;
    const std::string sections =
        root.Write("/sections", "[Zeta]\nkey=1\n\n# note\n[alpha:beta]\n[Zeta]\nother=2\n");
    List list(1);
    KLIBCSzListPush(&list.handle, "earlier");

    EXPECT_EQ(KLIBCFileEnumSection(sections.c_str(), &list.handle), 2);
    EXPECT_EQ(KLIBCFileEnumSection(root.Write("/empty", "").c_str(), &list.handle), 0);
    for (const std::string& path :
         {root.Write("/malformed", "no section\n"), root.Path("/missing"), root.Path("/")}) {
        EXPECT_EQ(KLIBCFileEnumSection(path.c_str(), &list.handle), -1) << path;
        EXPECT_EQ(KLIBCErrGet(), 0x0900);
        EXPECT_STREQ(KLIBCErrorGetFile(), "File.cpp");
    }
    ASSERT_EQ(KLIBCSzListSize(list.handle), 3);
    EXPECT_STREQ(KLIBCSzListGet(list.handle, 1), "Zeta");
    EXPECT_STREQ(KLIBCSzListGet(list.handle, 2), "alpha:beta");
}

}  // namespace
