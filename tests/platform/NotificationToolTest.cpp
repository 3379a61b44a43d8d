#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "kivocore/exec.h"
#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"

namespace {

namespace fs = std::filesystem;
using KIVO::Appliance::ParseJson;

constexpr char kTexts[] = "/var/cache/texts/enu";
constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";
constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

struct Outcome {
    int exitStatus;
    std::string output;
    std::string error;
};

class NotificationToolTest : public testing::Test {
protected:
    NotificationToolTest() {
        m_root.WriteUsers({{.name = "alice", .uid = 1026}});
        m_root.WriteCatalogue("enu",
                              "[Z]\ngroup=Storage \xc3\xa9\nappid=KIVO.App.Backup\n[A]\nmessage=text\n");
    }

    /// Runs the tool with arguments in the shell's notation.
    Outcome Run(const std::string& arguments, const std::string& launcher = "") {
        const std::string command =
            launcher + NOTIFICATION_TOOL " " + arguments + " 2>" + m_root.Path("/standardError");
        FILE* pipe = popen(command.c_str(), "r");
        Outcome outcome{};
        for (int byte = fgetc(pipe); byte != EOF; byte = fgetc(pipe)) {
            outcome.output.push_back(static_cast<char>(byte));
        }
        outcome.exitStatus = WEXITSTATUS(pclose(pipe));
        outcome.error = m_root.Read("/standardError").value();
        return outcome;
    }

    void ExpectFailure(const std::string& arguments, const std::string& sentencePart,
                       const std::string& launcher = "") {
        const Outcome outcome = Run(arguments, launcher);
        EXPECT_NE(outcome.exitStatus, 0) << arguments;
        EXPECT_NE(outcome.error.find(sentencePart), std::string::npos) << outcome.error;
        EXPECT_EQ(outcome.error.find('\n'), outcome.error.size() - 1) << outcome.error;
        EXPECT_EQ(outcome.output, "");
    }

