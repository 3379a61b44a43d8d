#include <json/writer.h>
#include <sched.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kSmaller = 16;  // The sanitizer makes everything slower and larger.
#else
constexpr std::size_t kSmaller = 1;
#endif
constexpr std::size_t kMebibyte = 1024UL * 1024;
constexpr std::size_t kTagCount = 50UL * 1024 / kSmaller;

constexpr char kLoad[] = R"({"action":"load","limit":9})";
constexpr char kCategories[] = R"({"action":"loadHaveNtAppList"})";
constexpr char kApply[] = R"({"action":"apply","clean":"all"})";

constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";
constexpr char kEvents[] = "/var/log/kivo/events.jsonl";
constexpr char kTool[] = "/usr/kivo/bin/notification_utils";

/// An appliance with one notification for alice, served by one worker with the module.
class HostileDataTest : public HostTest {
protected:
    struct Case {
        std::string what;
        /// What is answered to load, loadHaveNtAppList, the strings, the mail and apply.
        std::string answers;
        std::function<void()> arrange;
        /// The event log afterwards, where that counts.
        std::optional<std::string> events = {};
    };
    static constexpr char kHealthy[] = "1, 1 on, 1, 1, null";

    HostileDataTest() {
        // In a namespace of its own the process may mount, and what it mounts goes with it.
        const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
        const bool isApart = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
        // Refused, and not needed, in the user namespace that it was born in.
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + uid + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + gid + " 1";
        m_canMount = isApart && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "The module needs uid 0, or a user namespace.";
        }
        MakeHealthy();
        Serve({"--workers", "1", "--module", MODULE});
    }

    void TearDown() override { Unmount(); }

    void MakeHealthy() {
        for (const char* folder : {"/var", "/etc", "/usr"}) {
            std::filesystem::remove_all(m_root.Path(folder));
        }
        std::filesystem::create_directories(m_root.Path("/usr/kivo/bin"));
        std::filesystem::create_symlink(NOTIFICATION_UTILS, m_root.Path(kTool));
        WriteFiles();
    }

    void WriteFiles() const {
        m_root.WriteUsers({{.name = "alice", .language = "ger", .token = kToken}});
        WriteCatalogues("[Tag]\nmessage=Text\nmail=Mail\ngroup=Group\n");
        m_root.Write(kEvents, "");
        m_root.CreateDatabase();
        m_root.AddMessage({1026}, R"({"title":"Tag","time":1})", 1);
    }

    void Unmount() const {
        for (const char* path : {"/var/log/kivo", "/var", "/"}) {
            umount2(m_root.Path(path).c_str(), MNT_DETACH);
        }
    }

    void WriteCatalogues(const std::string& content) const {
        m_root.WriteCatalogue("enu", content);
        m_root.WriteCatalogue("ger", content);
    }

    /// Stores the choice "off" for the only category, behind as many others.
    void ChooseOff(const std::string& user, Json::ArrayIndex others) const {
        Json::Value document;
        Json::Value& choices = document["KIVO.ZUI.NEXNotify.Setting.Application"]["notifcationSettings"];
        for (Json::ArrayIndex i = 0; i <= others; ++i) {
            choices[i]["category_enu"] = i < others ? std::string(1000, 'x') : "Group";
            choices[i]["app"] = "";
            choices[i]["nexnotify"] = "off";
        }
        m_root.WriteUserSettings(user, document);
    }

    Json::Value Envelope(const std::string& body, const std::string& token = kToken,
                         const std::string& method = "/1/notify") const {
        return Send({.path = "/webapi/KIVO.Core.NEXNotify" + method, .body = body, .token = token})
            .Envelope();
    }

    /// The error code, or how much there is with the first category's choice.
    static std::string Summary(const Json::Value& envelope) {
        const Json::Value& data = envelope["data"];
        if (!envelope["success"].asBool()) {
            return envelope["error"]["code"].asString();
        }
        if (!data.isObject()) {
            return data.isNull() ? "null" : "[]";
        }
        if (!data.isMember("total")) {
            return std::to_string(data.size());
        }
        const Json::Value& choice = data["items"][0]["nexnotify"];
        return data["total"].asString() + (choice.isNull() ? "" : " " + choice.asString());
    }

    std::string Answers() const {
        std::string answers = Summary(Envelope(kLoad));
        answers += ", " + Summary(Envelope(kCategories));
        answers += ", " + Summary(Envelope("{}", kToken, ".Strings/1/get"));
        answers += ", " + Summary(Envelope(R"({"title":"Tag"})", kToken, ".MailContent/1/get"));
        return answers + ", " + Summary(Envelope(kApply));
    }

    /// Each has its answers, and after it the same worker serves a healthy appliance.
    void ExpectAnswers(const std::vector<Case>& cases) {
        const auto workers = m_host->Workers();
        for (const auto& [what, answers, arrange, events] : cases) {
            SCOPED_TRACE(what);
            arrange();
            EXPECT_EQ(Answers(), answers);
            if (answers.ends_with("117")) {
                EXPECT_EQ(Answers(), answers) << "after an apply that was refused";
            }
            if (events) {
                EXPECT_EQ(m_root.Read(kEvents), events);
            }
            Unmount();
            MakeHealthy();
            EXPECT_EQ(Answers(), kHealthy);
            MakeHealthy();
            EXPECT_EQ(m_host->Workers(), workers);
        }
    }

    bool m_canMount = false;
};

