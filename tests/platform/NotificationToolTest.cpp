#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>

#include "kivocore/exec.h"
#include "tests/support/ApplianceRoot.h"

namespace {

namespace fs = std::filesystem;

constexpr char kTexts[] = "/var/cache/texts/enu";
constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";
constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

class NotificationToolTest : public testing::Test {
protected:
    NotificationToolTest() {
        setenv("TOOL", NOTIFICATION_TOOL, 1);
        m_root.WriteUsers({{.name = "alice"},
                           {.name = "bob", .uid = 1027, .language = "ger", .groups = {"ops", "users"}},
                           {.name = "carol", .uid = 1028, .groups = {"ops"}, .hiddenTags = {"A"}},
                           {.name = "twin", .uid = 1028, .language = "ger", .groups = {"ops"}}});
        m_root.WriteCatalogue("enu",
                              "[Z]\ngroup=Storage \xc3\xa9\nappid=KIVO.App.Backup\n[A]\nmessage=text\n");
    }

    /// Runs the tool with arguments in the shell's notation. Whether it succeeded.
    bool Run(const std::string& arguments, const std::string& launcher = "") {
        const std::string command =
            launcher + "\"$TOOL\" " + arguments + " >\"$KIVO_ROOT/output\" 2>\"$KIVO_ROOT/error\"";
        return std::system(command.c_str()) == 0;
    }

