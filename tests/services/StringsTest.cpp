#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";
constexpr char kPackages[] = "/usr/local/share/notification/config";

class Strings : public ModuleTest {
protected:
    Strings() {
        m_root.Write(kCategoryFile, R"({"All":[{"name":"Full"},{"name":"Alt"},{"name":"Bare"}]})");
        m_root.WriteCatalogue(
            "ger",
            "[Full]\ncategory=KIVO.App.Backup\nlevel=NOTIFICATION_ERROR\nmessage=Voll: {NAME}\n"
            "altMessage=anders\n"
            "[Alt]\ncategory=SyStEm\nlevel=\nmessage=\naltMessage=nur das\n"
            "[Bare]\nmessage=nichts sonst\n"
            "[NoText]\nmessage=\naltMessage=\nlevel=NOTIFICATION_WARN\n"
            "[NoCategory]\ncategory=\nmessage=m\n"
            "[Unlisted]\nmessage=m\n");
    }

    static std::string Get(const std::string& parameters = "{}", const std::string& language = "ger") {
        return Text(Ask("KIVO.Core.NEXNotify.Strings", "get", parameters, "bob", language));
    }

    /// The tags of the answer.
    static std::string Tags(const std::string& package) {
        const APIResponse response =
            Ask("KIVO.Core.NEXNotify.Strings", "get", R"({"pkgName":)" + package + "}", "bob", "ger");
        EXPECT_EQ(response.GetState(), APIResponse::State::Success);
        if (response.GetData().isNull()) {
            return "null";
        }
        std::string tags;
        for (const std::string& tag : response.GetData().getMemberNames()) {
            tags += tag + " ";
        }
        return tags;
    }
};

TEST_F(Strings, DescribeEveryTagThatHasAText) {
    EXPECT_EQ(Get(),
              R"(success: {"Alt":{"level":"","msg":"nur das","title":"nexnotify:system_event"},)"
              R"("Bare":{"level":"NOTIFICATION_INFO","msg":"nichts sonst","title":"nexnotify:system_event"},)"
              R"("Full":{"level":"NOTIFICATION_ERROR","msg":"Voll: {NAME}","title":"KIVO.App.Backup"}})");
    m_root.Write(kCategoryFile,
                 R"({"All":[{"name":"NoCategory"},{"name":"NoText"},{"name":"Missing"},{"name":""},{},)"
                 R"({"name":"NoCategory"}]})");
    EXPECT_EQ(Get(), R"(success: {"NoCategory":{"level":"NOTIFICATION_INFO","msg":"m","title":""}})");
    for (const char* document : {
             R"({"All":[{"name":"Full"}],"All":[{"name":"NoCategory"}]})",
             R"({"All":[{"name":"Full","name":"NoCategory"}]})",
             R"(/* old */ {"All":[{"name":"NoCategory"}]} and more)",
             R"({"All":[{"name":null},{"name":7},null,{"name":"NoCategory"}]})",
         }) {
        m_root.Write(kCategoryFile, document);
        EXPECT_EQ(Get(), R"(success: {"NoCategory":{"level":"NOTIFICATION_INFO","msg":"m","title":""}})")
            << document;
    }
    for (const char* document : {"{}", R"({"All":[]})", R"({"All":[{"name":"Missing"}]})"}) {
        m_root.Write(kCategoryFile, document);
        EXPECT_EQ(Get(), "success: null") << document;
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(Strings, KeepToThePackage) {
    m_root.Write(kPackages,
                 R"({"Video":{"keyArray":["Full","Unlisted","Bare"],"other":1},"Empty":{"keyArray":[]},)"
                 R"("NoKeys":{},"Odd":{"keyArray":["Full",{}]},"Text":{"keyArray":"Full"},"List":[],)"
                 R"("Number":{"keyArray":[7]}})");
    struct Case {
        const char* package;
        const char* tags;
    };
    for (const auto& [package, tags] : {
             Case{R"("Video")", "Bare Full "},
             Case{R"("")", "Alt Bare Full "},
             Case{"null", "Alt Bare Full "},
             Case{R"("Empty")", "null"},
             Case{R"("video")", "null"},
             Case{R"("NoKeys")", "null"},
             Case{R"("Odd")", "null"},
             Case{R"("Text")", "null"},
             Case{R"("List")", "null"},
             Case{R"("Number")", "null"},
             Case{"5", "null"},
         }) {
        EXPECT_EQ(Tags(package), tags) << package;
    }
    for (const char* configuration : {"nonsense", "[1]"}) {
        m_root.Write(kPackages, configuration);
        EXPECT_EQ(Tags(R"("Video")"), "null") << configuration;
    }
    std::filesystem::remove(m_root.Path(kPackages));
    EXPECT_EQ(Tags(R"("Video")"), "null");
}

TEST_F(Strings, NameTheFileThatCannotBeRead) {
    const auto error = [&](const std::string& path) {
        return R"(error 101: ")" + m_root.Path(path) + R"( operater failed.")";
    };
    EXPECT_EQ(Get("{}", "fre"), error("/var/cache/texts/fre/mails"));
    m_root.Write(kCategoryFile, "not JSON");
    EXPECT_EQ(Get(), error(kCategoryFile));
    std::filesystem::remove(m_root.Path(kCategoryFile));
    EXPECT_EQ(Get("{}", "fre"), error(kCategoryFile))
        << "the category file comes first, and is not generated";
    EXPECT_EQ(ThePlatform().calls["KLIBCExec"], 0);
    EXPECT_EQ(ThePlatform().calls["KIVONotifyStringFree"], 3);
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(Strings, ReleaseTheRecordWhenTheHandlerThrows) {
    for (const char* document : {R"({"All":[{"name":"Full"},{"name":{}}]})", R"({"All":[5]})", "[]"}) {
        ThePlatform() = {};
        m_root.Write(kCategoryFile, document);
        EXPECT_THROW(Get(), Json::Exception) << document;
        EXPECT_EQ(ThePlatform().calls["KIVONotifyStringFree"], 1);
    }
    ThePlatform().fails = [](std::string_view operation) { return operation == "KIVONotifyStringNew"; };
    EXPECT_THROW(Get(), std::bad_alloc);
}

}  // namespace
}  // namespace KIVO::Test
