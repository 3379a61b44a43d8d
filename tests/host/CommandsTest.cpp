#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "tests/host/HostTest.h"

namespace KIVO::Test {
namespace {

namespace fs = std::filesystem;

class CommandsTest : public HostTest {
protected:
    /// The leak checker of the sanitizers' build cannot look at a program that has changed its ids.
    CommandsTest() { setenv("ASAN_OPTIONS", "detect_leaks=0:allocator_may_return_null=1", 1); }

    /// What the command prints, with the account nobody where this process can become it. Expects the status.
    std::string Run(std::vector<std::string> arguments, int status = 0) {
        arguments.insert(arguments.begin(), {"--root", m_appliance.string(), "--account",
                                             CanTakeOnIds() ? "nobody" : "root", "--module", MODULE});
        const auto host = Start(arguments);
        std::string output = host->Read();
        EXPECT_EQ(host->Wait(), status) << testing::PrintToString(arguments) << output << Log();
        return output;
    }

    /// Every file below the appliance with its mode, owner, time and content or target.
    std::map<std::string, std::string> Files() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(m_appliance)) {
            struct stat status {};
            lstat(entry.path().c_str(), &status);
            std::ostringstream text;
            text << std::oct << status.st_mode << ' ' << status.st_uid << ' ' << status.st_gid << ' '
                 << status.st_mtim.tv_sec << ' ' << status.st_mtim.tv_nsec << ' ';
            if (entry.path().filename() == "log" && entry.is_regular_file()) {
                continue;  // the host's
            }
            if (entry.is_regular_file()) {
                text << std::ifstream(entry.path()).rdbuf();
            }
            files[entry.path().lexically_relative(m_appliance)] = text.str();
        }
        return files;
    }

    fs::path m_appliance = m_root.Folder() / "new/appliance";
};

TEST_F(CommandsTest, AnApplianceIsMadeAndUsedFromNothing) {
    Run({"init"});
    Run({"users", "add", "alice", "--administrator", "--language", "ger"});
    EXPECT_EQ(Run({"check"}).find("error"), std::string::npos);
    Run({"users", "add", "bob", "--app", "KIVO.App.Sync", "--app", "KIVO.App.Backup", "--hidden-tag",
         "LoginFailed"});
    EXPECT_EQ(Run({"users", "list"}),
              "NAME   UID   LANGUAGE  GROUPS                APPLICATIONS                   HIDDEN-TAGS\n"
              "alice  1026  ger       administrators,users  -                              -\n"
              "bob    1027  enu       users                 KIVO.App.Backup,KIVO.App.Sync  LoginFailed\n");
    const auto before = Files();
    EXPECT_EQ(Run({"init"}), "") << "All is there.";
    EXPECT_EQ(Files(), before);

    setenv("KIVO_ROOT", m_appliance.c_str(), 1);
    const auto notify = [](const std::string& user) {
        const std::string tool = NOTIFICATION_UTILS;
        return std::system((tool + " --notify " + user + " VolumeFull VOLUME=Media").c_str());
    };
    EXPECT_EQ(notify("alice"), 0);
    EXPECT_EQ(notify("bob"), 0);
    const std::string link = Run({"sign-in", "alice"});
    const std::string code = link.substr(link.find('=') + 1, link.size() - link.find('=') - 2);

    if (geteuid() != 0) {
        GTEST_SKIP() << "The module needs uid 0.";
    }
    Serve({"--workers", "1", "--account", CanTakeOnIds() ? "nobody" : "root", "--module", MODULE});
    const HttpReply session = Send({.path = "/session", .body = R"({"code":")" + code + "\"}", .token = ""});
    HttpRequest load = {.path = "/webapi/KIVO.Core.NEXNotify/1/notify",
                        .body = R"({"action":"load"})",
                        .token = session.Envelope()["data"]["token"].asString()};
    EXPECT_EQ(Send(load).Envelope()["data"]["items"][0]["title"], "VolumeFull") << Log();

    // A new token ends the old one; a user who comes after another does not get that one's notifications.
    Run({"users", "token", "alice"});
    EXPECT_EQ(Send(load).status, 401);
    Run({"users", "remove", "bob"});
    Run({"users", "add", "carol"});
    load.token = Run({"users", "token", "carol"});
    load.token.pop_back();
    EXPECT_EQ(Send(load).Envelope()["data"]["total"], 0);
}

TEST_F(CommandsTest, TheUsersFileIsChangedAsAWholeOrNotAtAll) {
    Run({"init"});
    const auto file = [this] { return Files().at("etc/kivo/users.json"); };
    const std::string rights = file().substr(0, 16);
    EXPECT_EQ(rights, CanTakeOnIds() ? "100640 0 177776 " : rights);  // of root and of nobody's group

    std::vector<std::unique_ptr<HostProcess>> all;
    for (char name = 'a'; name < 'i'; ++name) {
        all.push_back(Start({"--root", m_appliance, "users", "add", {name}}));
    }
    for (const auto& one : all) {
        EXPECT_EQ(one->Wait(), 0);
    }
    const std::string list = Run({"users", "list"});
    EXPECT_EQ(std::ranges::count(list, '\n'), 9) << list;
    EXPECT_EQ(file().substr(0, 16), rights);

    const std::string before = file();
    m_prepare = [] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit full = {512, 512};
        setrlimit(RLIMIT_FSIZE, &full);
    };
    Run({"users", "add", "zoe"}, 1);
    EXPECT_TRUE(HasLogged("Cannot write " + m_appliance.string() + "/etc/kivo/users.json: File too large."));
    m_prepare = {};
    EXPECT_EQ(file(), before);
    EXPECT_FALSE(fs::exists(m_appliance / "etc/kivo/users.json.new"));

    std::ofstream(m_appliance / "etc/kivo/users.json") << "{\"users\": []";
    Run({"users", "add", "zoe"}, 1);
    EXPECT_TRUE(HasLogged("is no users file: Line 1, Column 13")) << Log();
}

