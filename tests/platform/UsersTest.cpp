#include "platform/kivocore/Users.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <thread>

#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/FileDescriptor.h"
#include "sdk/eventlog.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "tests/support/ApplianceRoot.h"
#include "tests/support/Log.h"

namespace {

using namespace std::string_literals;
using namespace KIVO::Test;
using KIVO::Appliance::FileDescriptor;
using KIVO::Appliance::IsSettled;

constexpr char kUsersFile[] = "/etc/kivo/users.json";

int UidOf(const char* userName) {
    int uid = -1;
    return KIVOUserGetUGID(userName, &uid, nullptr) == 0 ? uid : -1;
}

TEST(Users, AMalformedEntryIsLeftOutAndLoggedOnce) {
    const ApplianceRoot root;
    LogLines().clear();
    root.Write(kUsersFile, R"({"users": {
        "minimal": {"uid": 1, "gid": 2},
        "language": {"uid": 2, "gid": 2, "language": "../x"},
        "noUid": {"gid": 2}, "realUid": {"uid": 3.0, "gid": 2}, "negativeUid": {"uid": -1, "gid": 2},
        "textGid": {"uid": 3, "gid": "2"}, "groups": {"uid": 3, "gid": 2, "groups": "administrators"},
        "tags": {"uid": 3, "gid": 2, "hiddenTags": ["A", 1]}, "token": {"uid": 3, "gid": 2, "token": 5},
        "number": 5, "a/b": {"uid": 3, "gid": 2}, "..": {"uid": 3, "gid": 2}, "": {"uid": 3, "gid": 2},
        "n\u0000l": {"uid": 3, "gid": 2}}})");
    for (int count = 0; count < 3; ++count) {
        const auto users = KIVO::Appliance::LoadUsers();
        ASSERT_EQ(users->size(), 2U);
        EXPECT_EQ(users->at("minimal").language, "enu");
        EXPECT_EQ(users->at("language").language, "enu");
    }
    EXPECT_EQ(LogLines().size(), 12U);
}

TEST(Users, AFileThatIsBeingRewrittenKeepsItsUsers) {
    const ApplianceRoot root;
    root.WriteUsers({{.name = "alice"}});
    EXPECT_EQ(UidOf("alice"), 1026);
    for (const char* broken : {"", "{\"users\": {\"ali", "[]", "{\"users\": []}"}) {
        LogLines().clear();
        root.Write(kUsersFile, broken);
        EXPECT_EQ(UidOf("alice"), 1026) << broken;
        EXPECT_EQ(UidOf("alice"), 1026) << broken;
        EXPECT_EQ(LogLines().size(), 1U) << broken << ": once for one state of the file";
    }
    {
        const KIVO::Appliance::UsersSnapshot snapshot;
        root.WriteUsers({{.name = "alice", .uid = 1027}});
        EXPECT_EQ(UidOf("alice"), 1026) << "One request sees one state of the users.";
    }
    EXPECT_EQ(UidOf("alice"), 1027);
    root.Write("/other/etc/kivo/users.json", "");
    setenv("KIVO_ROOT", root.Path("/other").c_str(), 1);
    EXPECT_EQ(UidOf("alice"), -1) << "a user of another root";
    setenv("KIVO_ROOT", root.Path("").c_str(), 1);
    std::filesystem::remove(root.Path(kUsersFile));
    EXPECT_EQ(UidOf("alice"), -1);
}

