#include "platform/kivocore/Users.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <sstream>
#include <thread>

#include "sdk/eventlog.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "tests/support/ApplianceRoot.h"
#include "tests/support/Log.h"

namespace {

using namespace std::string_literals;
using namespace KIVO::Test;

constexpr char kUsersFile[] = "/etc/kivo/users.json";

int UidOf(const char* userName) {
    int uid = -1;
    KIVOUserGetUGID(userName, &uid, nullptr);
    return uid;
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
    EXPECT_EQ(KIVOLogSet1(2, 1, 0x14600001, "alice", "", "", ""), -1) << "there is no folder";
    root.Write("/var/log/kivo/events.jsonl", "");
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
                              R"(","","\ufffd\n",""],"category":2,"event":"0x14600001","level":1,"time":)";
    std::istringstream lines(root.Read("/var/log/kivo/events.jsonl").value());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(line.starts_with(entry) && line.ends_with('}')) << line;
    }
    EXPECT_EQ(count, 200);
}

}  // namespace