TEST_F(CommandsTest, CheckFindsWhatIsWrongAndChangesNothing) {
    const auto shell = [](const std::string& command) {
        EXPECT_EQ(std::system(("cd \"$KIVO_ROOT\" && " + command).c_str()), 0) << command;
    };
    shell("rm -r etc var");
    m_appliance = m_root.Folder();
    Run({"init"});
    Run({"users", "add", "alice"});
    Run({"users", "add", "bob"});
    const std::string well = Run({"check"});
    EXPECT_EQ(std::ranges::count(well, '\n'), 7) << well;
    shell("cp -a . ../$(basename \"$KIVO_ROOT\").well");

    struct Case {
        std::string change;
        std::string finding;
        bool isError = false;
    };
    std::vector<Case> cases = {
        {"sql DROP TABLE nexnotify", "lacks the table nexnotify (uid INTEGER, message_id INTEGER).", true},
        {"sql DROP INDEX nexnotify_message", "lacks the index nexnotify_message on nexnotify (message_id)."},
        {"sql PRAGMA journal_mode = DELETE", "has no write-ahead log"},
        {"yes | dd of=var/lib/kivo/nexnotify.db bs=4096 seek=1 count=1 conv=notrunc status=none",
         "nexnotify.db: database disk image is malformed.", true},
        {"yes | head -c 9999 >var/lib/kivo/nexnotify.db", "nexnotify.db: file is not a database.", true},
        {"rm var/lib/kivo/nexnotify.db", "nexnotify.db: No such file or directory; webapi-host init", true},
        {"echo x >var/lib/kivo/nexnotify.db-wal", "-wal holds changes that the next opening takes in"},
        {"chmod a+r var/lib/kivo/nexnotify.db", "nexnotify.db: run chmod go-r on it."},
        {"chmod o+w var/lib/kivo", "Others can write " + m_root.Path("/var/lib/kivo") + ": run chmod go-w"},
        {"rm -r var/log", "/var/log/kivo: No such file or directory"},
        {"rm usr/kivo/bin/notification_utils", "notification_utils: No such file or directory"},
        {"ln -sf /dev/null usr/kivo/bin/notification_utils", "notification_utils is no program"},
        {"chmod o+r etc/kivo/users.json", "users.json: run chmod o-r on it."},
        {"echo '{\"users\": 1}' >etc/kivo/users.json", "is no users file: It has no object", true},
        {"sed -i s/1027/1026/ etc/kivo/users.json", "alice and bob have one uid, 1026,"},
        {"sed -i 's/\"token\": .*,/\"token\": \"x\",/' etc/kivo/users.json", "alice and bob have one token"},
        {"sed -i s/1027/-1/ etc/kivo/users.json", "The entry of the user bob is malformed"},
        {"echo { >etc/kivo/settings/users/bob.json", "users/bob.json cannot be read."},
        {"rm var/cache/texts/enu/mails", "There is no English text catalogue", true},
        {"rm var/cache/texts/ger/mails", "ger/mails: No such file or directory"},
        {"echo x >var/cache/texts/ger/mails", "ger/mails cannot be read or is no text catalogue."},
        {"sed -i 's/^.DiskFailed./[DiskFine]/' var/cache/texts/ger/mails", "ger lacks the tag DiskFailed,"},
        {"sed -i 's/^.DiskFailed./[DiskFine]/' var/cache/texts/ger/mails", "enu lacks the tag DiskFine,"},
        {R"(sed -i "/^message=/s/{DISK}/{$(printf %0120000d 0)/" var/cache/texts/fre/mails)",
         "fre lacks {DISK} in the message of the tag DiskFailed, which enu has."},
        {"sed -i '/^mail=/d' var/cache/texts/fre/mails", "fre lacks the mail of the tag DiskFailed,"},
        {"echo '{\"All\": [{\"name\": \"Old\"}]}' >var/cache/texts/ger/notification_category",
         "does not list the tags of the catalogue: run notification_utils --gen_category_file ger."},
    };
    if (CanTakeOnIds()) {
        cases.push_back({"chmod g-r etc/kivo/users.json", "The account nobody cannot read", true});
        cases.push_back({"chmod o-x .", "The account nobody cannot enter " + m_appliance.string(), true});
        cases.push_back({"chown 1 var/lib/kivo", "belongs to the uid 1 and not to the superuser."});
    }
    for (const auto& [change, finding, isError] : cases) {
        if (change.starts_with("sql ")) {
            m_root.Query(change.substr(4));
        } else {
            shell(change);
        }
        const auto before = Files();
        const std::string findings = Run({"check", "--ignore-warnings"}, isError ? 1 : 0);
        EXPECT_NE(findings.find(finding), findings.npos) << change << '\n' << findings;
        EXPECT_EQ(findings.find("error") != findings.npos, isError) << change << '\n' << findings;
        EXPECT_EQ(Files(), before) << change;
        shell("chmod o+x . && rm -r etc usr var && cp -a ../$(basename \"$KIVO_ROOT\").well/. .");
    }
    EXPECT_EQ(Run({"check"}), well);
    shell("rm var/cache/texts/ger/mails");
    Run({"check"}, 1);
    shell("rm -r ../$(basename \"$KIVO_ROOT\").well");
}

}  // namespace
}  // namespace KIVO::Test
