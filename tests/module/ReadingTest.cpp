#include <sys/inotify.h>

#include <array>
#include <filesystem>
#include <set>

#include "platform/kivocore/FileDescriptor.h"
#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

TEST_F(ModuleTest, ReadingWritesNothingOnceAProcessHasAnswered) {
    m_root.WriteCatalogue("enu", "[Tag]\nmessage=m\nmail=m\ngroup=G\n");
    m_root.Write("/var/cache/texts/enu/notification_category", R"({"All":[{"name":"Tag","group":"G"}]})");
    m_root.CreateDatabase();
    m_root.Query(
        "INSERT INTO message WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n LIMIT "
        R"(50000) SELECT i, '{"title":"Tag","time":1,"msg":["' || hex(zeroblob(150)) || '"]}', i FROM n)");
    m_root.Query("INSERT INTO nexnotify SELECT 1026, message_id FROM message");
    const auto askAll = [] {
        EXPECT_EQ(Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"load","limit":1})")
                      .GetData()["total"]
                      .asUInt(),
                  50000U);
        EXPECT_EQ(Ask("KIVO.Core.NEXNotify", "notify", R"({"action":"loadHaveNtAppList"})")
                      .GetData()["total"]
                      .asUInt(),
                  1);
        EXPECT_EQ(Ask("KIVO.Core.NEXNotify.Strings", "get", "{}").GetData().size(), 1U);
        EXPECT_EQ(Text(Ask("KIVO.Core.NEXNotify.MailContent", "get", R"({"title":"Tag"})")),
                  R"(success: {"mailContent":"m"})");
    };
    askAll();
    m_root.AddMessage({1}, "another's, which the WAL still holds", 1);
    askAll();

    const Appliance::FileDescriptor events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_root.Folder())) {
        constexpr unsigned kChanges =
            IN_CREATE | IN_DELETE | IN_MOVE | IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE;
        EXPECT_GE(inotify_add_watch(events.Get(), entry.path().c_str(), kChanges), 0);
    }
    std::set<std::string> calls;
    ThePlatform().fails = [&](std::string_view operation) {
        if (operation.starts_with("system:")) {
            calls.emplace(operation);
        }
        return false;
    };
    askAll();
    ThePlatform().fails = nullptr;
    calls.erase("system:pread64");
    EXPECT_EQ(calls, std::set<std::string>{}) << "on files of SQLite's, wherever they are";
    std::array<char, 4096> event;
    EXPECT_EQ(read(events.Get(), event.data(), event.size()), -1);
}

}  // namespace
}  // namespace KIVO::Test
