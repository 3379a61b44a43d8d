#include <gtest/gtest.h>

#include <functional>
#include <string>

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

class OutOfMemoryTest : public testing::Test {
protected:
    OutOfMemoryTest() {
        m_root.WriteUsers({{.name = "alice", .uid = 1026, .groups = {"administrators"}, .apps = {"App"}}});
        m_root.WriteCatalogue("enu", "[A]\nmessage=a\n[B]\nmessage=b\n");
        m_root.Write("/var/log/kivo/events.jsonl", "");
        m_root.CreateDatabase();
    }

    /// Runs the call with 0, 1, 2 … allocations until one run has enough; each earlier one must return
    /// `failure`.
    void Sweep(int success, int failure, const std::function<int()>& call) {
        int result = failure;
        for (long count = 0; result == failure; ++count) {
            ASSERT_LT(count, 10000);
            // A file untouched for long is kept parsed.
            m_root.Write("/etc/kivo/users.json", m_root.Read("/etc/kivo/users.json").value());
            m_root.Write(kMails, m_root.Read(kMails).value());
            const KIVO::Test::AllocationLimit limit(count);
            result = call();
        }
        EXPECT_EQ(result, success);
    }

    static constexpr char kMails[] = "/var/cache/texts/enu/mails";
    KIVO::Test::ApplianceRoot m_root;
};

TEST_F(OutOfMemoryTest, LetsNoExceptionOutOfACFunction) {
    const std::string mails = m_root.Path(kMails);
    KLIBCSzList* list = KLIBCSzListAlloc(0);
    FILE* file = fopen(mails.c_str(), "r");
    NString* record = nullptr;

    Sweep(2, -1, [&] { return KLIBCFileEnumSection(mails.c_str(), &list); });
    Sweep(1, 0, [] { return KLIBGroupIsAdminGroupMem("alice", 0); });
    Sweep(1, 0, [] { return KLIBAppPrivUserHas("alice", "App", "ignore"); });
    Sweep(0, -1, [] { return KIVOUserGetUGID("alice", nullptr, nullptr); });
    Sweep(1, -1, [] { return KIVOSysNotifyIsAllow("alice", "A"); });
    Sweep(0, -1,
          [] { return KIVOLogSet1(2, 1, 0x14600001, "a text longer than a short string", "", "", ""); });
    Sweep(1, 0, [&] { return (record = KIVONotifyStringNew()) != nullptr ? 1 : 0; });
    Sweep(0, -1, [&] { return KIVONotifyStringGetByPath(mails.c_str(), "B", record, 1); });
    EXPECT_STREQ(record->messageText, "b");
    Sweep(0, -1, [&] { return KIVONotifyStringGetByFp(file, "A", record); });
    EXPECT_STREQ(record->messageText, "a");
    Sweep(0, 1, [] {
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