TEST_F(HostileDataTest, LargeOrBrokenFilesHaveTheirAnswer) {
    const std::string links = std::to_string(1'000'000 / kSmaller);
    std::vector<Case> cases = {
        {"a row of 64 MiB", "2, 1 on, 1, 1, null",
         [&] {
             const std::string large(64 * kMebibyte / kSmaller, 'x');
             m_root.AddMessage({1026}, R"({"title":"Tag","time":2,"msg":[")" + large + "\"]}", 2);
         }},
        {"a million links", links + ", 1 on, 1, 1, null",
         [&] {
             m_root.Query(
                 "CREATE TABLE n AS WITH RECURSIVE n(i) AS (VALUES(2) UNION ALL SELECT i + 1 FROM n LIMIT " +
                 links + " - 1) SELECT i FROM n");
             m_root.Query(R"(INSERT INTO message SELECT i, '{"title":"Tag","time":1}', i FROM n)");
             m_root.Query("INSERT INTO nexnotify SELECT 1026, i FROM n");
         }},
        {"catalogues of 50 MiB", "1, 1 on, " + std::to_string(kTagCount) + ", 1, null",
         [&] {
             std::string catalogue = "[Tag]\nmail=Mail\n";
             for (std::size_t i = 0; i < kTagCount; ++i) {
                 catalogue +=
                     "[Tag" + std::to_string(i) + "]\ngroup=Group\nmessage=" + std::string(1000, 'x') + "\n";
             }
             WriteCatalogues(catalogue);
         }},
        {"settings of 20 MiB", "1, 1 off, 1, 1, null", [&] { ChooseOff("alice", 20UL * 1024 / kSmaller); }},
        {"no database", "117, 1 on, 1, 1, 117", [&] { m_root.Write(kDatabase, std::string(9999, 'x')); }},
        {"an empty database", "0, 1 on, 1, 1, 117", [&] { m_root.Write(kDatabase, ""); }},
        {"a table missing", "0, 1 on, 1, 1, 117", [&] { m_root.Query("DROP TABLE nexnotify"); }},
        {"a row that is no JSON", "0, 1 on, 1, 1, null",
         [&] { m_root.Query("UPDATE message SET message_content = 'x'"); }},
    };
    const std::string enu = "/var/cache/texts/enu/";
    const std::vector<std::pair<std::string, std::vector<std::string>>> answersWithoutFiles = {
        {"117, 1 on, 1, 1, 117", {kDatabase}},
        {"401, 401, 401, 401, 401", {"/etc/kivo/users.json"}},
        {"0, [], 101, 117, null", {enu + "mails", "/var/cache/texts/ger/mails"}},
        {"1, [], 101, 1, null", {enu + "notification_category"}},
        {"1, [], 101, 1, null", {kTool}},
        {kHealthy, {"/etc/kivo/settings/users/alice.json", "/usr/kivo/etc/notification/mails", kEvents}},
    };
    for (const auto& [answers, paths] : answersWithoutFiles) {
        for (const bool isPipe : {false, true}) {
            cases.push_back(
                {(isPipe ? "pipes at " : "folders at ") + testing::PrintToString(paths), answers,
                 [this, paths = paths, isPipe] {
                     for (const std::string& path : paths) {
                         std::filesystem::remove(m_root.Path(path));
                         const std::filesystem::path place = m_root.Path(path);
                         std::filesystem::create_directories(place.parent_path());
                         EXPECT_EQ(isPipe ? mkfifo(place.c_str(), 0644) : mkdir(place.c_str(), 0755), 0);
                     }
                 }});
        }
    }
    ExpectAnswers(cases);
}