TEST(Users, AFileThatStaysBrokenSignsEverybodyOut) {
    constexpr char kBroken[] = "{\"users\": {\"ali";
    const ApplianceRoot root;
    root.WriteUsers({{.name = "alice"}});
    EXPECT_EQ(UidOf("alice"), 1026);
    std::this_thread::sleep_for(std::chrono::seconds(4));
    root.Write(kUsersFile, kBroken);
    EXPECT_EQ(UidOf("alice"), -1) << "It may have been another file since it was looked at.";

    root.WriteUsers({{.name = "alice"}});
    EXPECT_EQ(UidOf("alice"), 1026);
    LogLines().clear();
    root.Write(kUsersFile, kBroken);
    EXPECT_EQ(UidOf("alice"), 1026);
    const pid_t child = fork();
    if (child == 0) {
        _exit(UidOf("alice") == -1 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "A process knows only the users that it has read itself.";
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(UidOf("alice"), -1);
    EXPECT_EQ(UidOf("alice"), -1);
    EXPECT_EQ(LogLines().size(), 2U);
    root.WriteUsers({{.name = "alice"}});
    EXPECT_EQ(UidOf("alice"), 1026);
}

TEST(FileIdentity, IsNotSettledWithinOneStepOfTheClock) {
    const long long now = std::time(nullptr) * 1'000'000'000LL;
    EXPECT_FALSE(IsSettled({.ctimeNanoseconds = now}));
    EXPECT_FALSE(IsSettled({.ctimeNanoseconds = now - 1'000'000'000}))
        << "The file system keeps whole seconds.";
    EXPECT_TRUE(IsSettled({.ctimeNanoseconds = now - 900'000'000}));
    EXPECT_TRUE(IsSettled({.ctimeNanoseconds = now - 3'000'000'000}));
}

TEST(Settings, StayInTheirFolder) {
    const ApplianceRoot root;
    root.WriteUserSettings("alice", "document");
    root.Write("/etc/kivo/settings/users/broken.json", "{");
    root.WriteGroupSettings("administrators", "document");
    Json::Value settings;
    KivoSettings alice("alice");
    EXPECT_TRUE(alice.loadUserJsonSettings(settings));
    for (const std::string& name : {"bob"s, "broken"s, "../groups/administrators"s, "alice\0"s, ""s}) {
        EXPECT_FALSE(KivoSettings(name).loadUserJsonSettings(settings)) << name;
    }
    EXPECT_EQ(settings, "document") << "changed by a failed load";

    unsigned long long mtime = 0;
    EXPECT_TRUE(alice.getGrpJsonSettingMtime("administrators", mtime));
    EXPECT_FALSE(alice.getGrpJsonSettingMtime("users", mtime));
    EXPECT_FALSE(alice.getGrpJsonSettingMtime("../groups/administrators", mtime));
    EXPECT_NEAR(static_cast<double>(mtime), static_cast<double>(std::time(nullptr)), 60.0);
}

TEST(EventLog, LinesOfSeveralWritersNeverMix) {
    const ApplianceRoot root;
    const std::string path = root.Path("/var/log/kivo/events.jsonl");
    const auto expectRefusal = [](const std::string& reason) {
        LogLines().clear();
        EXPECT_EQ(KIVOLogSet1(2, 1, 0x14600001, "alice", "", "", ""), -1) << reason;
        ASSERT_EQ(LogLines().size(), 1U) << reason;
        EXPECT_TRUE(LogLines()[0].text.ends_with(reason + ".")) << LogLines()[0].text;
        EXPECT_NE(LogLines()[0].text.find("0x14600001"), std::string::npos) << LogLines()[0].text;
    };
    expectRefusal("No such file or directory");
    root.Write("/var/log/kivo/other", "");
    ASSERT_EQ(symlink("other", path.c_str()), 0);
    expectRefusal("Too many levels of symbolic links");
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectRefusal("No such device or address");
    const FileDescriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK));
    expectRefusal("Invalid argument");
    std::filesystem::remove(path);
    {
        const FileDescriptor file(open(root.Write("/var/log/kivo/events.jsonl", "").c_str(), O_RDONLY));
        ASSERT_EQ(flock(file.Get(), LOCK_SH), 0);
        expectRefusal("Resource temporarily unavailable");
    }
    const std::string longText(3000, 'x');
    const auto write = [&] {
        for (int line = 0; line < 100; ++line) {
            EXPECT_EQ(KIVOLogSet1(2, 1, 0x14600001, longText.c_str(), nullptr, "\xff\n", ""), 0);
        }
    };
    std::thread other(write);
    write();
    other.join();
    const std::string entry = "{\"args\":[\"" + longText +
                              "\",\"\",\"\xef\xbf\xbd\\n\",\"\"],\"category\":2,\"event\":\"0x14600001\","
                              "\"level\":1,\"time\":";
    std::istringstream lines(root.Read("/var/log/kivo/events.jsonl").value());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(line.starts_with(entry) && line.ends_with('}')) << line;
    }
    EXPECT_EQ(count, 200);
}

}  // namespace
