#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

namespace fs = std::filesystem;

constexpr char kCategories[] = R"({"action":"loadHaveNtAppList"})";
constexpr char kTool[] = "/usr/kivo/bin/notification_utils";
constexpr char kNoCategories[] = "success: []";

class CategoryFile : public ModuleTest {
protected:
    CategoryFile() {
        m_root.WriteCatalogue("enu", "[DiskFull]\nmessage=m\ngroup=Storage\n");
        m_root.WriteCatalogue("ger", "[DiskFull]\nmessage=m\ngroup=Speicher\n");
    }

    void InstallTool(const std::string& script) const {
        fs::permissions(m_root.Write(kTool, "#!/bin/sh\n" + script + "\n"), fs::perms::owner_all);
    }

    static int Runs() { return ThePlatform().calls["KLIBCExec"]; }
    std::string NotFound(const std::string& language) const {
        return "CategoryFile.cpp:432 " +
               m_root.Path("/var/cache/texts/" + language + "/notification_category") + " not found.";
    }
};

TEST_F(CategoryFile, IsGeneratedWhenMissingAsTheSuperuser) {
    fs::create_directories(fs::path(m_root.Path(kTool)).parent_path());
    fs::create_symlink(TOOL_FILE, m_root.Path(kTool));
    ProcessIdentity() = {.euid = 65534, .egid = 65534};
    for (const auto& [language, title] :
         {std::pair("ger", "Speicher"), {"ger", "Speicher"}, {"enu", "Storage"}}) {
        EXPECT_EQ(Notify(kCategories, "bob", language),
                  R"(success: {"items":[{"app":"","appids":[],"category":")" + std::string(title) +
                      R"(","category_enu":"Storage","nexnotify":"on"}],"total":1})");
        EXPECT_EQ(ProcessIdentity().euid, 65534U);
        EXPECT_EQ(Runs(), 2) << "a file that exists is not made again";
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(CategoryFile, AToolThatDoesNotMakeItGivesOneLine) {
    const LogLine notFound{3, NotFound("enu")};
    const LogLine notParsed{3, "CategorySettings.cpp:485 pasre json file failed. No such file or directory"};
    for (const char* script : {"missing", "exit 3", "kill -9 $$", "exit 0"}) {
        SCOPED_TRACE(script);
        ThePlatform() = {};
        LogLines().clear();
        if (script != std::string("missing")) {
            InstallTool(script);
        }
        EXPECT_EQ(Notify(kCategories, "bob", "ger"), kNoCategories);
        EXPECT_EQ(LogLines(), (std::vector<LogLine>{notFound, notParsed}));
        EXPECT_EQ(Runs(), 1) << "the other language is not tried";
    }
}

TEST_F(CategoryFile, IsNotGeneratedWithoutTheSuperuser) {
    InstallTool("echo '{}' > \"$KIVO_ROOT/var/cache/texts/$2/notification_category\"");
    ProcessIdentity() = {.euid = 1024, .egid = 100, .mayRaise = false};
    EXPECT_EQ(Notify(kCategories, "bob", "enu"), kNoCategories);
    EXPECT_EQ(Runs(), 0);
    ASSERT_EQ(LogLines().size(), 3U);
    EXPECT_EQ(LogLines()[0], (LogLine{35, R"(CategoryFile.cpp:427 ERROR: IF_RUN_AS2("root"))"}));
    EXPECT_EQ(LogLines()[1].text, NotFound("enu"));
}

}  // namespace
}  // namespace KIVO::Test