TEST_F(HostileDataTest, FullAndReadOnlyDisksHaveTheirAnswer) {
    if (!m_canMount) {
        GTEST_SKIP() << "This system lets no one mount.";
    }
    // By a host that has answered before, so that all files are there.
    const auto fill = [this](const char* folder, const std::function<void()>& writeFirst) {
        ASSERT_EQ(mount("tmpfs", m_root.Path(folder).c_str(), "tmpfs", 0, "size=1m"), 0);
        writeFirst();
        // In this order: making the category file closes the connection to the database.
        EXPECT_EQ(Summary(Envelope(kCategories)), "1 on");
        EXPECT_EQ(Summary(Envelope(kLoad)), "1");
        std::ofstream(m_root.Path(folder) + "/filler") << std::string(2 * kMebibyte, 'x');
    };
    const std::string almostAPage(4090, '\n');  // Of an entry a little would fit.
    ExpectAnswers({
        {"a full disk", "1, 1 on, 1, 1, 117", [&] { fill("/var", [this] { WriteFiles(); }); }},
        {"a full disk of the event log", kHealthy,
         [&] { fill("/var/log/kivo", [&] { m_root.Write(kEvents, almostAPage); }); }, almostAPage},
    });
    EXPECT_EQ(Summary(Envelope(kCategories)), "1 on");
    EXPECT_EQ(Summary(Envelope(kLoad)), "1");
    const char* const root = m_root.Folder().c_str();
    ASSERT_EQ(mount(root, root, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(root, root, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(Answers() + ", " + Answers(), "1, 1 on, 1, 1, 117, 1, 1 on, 1, 1, 117");
    Unmount();
    EXPECT_EQ(Answers(), kHealthy);
    EXPECT_EQ(Summary(Envelope(kLoad)), "0");

    m_host.reset();
    EXPECT_FALSE(std::filesystem::exists(m_root.Path(kDatabase) + "-wal")) << "A host leaves none behind.";
}

TEST_F(HostileDataTest, AWriterThatDoesNotEndKeepsNobodyFromReading) {
    m_host.reset();
    Serve({"--workers", "2", "--module", MODULE});
    sqlite3* writer = nullptr;
    sqlite3_open(m_root.Path(kDatabase).c_str(), &writer);
    const auto begin = [&] {
        ASSERT_EQ(sqlite3_exec(writer, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    };
    begin();
    std::vector<std::jthread> clients;
    clients.emplace_back([this] { EXPECT_EQ(Summary(Envelope(kApply)), "null"); });
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(Summary(Envelope(kLoad)), "1");
    sqlite3_exec(writer, "ROLLBACK", nullptr, nullptr, nullptr);
    clients.clear();
    EXPECT_EQ(Summary(Envelope(kLoad)), "0");

    begin();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 12; ++i) {
        clients.emplace_back([this] { EXPECT_EQ(Summary(Envelope(kApply)), "117"); });
    }
    EXPECT_EQ(Summary(Envelope(kLoad)), "0");
    clients.clear();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(12)) << "One waits, for 5 s.";
    sqlite3_close(writer);
}

TEST_F(HostileDataTest, NamesOfAnyKindAreJustNames) {
    const std::vector<std::string> names = {"o'Brien \"x\"", "back\\slash", "new\nline",
                                            "\U0001F600",    "%s%n",        "'; DROP TABLE message; --",
                                            "a/b",           "..",          {"nul\0", 4}};
    std::vector<TestUser> users;
    for (const std::string& name : names) {
        const int uid = 2000 + static_cast<int>(users.size());
        users.push_back({.name = name, .uid = uid, .token = "token-" + std::to_string(uid)});
        m_root.AddMessage(
            {uid}, "{\"title\":" + Json::valueToQuotedString((":" + name).c_str()) + ",\"time\":1}", 1);
    }
    m_root.WriteUsers(users);
    for (const TestUser& user : users) {
        SCOPED_TRACE(user.name);
        const Json::Value load = Envelope(kLoad, user.token);
        if (user.uid > 2005) {  // Such a name would be a path, so nobody has it.
            EXPECT_EQ(Summary(load), "401");
            continue;
        }
        EXPECT_EQ(Summary(load), "1");
        EXPECT_EQ(load["data"]["items"][0]["title"], ":" + user.name);
        ChooseOff(user.name, 0);
        EXPECT_EQ(Summary(Envelope(kCategories, user.token)), "1 off");
        m_root.Write(kEvents, "");
        EXPECT_EQ(Summary(Envelope(kApply, user.token)), "null");
        Json::Value entry;
        EXPECT_TRUE(Json::Reader().parse(m_root.Read(kEvents).value(), entry));
        EXPECT_EQ(entry["args"][0], user.name);
    }
}

TEST_F(HostileDataTest, AUsersFileThatIsBeingRewrittenSignsNobodyOut) {
    m_root.WriteUsers({{.name = "alice", .token = "former-token"}});
    ASSERT_EQ(Summary(Envelope(kLoad, "former-token")), "1");
    m_root.WriteUsers({{.name = "alice", .token = kToken}});
    const std::string users = m_root.Read("/etc/kivo/users.json").value();
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    m_root.Write("/etc/kivo/users.json", users.substr(0, users.size() / 2));
    EXPECT_EQ(Summary(Envelope(kLoad)), "1") << "What changes while nobody asks is learned.";
    EXPECT_EQ(Summary(Envelope(kLoad, "former-token")), "401");

    const std::jthread writer([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            std::ofstream file(m_root.Path("/etc/kivo/users.json"), std::ios::trunc);
            for (const auto& half : {users.substr(0, users.size() / 2), users.substr(users.size() / 2)}) {
                file << half << std::flush;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(Summary(Envelope(kLoad)), "1");
    }
}

}  // namespace
}  // namespace KIVO::Test
