#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kCategoryFile[] = "/var/cache/texts/enu/notification_category";
constexpr char kPackages[] = "/usr/local/share/notification/config";

const std::string kAlt = R"("Alt":{"level":"","msg":"nur das","title":"nexnotify:system_event"})";
const std::string kBare =
    R"("Bare":{"level":"NOTIFICATION_INFO","msg":"nichts sonst","title":"nexnotify:system_event"})";
const std::string kFull =
    R"("Full":{"level":"NOTIFICATION_ERROR","msg":"Voll: {NAME}","title":"KIVO.App.Backup"})";

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
};

TEST_F(Strings, DescribeEveryTagThatHasAText) {
    EXPECT_EQ(Get(), "success: {" + kAlt + "," + kBare + "," + kFull + "}");
    for (const char* document : {
             R"({"All":[{"name":"NoCategory"},{"name":"NoText"},{"name":"Missing"},{"name":""},{},
                {"name":"NoCategory"}]})",
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
    m_root.Write(kCategoryFile, R"({"All":[{"name":""},{}]})");
    ThePlatform() = {};
    EXPECT_EQ(Get(), "success: null");
    EXPECT_EQ(ThePlatform().calls["KIVONotifyStringGetByFp"], 0) << "an empty name is none to look up";
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
}

TEST_F(Strings, KeepToThePackage) {
    m_root.Write(kPackages,
                 R"({"Video":{"keyArray":["Full","Unlisted","Bare"],"other":1},"Empty":{"keyArray":[]},)"
                 R"("NoKeys":{},"Odd":{"keyArray":["Full",{}]},"Text":{"keyArray":"Full"},"List":[],)"
                 R"("Number":{"keyArray":[7]},"Map":{"keyArray":{"0":"Full"}},)"
                 R"("Twice":{"keyArray":["Bare"],"keyArray":["Full"]}})");
    const std::string video = R"({"pkgName":"Video"})";
    EXPECT_EQ(Get(video), "success: {" + kBare + "," + kFull + "}");
    for (const char* file : {kPackages, kCategoryFile, "/var/cache/texts/ger/mails"}) {
        EXPECT_EQ(ThePlatform().calls["fopen:" + m_root.Path(file)], 1) << file;
    }
    EXPECT_EQ(Get(R"({"pkgName":"Twice"})"), "success: {" + kFull + "}");
    EXPECT_EQ(Get(R"({"pkgName":""})"), Get("{}"));
    EXPECT_EQ(Get(R"({"pkgName":null})"), Get("{}"));
    for (const char* name : {R"("Empty")", R"("video")", R"("NoKeys")", R"("Odd")", R"("Text")", R"("List")",
                             R"("Number")", R"("Map")", "5"}) {
        EXPECT_EQ(Get(R"({"pkgName":)" + std::string(name) + "}"), "success: null") << name;
    }
    for (const char* configuration : {"nonsense", "[1]"}) {
        m_root.Write(kPackages, configuration);
        EXPECT_EQ(Get(video), "success: null") << configuration;
    }
    m_root.Write(kPackages, R"({"Number":{"keyArray":[7]}})");
    m_root.Write(kCategoryFile, R"({"All":[{"name":"7"}]})");
    m_root.WriteCatalogue("ger", "[7]\ncategory=c\nmessage=m\n");
    EXPECT_EQ(Get(R"({"pkgName":"Number"})"),
              R"(success: {"7":{"level":"NOTIFICATION_INFO","msg":"m","title":"c"}})");
    std::filesystem::remove(m_root.Path(kPackages));
    EXPECT_EQ(Get(video), "success: null");
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
