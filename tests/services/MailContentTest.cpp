#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "tests/support/ModuleTest.h"

namespace KIVO::Test {
namespace {

constexpr char kTemplates[] = "/usr/kivo/etc/notification/mails";
constexpr char kFailure[] = "error 117: null";

class MailContent : public ModuleTest {
protected:
    MailContent() {
        m_root.WriteCatalogue("enu", "[Both]\nmail=english\n[OnlyEnglish]\nmail=only english\n");
        m_root.WriteCatalogue(
            "ger",
            "[Both]\nmail=deutsch\n[German]\nmail=Zeile {A}\\nund mehr\n[Empty]\nmail=\n[None]\n"
            "message=m\n");
        m_root.Write(kTemplates, "[Both]\nmail=for all\n[NoMailInTemplate]\nmessage=m\n");
    }

    static std::string Get(const std::string& parameters, const std::string& language = "ger") {
        return Text(Ask("KIVO.Core.NEXNotify.MailContent", "get", parameters, "bob", language));
    }
    static std::string GetTag(const std::string& tag, const std::string& language = "ger") {
        return Get(R"({"title":")" + tag + "\"}", language);
    }
};

TEST_F(MailContent, PrefersTheTemplates) {
    for (const auto& [tag, language, answer] : {
             std::tuple("Both", "ger", R"(success: {"mailContent":"for all"})"),
             {"Both", "fre", R"(success: {"mailContent":"for all"})"},
             {"German", "ger", R"(success: {"mailContent":"Zeile {A}\nund mehr"})"},
             {"OnlyEnglish", "enu", R"(success: {"mailContent":"only english"})"},
             {"Empty", "ger", kFailure},
             {"None", "ger", kFailure},
             {"NoMailInTemplate", "ger", kFailure},
         }) {
        EXPECT_EQ(GetTag(tag, language), answer) << tag << language;
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
    m_root.Write(kTemplates, "no key file");
    EXPECT_EQ(GetTag("Both"), R"(success: {"mailContent":"deutsch"})");
    std::filesystem::remove(m_root.Path(kTemplates));
    EXPECT_EQ(GetTag("Both"), R"(success: {"mailContent":"deutsch"})");
}

TEST_F(MailContent, LogsWhatFailsWithTheErrorStateOfThePlatform) {
    struct Case {
        const char* parameters;
        const char* language = "ger";
        const char* failing = "";
        const char* text = "Get NString";
    };
    for (const auto& [parameters, language, failing, text] : {
             Case{R"({"title":"OnlyEnglish"})"},
             Case{R"({"title":"German"})", "fre"},
             Case{R"({"title":""})"},
             Case{"{}"},
             Case{R"({"title":null})"},
             Case{R"({"title":5})"},
             Case{R"({"title":{}})"},
             Case{R"({"title":["Both"]})"},
             Case{R"({"title":"Bo\u0000th"})"},
             Case{R"({"title":"Both"})", "ger", "KIVONotifyStringNew"},
             Case{R"({"title":"Both"})", "ger", "KLIBCSzListAlloc", R"(KLIBCSzListAlloc\(BUFSIZ\))"},
         }) {
        SCOPED_TRACE(std::string(parameters) + failing);
        ThePlatform() = {.fails = [name = failing](std::string_view operation) { return operation == name; }};
        LogLines().clear();
        EXPECT_EQ(Get(parameters, language), kFailure);
        ASSERT_EQ(LoggedTexts().size(), 1U);
        const std::string expected = std::string(R"(MailContent\.cpp:# )") + text +
                                     R"( failed\. \[0x[0-9A-F]{4} [A-Za-z]*(\.cpp)?:[0-9]+\])";
        EXPECT_TRUE(Matches(LoggedTexts()[0], expected)) << LoggedTexts()[0];
        EXPECT_EQ(ThePlatform().held, 0);
    }
}

TEST_F(MailContent, CutsLongTags) {
    const std::string longest(1023, 't');
    m_root.WriteCatalogue("ger", "[" + longest + "]\nmail=found\n");
    for (const char* more : {"", "x", "xyz"}) {
        EXPECT_EQ(GetTag(longest + more), R"(success: {"mailContent":"found"})");
    }
    EXPECT_EQ(GetTag(longest.substr(1)), kFailure);
}

}  // namespace
}  // namespace KIVO::Test
