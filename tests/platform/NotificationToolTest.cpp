#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <thread>

#include "kivocore/exec.h"
#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"

namespace {

namespace fs = std::filesystem;
using KIVO::Appliance::ParseJson;
using KIVO::Appliance::WriteJson;

constexpr char kTexts[] = "/var/cache/texts/enu";
constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";
constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

class NotificationToolTest : public testing::Test {
protected:
    NotificationToolTest() {
        m_root.WriteUsers({{.name = "alice", .uid = 1026}});
        m_root.WriteCatalogue("enu",
                              "[Z]\ngroup=Storage \xc3\xa9\nappid=KIVO.App.Backup\n[A]\nmessage=text\n");
    }

    /// Runs the tool with arguments in the shell's notation. Whether it succeeded.
    bool Run(const std::string& arguments, const std::string& launcher = "") {
        const std::string command = launcher + NOTIFICATION_TOOL " " + arguments + " >" +
                                    m_root.Path("/output") + " 2>" + m_root.Path("/error");
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

    void ExpectNoTemporaryFile() {
        EXPECT_EQ(std::distance(fs::directory_iterator(m_root.Path(kTexts)), {}), 2);
    }

    KIVO::Test::ApplianceRoot m_root;
};

TEST_F(NotificationToolTest, WritesEveryTagInTheCataloguesOrder) {
    ASSERT_EQ(KLIBCExec(NOTIFICATION_TOOL, "--gen_category_file", "enu", nullptr, nullptr), 0);
    Json::Value document;
    ASSERT_TRUE(ParseJson(m_root.Read(kCategoryFile).value(), document));
    EXPECT_EQ(WriteJson(document),
              "{\"All\":[{\"appid\":\"KIVO.App.Backup\",\"group\":\"Storage \xc3\xa9\",\"name\":\"Z\"},"
              "{\"name\":\"A\"}]}");
    EXPECT_EQ(fs::status(m_root.Path(kCategoryFile)).permissions(), fs::perms(0644));
    m_root.WriteCatalogue("ger", "");
    ASSERT_TRUE(Run("--gen_category_file ger"));
    EXPECT_EQ(m_root.Read("/var/cache/texts/ger/notification_category"), "{\"All\":[]}\n");
}

TEST_F(NotificationToolTest, AReaderNeverMeetsHalfAFile) {
    std::string catalogue;
    for (int tag = 0; tag < 3000; ++tag) {
        catalogue += "[Tag" + std::to_string(tag) + "]\ngroup=A category with a rather long title\n";
    }
    m_root.WriteCatalogue("enu", catalogue);
    ASSERT_TRUE(Run("--gen_category_file enu"));
    const auto whole = m_root.Read(kCategoryFile);
    std::atomic<int> generators = 2;
    const auto generate = [&] {
        for (int run = 0; run < 10; ++run) {
            EXPECT_EQ(std::system(NOTIFICATION_TOOL " --gen_category_file enu"), 0);
        }
        --generators;
    };
    const std::jthread first(generate);
    const std::jthread second(generate);
    while (generators > 0) {
        ASSERT_TRUE(m_root.Read(kCategoryFile) == whole);
    }
    ExpectNoTemporaryFile();
}

TEST_F(NotificationToolTest, StoresANotification) {
    m_root.CreateDatabase();
    ASSERT_TRUE(Run("--notify alice A COUNT=-5 'TEXT=a=b \"c\"' EMPTY= 'LIST=[1,2]' 'QUOTE=it'\"'\"'s'"));
    ASSERT_TRUE(Run("--notify alice nexnotify:system_event"));
    const auto rows = m_root.Query(
        "SELECT uid, message_content, timestamp, strftime('%s') - timestamp < 60 FROM nexnotify "
        "JOIN message USING(message_id) ORDER BY message_id");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0][0], "1026");
    EXPECT_EQ(rows[0][3], "1");
    Json::Value content;
    ASSERT_TRUE(ParseJson(rows[0][1].value(), content));
    EXPECT_EQ(content["title"], "A");
    EXPECT_EQ(content["time"].asString(), rows[0][2]);
    ASSERT_EQ(content["msg"].size(), 1U);
    Json::Value parameters;
    ASSERT_TRUE(ParseJson(content["msg"][0].asString(), parameters));
    EXPECT_EQ(WriteJson(parameters),
              R"({"COUNT":"-5","EMPTY":"","LIST":"[1,2]","QUOTE":"it's","TEXT":"a=b \"c\""})");
    ASSERT_TRUE(ParseJson(rows[1][1].value(), content));
    EXPECT_EQ(content["msg"][0], "{}");
}

TEST_F(NotificationToolTest, SaysWhatIsWrong) {
    EXPECT_TRUE(Run("--help"));
    ExpectFailure("--notify alice A", "no notification database");
    m_root.Write(kDatabase, std::string(200, 'x'));
    ExpectFailure("--notify alice A", "file is not a database");
    m_root.CreateDatabase();
    for (const auto& [arguments, sentencePart] : std::map<std::string, std::string>{
             {"", "required"},
             {"--frobnicate", "required"},
             {"--gen_category_file", "required"},
             {"--gen_category_file enu --notify alice A", "Exactly 1"},
             {"--gen_category_file enu more", "not expected"},
             {"--gen_category_file EN", "is no language"},
             {"--gen_category_file ../enu", "is no language"},
             {"--gen_category_file ''", "is no language"},
             {"--gen_category_file engl", "is no language"},
             {"--gen_category_file ger", "no readable text catalogue"},
             {"--notify alice", "At least 2"},
             {"--notify bob A", "no user \"bob\""},
             {"--notify alice B", "has the tag \"B\""},
             {"--notify alice A COUNT", "\"COUNT\" is not of the form"},
             {"--notify alice A =5", "\"=5\" is not of the form NAME=VALUE"}}) {
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
    ExpectNoTemporaryFile();
    fs::permissions(m_root.Path(kDatabase), fs::perms::owner_read);
    ExpectFailure("--notify alice A", "readonly database", launcher);
}

}  // namespace
