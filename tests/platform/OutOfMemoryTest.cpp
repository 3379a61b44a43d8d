#include <gtest/gtest.h>

#include "kivocore/file.h"
#include "kivocore/rights.h"
#include "sdk/eventlog.h"
#include "sdk/user.h"
#include "sysnotify/database.h"
#include "sysnotify/nstring.h"
#include "sysnotify/rights.h"
#include "tests/support/Allocations.h"
#include "tests/support/ApplianceRoot.h"

namespace {

TEST(OutOfMemory, LetsNoExceptionOutOfACFunction) {
    const KIVO::Test::ApplianceRoot root;
    root.WriteUsers({{.name = "alice", .groups = {"administrators"}, .apps = {"App"}}});
    root.WriteCatalogue("enu", "[A]\nmessage=a\n[B]\nmessage=b\n");
    root.Write("/var/log/kivo/events.jsonl", "");
    root.CreateDatabase();
    const std::string mails = root.Path("/var/cache/texts/enu/mails");
    KLIBCSzList* list = KLIBCSzListAlloc(0);
    FILE* file = fopen(mails.c_str(), "r");
    NString* record = nullptr;

    // Makes the call with 0, 1, 2 … allocations until one has enough; each earlier one must return `failure`.
    const auto sweep = [&](int success, int failure, const auto& call) {
        int result = failure;
        for (long count = 0; result == failure; ++count) {
            ASSERT_LT(count, 10000);
            // A file untouched for long is kept parsed.
            for (const char* path : {"/etc/kivo/users.json", "/var/cache/texts/enu/mails"}) {
                root.Write(path, root.Read(path).value());
            }
            const KIVO::Test::AllocationLimit limit(count);
            result = call();
        }
        EXPECT_EQ(result, success);
    };
    sweep(2, -1, [&] { return KLIBCFileEnumSection(mails.c_str(), &list); });
    sweep(1, 0, [] { return KLIBGroupIsAdminGroupMem("alice", 0); });
    sweep(1, 0, [] { return KLIBAppPrivUserHas("alice", "App", "ignore"); });
    sweep(0, -1, [] { return KIVOUserGetUGID("alice", nullptr, nullptr); });
    sweep(1, -1, [] { return KIVOSysNotifyIsAllow("alice", "A"); });
    sweep(0, -1, [] { return KIVOLogSet1(2, 1, 0x14600001, "longer than a short string", "", "", ""); });
    sweep(1, 0, [&] { return (record = KIVONotifyStringNew()) != nullptr ? 1 : 0; });
    sweep(0, -1, [&] { return KIVONotifyStringGetByPath(mails.c_str(), "B", record, 1); });
    EXPECT_STREQ(record->messageText, "b");
    sweep(0, -1, [&] { return KIVONotifyStringGetByFp(file, "A", record); });
    EXPECT_STREQ(record->messageText, "a");
    sweep(0, 1, [] {
        sqlite3* database = nullptr;
        const int result = nexnotifyDbOpen(&database);
        nexnotifyDbClose(database);
        return result == 0 ? 0 : 1;
    });
    KIVONotifyStringFree(record);
    fclose(file);
    KLIBCSzListFree(list);
}

}  // namespace