    KIVO::Test::ApplianceRoot m_root;
};

TEST_F(NotificationToolTest, WritesEveryTagInTheCataloguesOrder) {
    ASSERT_EQ(KLIBCExec(NOTIFICATION_TOOL, "--gen_category_file", "enu", nullptr, nullptr), 0);
    Json::Value document;
    ASSERT_TRUE(ParseJson(m_root.Read(kCategoryFile).value(), document));
    Json::Value expected;
    ASSERT_TRUE(ParseJson(
        "{\"All\": [{\"name\": \"Z\", \"group\": \"Storage \xc3\xa9\", \"appid\": \"KIVO.App.Backup\"},"
        " {\"name\": \"A\"}]}",
        expected));
    EXPECT_EQ(document, expected);
    struct stat status {};
    ASSERT_EQ(stat(m_root.Path(kCategoryFile).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);

    m_root.WriteCatalogue("ger", "");
    ASSERT_EQ(Run("--gen_category_file ger").exitStatus, 0);
    EXPECT_EQ(m_root.Read("/var/cache/texts/ger/notification_category"), "{\"All\":[]}\n");
}

TEST_F(NotificationToolTest, AReaderNeverMeetsHalfAFile) {
    constexpr unsigned kTags = 3000;
    std::string catalogue;
    for (unsigned tag = 0; tag < kTags; ++tag) {
        catalogue += "[Tag" + std::to_string(tag) + "]\ngroup=A category with a rather long title\n";
    }
    m_root.WriteCatalogue("enu", catalogue);
    std::atomic<int> generators = 2;
    std::vector<std::thread> threads;
    for (int count = 0; count < 2; ++count) {
        threads.emplace_back([&] {
            for (int run = 0; run < 10; ++run) {
                EXPECT_EQ(std::system(NOTIFICATION_TOOL " --gen_category_file enu"), 0);
            }
            --generators;
        });
    }
    bool isLast = false;
    while (!isLast) {
        isLast = generators == 0;
        const auto content = m_root.Read(kCategoryFile);
        Json::Value document;
        ASSERT_TRUE(!content || ParseJson(*content, document)) << *content;
        ASSERT_TRUE(!content || document["All"].size() == kTags);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(fs::exists(m_root.Path(kCategoryFile)));
    EXPECT_EQ(std::distance(fs::directory_iterator(m_root.Path(kTexts)), {}), 2)
        << "a temporary file is left";
}

TEST_F(NotificationToolTest, StoresANotification) {
    m_root.CreateDatabase();
    const Outcome outcome =
        Run("--notify alice A COUNT=-5 'TEXT=a=b \"c\"' EMPTY= 'LIST=[1,2]' 'QUOTE=it'\"'\"'s'");
    ASSERT_EQ(outcome.exitStatus, 0) << outcome.error;
    ASSERT_EQ(Run("--notify alice nexnotify:system_event").exitStatus, 0);

    const auto rows = m_root.Query(
        "SELECT uid, message_content, timestamp, strftime('%s') - timestamp FROM nexnotify "
        "JOIN message USING(message_id) ORDER BY message_id");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0][0], "1026");
    Json::Value content;
    ASSERT_TRUE(ParseJson(rows[0][1].value(), content));
    EXPECT_EQ(content["title"], "A");
    EXPECT_EQ(content["time"].asString(), rows[0][2]);
    EXPECT_LT(std::stoi(rows[0][3].value()), 60);
    Json::Value parameters;
    ASSERT_EQ(content["msg"].size(), 1U);
    ASSERT_TRUE(ParseJson(content["msg"][0].asString(), parameters));
    EXPECT_EQ(parameters.size(), 5U);
    EXPECT_EQ(parameters["COUNT"], "-5");
    EXPECT_EQ(parameters["TEXT"], "a=b \"c\"");
    EXPECT_EQ(parameters["EMPTY"], "");
    EXPECT_EQ(parameters["LIST"], "[1,2]");
    EXPECT_EQ(parameters["QUOTE"], "it's");
    ASSERT_TRUE(ParseJson(rows[1][1].value(), content));
    EXPECT_EQ(content["msg"][0], "{}");
}

TEST_F(NotificationToolTest, SaysWhatIsWrong) {
    EXPECT_EQ(Run("--help").exitStatus, 0);
    ExpectFailure("", "required");
    ExpectFailure("--gen_category_file", "required");
    ExpectFailure("--gen_category_file enu --notify alice A", "Exactly 1");
    ExpectFailure("--gen_category_file enu more", "not expected");
    ExpectFailure("--frobnicate", "required");
    for (const char* language : {"EN", "../enu", "''", "engl", "En1"}) {
        ExpectFailure(std::string("--gen_category_file ") + language, "is no language");
    }
    ExpectFailure("--gen_category_file ger", "no readable text catalogue");

    ExpectFailure("--notify alice A", "no notification database");
    m_root.Write(kDatabase, std::string(200, 'x'));
    ExpectFailure("--notify alice A", "file is not a database");
    fs::remove(m_root.Path(kDatabase));
    m_root.CreateDatabase();
    ExpectFailure("--notify alice", "At least 2");
    ExpectFailure("--notify bob A", "no user \"bob\"");
    ExpectFailure("--notify alice B", "has the tag \"B\"");
    ExpectFailure("--notify alice A COUNT", "\"COUNT\" is not of the form NAME=VALUE");
    ExpectFailure("--notify alice A =5", "\"=5\" is not of the form NAME=VALUE");
    m_root.Query("ALTER TABLE nexnotify RENAME TO gone");
    ExpectFailure("--notify alice A", "no such table");
    m_root.WriteCatalogue("enu", "no catalogue");
    ExpectFailure("--notify alice A", "no readable text catalogue");
    EXPECT_EQ(m_root.Query("SELECT * FROM message").size(), 0U);
}

TEST_F(NotificationToolTest, WithoutWriteAccessNothingChanges) {
    m_root.CreateDatabase();
    // The superuser writes everywhere unless those capabilities are taken away.
    const std::string launcher =
        geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search " : "";
    fs::permissions(m_root.Path(kTexts), fs::perms::owner_read | fs::perms::owner_exec);
    ExpectFailure("--gen_category_file enu", "Permission denied", launcher);
    fs::permissions(m_root.Path(kTexts), fs::perms::owner_all);
    fs::create_directories(m_root.Path(kCategoryFile) + "/folder");
    ExpectFailure("--gen_category_file enu", "Is a directory");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_root.Path(kTexts)), {}), 2)
        << "a temporary file is left";

    fs::permissions(m_root.Path(kDatabase), fs::perms::owner_read);
    ExpectFailure("--notify alice A", "readonly database", launcher);
    fs::permissions(m_root.Path(kDatabase), fs::perms::none);
    ExpectFailure("--notify alice A", "unable to open database file", launcher);
}

}  // namespace