    void ExpectFailure(const std::string& arguments, const std::string& sentencePart,
                       const std::string& launcher = "") {
        EXPECT_FALSE(Run(arguments, launcher)) << arguments;
        const std::string error = m_root.Read("/error").value();
        EXPECT_NE(error.find(sentencePart), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
        EXPECT_EQ(m_root.Read("/output"), "");
    }

    KIVO::Test::ApplianceRoot m_root;
};

TEST_F(NotificationToolTest, WritesEveryTagInTheCataloguesOrder) {
    ASSERT_EQ(KLIBCExec(NOTIFICATION_TOOL, "--gen_category_file", "enu", nullptr, nullptr), 0);
    EXPECT_EQ(m_root.Read(kCategoryFile),
              "{\"All\":[{\"appid\":\"KIVO.App.Backup\",\"group\":\"Storage \xc3\xa9\",\"name\":\"Z\"},"
              "{\"name\":\"A\"}]}\n");
    EXPECT_EQ(fs::status(m_root.Path(kCategoryFile)).permissions(), fs::perms(0644));
    m_root.WriteCatalogue("ger", "");
    m_root.Write("/var/cache/texts/ger/notification_category.new", "half of one, by a run that was killed");
    ASSERT_TRUE(Run("--gen_category_file ger"));
    EXPECT_EQ(m_root.Read("/var/cache/texts/ger/notification_category"), "{\"All\":[]}\n");
    EXPECT_FALSE(fs::exists(m_root.Path("/var/cache/texts/ger/notification_category.new")));
}

TEST_F(NotificationToolTest, AReaderNeverMeetsHalfAFile) {
    std::string catalogue;
    for (int tag = 0; tag < 3000; ++tag) {
        catalogue += "[Tag" + std::to_string(tag) + "]\ngroup=A category with a rather long title\n";
    }
    m_root.WriteCatalogue("enu", catalogue);
    ASSERT_TRUE(Run("--gen_category_file enu"));
    const auto whole = m_root.Read(kCategoryFile);
    std::atomic<int> runs = 20;
    const auto generate = [&] {
        while (runs-- > 0) {
            EXPECT_EQ(std::system("\"$TOOL\" --gen_category_file enu"), 0);
        }
    };
    const std::jthread first(generate), second(generate);
    while (runs > 0) {
        ASSERT_TRUE(m_root.Read(kCategoryFile) == whole);
    }
}

TEST_F(NotificationToolTest, StoresANotification) {
    m_root.CreateDatabase();
    ASSERT_TRUE(Run("--notify alice A COUNT=-5 'TEXT=a=b \"c\"' EMPTY= 'LIST=[1,2]' 'QUOTE=it'\"'\"'s'"));
    ASSERT_TRUE(Run("--notify @ops nexnotify:system_event"));
    using Row = std::vector<KIVO::Test::Column>;
    EXPECT_EQ(m_root.Query("SELECT uid, message_content ->> 'title', message_content ->> '$.msg[0]', "
                           "message_content ->> 'time' = timestamp, strftime('%s') - timestamp < 60 "
                           "FROM nexnotify JOIN message USING(message_id) ORDER BY message_id, uid"),
              (std::vector<Row>{
                  {"1026", "A",
                   R"({"COUNT":"-5","EMPTY":"","LIST":"[1,2]","QUOTE":"it's","TEXT":"a=b \"c\""})", "1", "1"},
                  {"1027", "nexnotify:system_event", "{}", "1", "1"},
                  {"1028", "nexnotify:system_event", "{}", "1", "1"}}));
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 2U);
}

TEST_F(NotificationToolTest, ShowsWhatThePageWould) {
    m_root.WriteCatalogue("enu",
                          "[T]\nmessage={{A}} {B C} {B} {} {A}\nmail={M}\n[A]\nmessage=\naltMessage=x{\n");
    m_root.WriteCatalogue("ger", "[T]\nmessage=\xc3\xa9 {A}\n");
    for (const auto& [arguments, output, error] : {
             std::tuple("alice T A={B} B=2 M=", "alice (enu):\n{{B}} {B C} 2 {} {B}\n", ""),
             {"bob T A=1 C=1", "bob (ger):\n\xc3\xa9 1\n", "in ger no placeholder {C}"},
             {"alice T A=1", "alice (enu):\n{1} {B C} {B} {} 1\n", "in enu no value for {B}, {M}"},
             {"@ops A", "carol [hidden] (enu):\nx{\nbob, twin (ger):\nA\n", "in ger no text"},
             {"@users nexnotify:e", "alice (enu):\nnexnotify:e\nbob (ger):\nnexnotify:e\n", ""},
         }) {
        EXPECT_EQ(Run(std::string("--dry-run --notify ") + arguments), *error == '\0') << arguments;
        EXPECT_EQ(m_root.Read("/output"), output);
        EXPECT_EQ(m_root.Read("/error"),
                  *error == '\0'
                      ? ""
                      : std::string("notification_utils: The notification has gaps: ") + error + ".\n");
    }
}

TEST_F(NotificationToolTest, WaitsForALockButNotForLong) {
    m_root.CreateDatabase();
    sqlite3* database = nullptr;
    sqlite3_open(m_root.Path(kDatabase).c_str(), &database);
    sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    {
        const auto notify = [] { EXPECT_EQ(std::system("\"$TOOL\" --notify alice A"), 0); };
        const std::jthread first(notify), second(notify);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
    }
    sqlite3_exec(database, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    ExpectFailure("--notify alice A", "database is locked", "timeout 10 ");
    sqlite3_close(database);
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 2U);
}

TEST_F(NotificationToolTest, PrunesWhatIsOldAndNobodyHas) {
    // What is left: user:message, messages, and how many of many old ones.
    for (const auto& [arguments, output, left] : {
             std::tuple("90d", "306 links and 306", "1:8,2:8 5,8,9 0"),
             {"90d --keep 0", "306 links and 306", "1:8,2:8 5,8,9 0"},
             {"90d --keep 1", "304 links and 304", "1:8,2:8,3:7 5,7,8,9 1"},
             {"90d --keep 2", "300 links and 300", "1:1,1:8,2:2,2:8,3:6,3:7 1,2,5,6,7,8,9 2"},
             {"90d --keep 300", "0 links and 1", "1:1,1:3,1:8,2:1,2:2,2:8,3:6,3:7 1,2,3,5,6,7,8,9 300"},
             {"14w", "304 links and 303", "1:8,2:8,3:6,3:7 4,5,6,7,8,9 0"},
             {"2500h", "303 links and 302", "1:8,2:2,2:8,3:6,3:7 2,4,5,6,7,8,9 0"},
         }) {
        m_root.CreateDatabase();
        m_root.Query(
            "INSERT INTO message SELECT key + 1, '{}', strftime('%s') - value * 86400 "
            "FROM json_each('[200, 100, 300, 91, 89, 91, 91, 1, null]');"
            "INSERT INTO nexnotify VALUES(1, 1), (2, 1), (2, 2), (1, 3), (3, 6), (3, 7), (1, 8), (2, 8);"
            "WITH RECURSIVE many(id) AS (SELECT 1000 UNION ALL SELECT id + 1 FROM many WHERE id < 1299) "
            "INSERT INTO message SELECT id, '{}', id FROM many;"
            "INSERT INTO nexnotify SELECT 4, message_id FROM message WHERE message_id >= 1000");
        EXPECT_TRUE(Run(std::string("--prune --older-than ") + arguments)) << m_root.Read("/error").value();
        EXPECT_EQ(m_root.Read("/output"), std::string("Removed ") + output + " messages.\n") << arguments;
        EXPECT_EQ(m_root.Read("/error"), "");
        const auto rows = m_root.Query(
            "SELECT (SELECT group_concat(uid || ':' || message_id) FROM nexnotify WHERE uid < 4) || ' ' ||"
            " (SELECT group_concat(message_id) FROM message WHERE message_id < 1000) || ' ' ||"
            " (SELECT count(*) FROM message JOIN nexnotify USING(message_id) WHERE uid = 4)");
        EXPECT_EQ(rows[0][0], left) << arguments;
        std::filesystem::remove(m_root.Path(kDatabase));
    }
}

TEST_F(NotificationToolTest, SaysWhatIsWrong) {
    ExpectFailure("--notify alice A", "no notification database");
    m_root.Write(kDatabase, std::string(200, 'x'));
    ExpectFailure("--notify alice A", "file is not a database");
    m_root.CreateDatabase();
    for (const auto& [arguments, sentencePart] : {
             std::pair("", "required"),
             {"--gen_category_file ../enu", "is no language"},
             {"--gen_category_file ger", "no readable text catalogue"},
             {"--notify dave A", "no user \"dave\""},
             {"--notify @administrators A", "No user is in the group \"administrators\""},
             {"--notify alice B", "has the tag \"B\""},
             {"--prune", "requires --older-than"},
             {"--prune --older-than 0d", "\"0d\" is no age"},
             {"--prune --older-than 1.5d", "\"1.5d\" is no age"},
             {"--prune --older-than 9d --keep -1", "--keep"},
             {"--notify alice A =5", "\"=5\" is not of the form NAME=VALUE"},
         }) {
        ExpectFailure(arguments, sentencePart);
    }
    m_root.Query("ALTER TABLE nexnotify RENAME TO gone");
    ExpectFailure("--notify alice A", "no such table");
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 0U);
}

TEST_F(NotificationToolTest, WithoutWriteAccessNothingChanges) {
    m_root.CreateDatabase();
    // The superuser writes everywhere unless those capabilities are taken away.
    const std::string launcher =
        geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search " : "";
    fs::permissions(m_root.Path(kTexts), fs::perms(0500));
    ExpectFailure("--gen_category_file enu", "Permission denied", launcher);
    fs::permissions(m_root.Path(kTexts), fs::perms(0700));
    fs::create_directories(m_root.Path(kCategoryFile) + "/folder");
    ExpectFailure("--gen_category_file enu", "Is a directory");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_root.Path(kTexts)), {}), 2) << "a temporary file";
    fs::permissions(m_root.Path(kDatabase), fs::perms::owner_read);
    ExpectFailure("--notify alice A", "readonly database", launcher);
}

}  // namespace
