#include <gtest/gtest.h>

#include <filesystem>

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

    static std::string Get(const std::string& title, const std::string& language = "ger") {
        return Text(
            Ask("KIVO.Core.NEXNotify.MailContent", "get", R"({"title":)" + title + "}", "bob", language));
    }

    /// Expects one log line, with the error state of the platform.
    static void ExpectLogged(const std::string& text) {
        ASSERT_EQ(LoggedTexts().size(), 1U);
        EXPECT_TRUE(Matches(LoggedTexts()[0], R"(MailContent\.cpp:# )" + text +
                                                  R"( \[0x[0-9A-F]{4} [A-Za-z]*(\.cpp)?:[0-9]+\])"))
            << LoggedTexts()[0];
    }
};

TEST_F(MailContent, PrefersTheTemplates) {
    struct Case {
        const char* title;
        const char* language;
        const char* answer;
    };
    for (const auto& [title, language, answer] : {
             Case{R"("Both")", "ger", R"(success: {"mailContent":"for all"})"},
             Case{R"("Both")", "enu", R"(success: {"mailContent":"for all"})"},
             Case{R"("Both")", "fre", R"(success: {"mailContent":"for all"})"},
             Case{R"("German")", "ger", R"(success: {"mailContent":"Zeile {A}\nund mehr"})"},
             Case{R"("OnlyEnglish")", "enu", R"(success: {"mailContent":"only english"})"},
             Case{R"("Empty")", "ger", kFailure},
             Case{R"("None")", "ger", kFailure},
             Case{R"("NoMailInTemplate")", "ger", kFailure},
         }) {
        EXPECT_EQ(Get(title, language), answer) << title << language;
    }
    EXPECT_EQ(LogLines(), std::vector<LogLine>{});
    for (const char* unreadable : {"no key file", ""}) {
        m_root.Write(kTemplates, unreadable);
        EXPECT_EQ(Get(R"("Both")"), R"(success: {"mailContent":"deutsch"})");
    }
    std::filesystem::remove(m_root.Path(kTemplates));
    EXPECT_EQ(Get(R"("Both")"), R"(success: {"mailContent":"deutsch"})");
}

TEST_F(MailContent, LogsALookupThatFails) {
    struct Case {
        const char* title;
        const char* language;
    };
    for (const auto& [title, language] : {
             Case{R"("OnlyEnglish")", "ger"},
             Case{R"("German")", "fre"},
             Case{R"("")", "ger"},
             Case{"null", "ger"},
             Case{"5", "ger"},
             Case{"{}", "ger"},
             Case{R"(["Both"])", "ger"},
             Case{R"("Bo\u0000th")", "ger"},
         }) {
        SCOPED_TRACE(title);
        LogLines().clear();
        EXPECT_EQ(Get(title, language), kFailure);
        ExpectLogged(R"(Get NString failed\.)");
    }
    LogLines().clear();
    EXPECT_EQ(Text(Ask("KIVO.Core.NEXNotify.MailContent", "get", "{}")), kFailure);
    ExpectLogged(R"(Get NString failed\.)");
}

TEST_F(MailContent, CutsLongTags) {
    const std::string longest(1023, 't');
    m_root.WriteCatalogue("ger", "[" + longest + "]\nmail=found\n");
    for (const char* more : {"", "x", "xyz"}) {
        EXPECT_EQ(Get("\"" + longest + more + "\""), R"(success: {"mailContent":"found"})");
    }
    EXPECT_EQ(Get('"' + longest.substr(1) + '"'), kFailure);
}

TEST_F(MailContent, ReleasesWhatItGot) {
    for (const auto& [failing, text] :
         {std::pair("KLIBCSzListAlloc", R"(KLIBCSzListAlloc\(BUFSIZ\) failed\.)"),
          std::pair("KIVONotifyStringNew", R"(Get NString failed\.)")}) {
        SCOPED_TRACE(failing);
        LogLines().clear();
        ThePlatform() = {.fails = [name = failing](std::string_view operation) { return operation == name; }};
        EXPECT_EQ(Get(R"("Both")"), kFailure);
        ExpectLogged(text);
        EXPECT_EQ(ThePlatform().held, 0);
    }
}

}  // namespace
}  // namespace KIVO::Test
