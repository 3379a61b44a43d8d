#include "platform/kivocore/Users.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kivocore/error.h"
#include "kivocore/rights.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Json.h"
#include "sdk/eventlog.h"
#include "sdk/settings.h"
#include "sdk/user.h"
#include "sysnotify/rights.h"
#include "tests/support/ApplianceRoot.h"
#include "tests/support/Log.h"

namespace {

using namespace std::string_literals;
using KIVO::Appliance::LoadUsers;
using KIVO::Test::ApplianceRoot;
using KIVO::Test::LogLines;

constexpr char kUsersFile[] = "/etc/kivo/users.json";

int UidOf(const char* userName) {
    int uid = -1;
    KIVOUserGetUGID(userName, &uid, nullptr);
    return uid;
}

TEST(Users, RightsAreThoseOfTheFile) {
    const ApplianceRoot root;
    root.WriteUsers({
        {.name = "alice", .uid = 1026, .groups = {"users", "administrators"}},
        {.name = "bob", .uid = 1027, .apps = {"KIVO.App.Backup"}, .hiddenTags = {"LoginFailed"}},
    });
    const auto describe = [](const char* user) {
        int uid = -5;
        int gid = -5;
        const int found = KIVOUserGetUGID(user, &uid, &gid);
        return std::vector{found,
                           uid,
                           gid,
                           KLIBGroupIsAdminGroupMem(user, 0) != 0 ? 1 : 0,
                           KLIBAppPrivUserHas(user, "KIVO.App.Backup", "ignore") != 0 ? 1 : 0,
                           KLIBAppPrivUserHas(user, "KIVO.App", "ignore"),
                           KIVOSysNotifyIsAllow(user, "LoginFailed"),
                           KIVOSysNotifyIsAllow(user, "DiskFailed")};
    };
    EXPECT_EQ(describe("alice"), (std::vector{0, 1026, 100, 1, 0, 0, 1, 1}));
    EXPECT_EQ(describe("bob"), (std::vector{0, 1027, 100, 0, 1, 0, 0, 1}));
    for (const char* stranger : {"carol", "", "Alice", "../alice"}) {
        EXPECT_EQ(describe(stranger), (std::vector{-1, -5, -5, 0, 0, 0, -1, -1})) << stranger;
        EXPECT_EQ(KLIBCErrGet(), 0x1D00);
    }
}

TEST(Users, AMalformedEntryIsLeftOutAndLoggedOnce) {
    const ApplianceRoot root;
    LogLines().clear();
    root.Write(kUsersFile, R"({"users": {
        "minimal": {"uid": 1, "gid": 2},
        "language": {"uid": 2, "gid": 2, "language": "../x"},
        "noUid": {"gid": 2},
        "realUid": {"uid": 3.0, "gid": 2},
        "negativeUid": {"uid": -1, "gid": 2},
        "textGid": {"uid": 3, "gid": "2"},
        "groups": {"uid": 3, "gid": 2, "groups": "administrators"},
        "hiddenTags": {"uid": 3, "gid": 2, "hiddenTags": ["A", 1]},
        "token": {"uid": 3, "gid": 2, "token": 5},
        "number": 5,
        "a/b": {"uid": 3, "gid": 2},
        "..": {"uid": 3, "gid": 2},
        "": {"uid": 3, "gid": 2},
        "n\u0000l": {"uid": 3, "gid": 2}}})");
    for (int count = 0; count < 3; ++count) {
        const auto users = LoadUsers();
        ASSERT_EQ(users->size(), 2U);
        EXPECT_EQ(users->at("minimal").language, "enu");
        EXPECT_EQ(users->at("language").language, "enu");
    }
    EXPECT_EQ(LogLines().size(), 12U);
}

TEST(Users, AFileThatIsBeingRewrittenKeepsItsUsers) {
    ApplianceRoot root;
    EXPECT_EQ(UidOf("alice"), -1);
    root.WriteUsers({{.name = "alice", .uid = 1026}});
    EXPECT_EQ(UidOf("alice"), 1026);
    for (const char* broken : {"", "{\"users\": {\"ali", "[]", "{\"users\": []}"}) {
        LogLines().clear();
        root.Write(kUsersFile, broken);
        EXPECT_EQ(UidOf("alice"), 1026) << broken;
        EXPECT_EQ(UidOf("alice"), 1026) << broken;
        EXPECT_EQ(LogLines().size(), 1U) << broken;
    }
    root.WriteUsers({{.name = "alice", .uid = 1027}});
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
    Json::Value document;
    document["a"] = 1;
    root.WriteUserSettings("alice", document);
    root.Write("/etc/kivo/settings/users/broken.json", "{");
    root.WriteGroupSettings("administrators", document);
    std::filesystem::last_write_time(root.Path("/etc/kivo/settings/groups/administrators.json"),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    Json::Value settings;
    EXPECT_TRUE(KivoSettings("alice").loadUserJsonSettings(settings));
    for (const std::string& name :
         {"bob"s, "broken"s, "../users/alice"s, "../groups/administrators"s, "alice\0"s, "."s, ""s}) {
        EXPECT_FALSE(KivoSettings(name).loadUserJsonSettings(settings)) << name;
    }
    EXPECT_EQ(settings, document) << "changed by a failed load";

    unsigned long long mtime = 0;
    const KivoSettings alice("alice");
    EXPECT_TRUE(alice.getGrpJsonSettingMtime("administrators", mtime));
    EXPECT_FALSE(alice.getGrpJsonSettingMtime("users", mtime));
    EXPECT_FALSE(alice.getGrpJsonSettingMtime("../groups/administrators", mtime));
    EXPECT_NEAR(static_cast<double>(mtime), static_cast<double>(std::time(nullptr) - 3600), 60.0);
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
    std::istringstream lines(root.Read("/var/log/kivo/events.jsonl").value());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        Json::Value entry;
        ASSERT_TRUE(KIVO::Appliance::ParseJson(line, entry)) << line;
        EXPECT_EQ(entry["event"], "0x14600001");
        EXPECT_EQ(entry["args"].size(), 4U);
        EXPECT_EQ(entry["args"][0], longText);
        EXPECT_EQ(entry["args"][1], "");
    }
    EXPECT_EQ(count, 200);
}

TEST(ApplianceRootVariable, PutsItselfInFrontOfEveryPath) {
    const ApplianceRoot root;
    for (const auto& [value, path] : std::map<const char*, const char*>{
             {"", "/etc"}, {"//", "/etc"}, {"/a/b", "/a/b/etc"}, {"/a/b//", "/a/b/etc"}}) {
        setenv("KIVO_ROOT", value, 1);
        EXPECT_EQ(KIVO::Appliance::Rooted("/etc"), path);
    }
}

}  // namespace
