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

TEST(StringList, KeepsItsStringsThroughGrowth) {
    for (const int capacity : {0, 1, 3, 1024}) {
        List list(capacity);
        ASSERT_NE(list.handle, nullptr);
        std::string buffer;
        for (int index = 0; index < 500; ++index) {
            buffer = "text " + std::to_string(index);
            ASSERT_EQ(KLIBCSzListPush(&list.handle, buffer.c_str()), 0);
        }
        ASSERT_EQ(KLIBCSzListSize(list.handle), 500);
        for (int index = 0; index < 500; ++index) {
            EXPECT_EQ(KLIBCSzListGet(list.handle, index), "text " + std::to_string(index));
        }
    }
}

TEST(StringList, AnswersOutsideItsContent) {
    List list(2);
    for (const char* text : {"a", "", "b", "a"}) {
        KLIBCSzListPush(&list.handle, text);
    }
    EXPECT_EQ(KLIBCSzListFind(list.handle, "a"), 0);
    EXPECT_EQ(KLIBCSzListFind(list.handle, ""), 1);
    EXPECT_EQ(KLIBCSzListFind(list.handle, "A"), -1);
    EXPECT_EQ(KLIBCSzListGet(list.handle, -1), nullptr);
    EXPECT_EQ(KLIBCSzListGet(list.handle, 4), nullptr);
    EXPECT_EQ(KLIBCSzListAlloc(-1), nullptr);
    KLIBCSzListFree(nullptr);
}

TEST(StringList, TakesTheSectionsOfAFileInItsOrder) {
    const KIVO::Test::ApplianceRoot root;
    const std::string sections =
        root.Write("/sections", "[Zeta]\nkey=1\n\n# note\n[alpha:beta]\n[Zeta]\nother=2\n");
    const std::string empty = root.Write("/empty", "");
    const std::string malformed = root.Write("/malformed", "no section\n");
    List list(1);
    KLIBCSzListPush(&list.handle, "earlier");

    EXPECT_EQ(KLIBCFileEnumSection(sections.c_str(), &list.handle), 2);
    EXPECT_EQ(KLIBCFileEnumSection(empty.c_str(), &list.handle), 0);
    for (const std::string& path : {malformed, root.Path("/missing"), root.Path("/")}) {
        EXPECT_EQ(KLIBCFileEnumSection(path.c_str(), &list.handle), -1) << path;
        EXPECT_EQ(KLIBCErrGet(), 0x0900);
        EXPECT_STREQ(KLIBCErrorGetFile(), "File.cpp");
        EXPECT_GT(KLIBCErrorGetLine(), 0);
    }
    ASSERT_EQ(KLIBCSzListSize(list.handle), 3);
    EXPECT_STREQ(KLIBCSzListGet(list.handle, 1), "Zeta");
    EXPECT_STREQ(KLIBCSzListGet(list.handle, 2), "alpha:beta");
}

}  // namespace
