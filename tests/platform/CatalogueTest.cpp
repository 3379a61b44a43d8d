#include "platform/kivocore/Catalogue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "sysnotify/nstring.h"
#include "tests/support/ApplianceRoot.h"

namespace {

using KIVO::Appliance::LoadCatalogue;
using KIVO::Test::ApplianceRoot;
using Record = std::unique_ptr<NString, decltype(&KIVONotifyStringFree)>;
using File = std::unique_ptr<FILE, decltype(&fclose)>;

constexpr char kMails[] = "/var/cache/texts/enu/mails";

class CatalogueTest : public testing::Test {
protected:
    int LookUp(const std::string& tag) {
        return KIVONotifyStringGetByPath(m_root.Path(kMails).c_str(), tag.c_str(), m_record.get(), 1);
    }

    void ExpectEmptyRecord() {
        for (const char* text : {m_record->category, m_record->level, m_record->messageText,
                                 m_record->altMessageText, m_record->mailText}) {
            EXPECT_EQ(text, nullptr);
        }
    }

    ApplianceRoot m_root;
    Record m_record{KIVONotifyStringNew(), &KIVONotifyStringFree};
};

TEST_F(CatalogueTest, EachLookupDescribesItsOwnTagOnly) {
    m_root.WriteCatalogue(
        "enu",
        "[Full]\ncategory=Backup\nlevel=NOTIFICATION_WARN\nmessage=Line 1\\nLine 2\naltMessage=Alt\n"
        "mail=Body of {NAME}\n"
        "[Sparse]\nlevel=\n"
        "[Latin1]\nmessage=caf\xe9\nmail=Body\n");
    ExpectEmptyRecord();
    ASSERT_EQ(LookUp("Full"), 0);
    EXPECT_STREQ(m_record->category, "Backup");
    EXPECT_STREQ(m_record->level, "NOTIFICATION_WARN");
    EXPECT_STREQ(m_record->messageText, "Line 1\nLine 2");
    EXPECT_STREQ(m_record->altMessageText, "Alt");
    EXPECT_STREQ(m_record->mailText, "Body of {NAME}");

    ASSERT_EQ(LookUp("Sparse"), 0);
    EXPECT_STREQ(m_record->level, "");
    EXPECT_EQ(m_record->category, nullptr);
    EXPECT_EQ(m_record->messageText, nullptr);
    EXPECT_EQ(m_record->altMessageText, nullptr);
    EXPECT_EQ(m_record->mailText, nullptr);

    ASSERT_EQ(LookUp("Latin1"), 0);
    EXPECT_EQ(m_record->messageText, nullptr) << "a text that is not UTF-8 could not be sent as JSON";
    EXPECT_STREQ(m_record->mailText, "Body");

    for (const char* tag : {"full", "", "Full]"}) {
        ASSERT_EQ(LookUp("Full"), 0);
        EXPECT_NE(LookUp(tag), 0) << tag;
        ExpectEmptyRecord();
    }
}

TEST_F(CatalogueTest, AnOpenFileIsSearchedWhereverItsPositionStands) {
    m_root.WriteCatalogue("enu", "[A]\nmessage=a\n[B]\nmessage=b\n");
    const File file(fopen(m_root.Path(kMails).c_str(), "r"), &fclose);
    for (const long position : {0L, 5L, 1000L}) {
        fseek(file.get(), position, SEEK_SET);
        for (const char* tag : {"B", "A", "B"}) {
            ASSERT_EQ(KIVONotifyStringGetByFp(file.get(), tag, m_record.get()), 0);
            EXPECT_STRCASEEQ(m_record->messageText, tag);
        }
        EXPECT_EQ(ftell(file.get()), position);
    }
}

TEST_F(CatalogueTest, AChangedFileIsReadAgain) {
    m_root.WriteCatalogue("enu", "[A]\nmessage=one\n");
    ASSERT_EQ(LookUp("A"), 0);
    m_root.WriteCatalogue("enu", "[A]\nmessage=two\n");
    EXPECT_STREQ(m_record->messageText, "one") << "valid until the record's next lookup";
    ASSERT_EQ(LookUp("A"), 0);
    EXPECT_STREQ(m_record->messageText, "two");
    m_root.Replace(kMails, "[A]\nmessage=six\n");
    ASSERT_EQ(LookUp("A"), 0);
    EXPECT_STREQ(m_record->messageText, "six");
    m_root.WriteCatalogue("enu", "not a catalogue\n");
    EXPECT_NE(LookUp("A"), 0);
    std::filesystem::remove(m_root.Path(kMails));
    EXPECT_NE(LookUp("A"), 0);
}

// The clock of modification times stands still for some milliseconds at a time.
TEST_F(CatalogueTest, AChangeWithinOneStepOfTheClockIsSeen) {
    const std::string path = m_root.Path(kMails);
    const auto now = std::filesystem::file_time_type::clock::now;
    std::filesystem::file_time_type writtenAt;
    do {
        m_root.WriteCatalogue("enu", "[A]\nmessage=one\n");
        writtenAt = std::filesystem::last_write_time(path);
        ASSERT_EQ(LookUp("A"), 0);
    } while (now() - writtenAt > std::chrono::milliseconds(10));
    m_root.WriteCatalogue("enu", "[A]\nmessage=two\n");
    std::filesystem::last_write_time(path, writtenAt);
    ASSERT_EQ(LookUp("A"), 0);
    EXPECT_STREQ(m_record->messageText, "two");
}

TEST_F(CatalogueTest, AReadBesideAWriterIsNotKept) {
    constexpr int kVersions = 400;
    m_root.WriteCatalogue("enu", "[A]\nmessage=0000\n");
    std::atomic<bool> isWritten = false;
    std::thread writer([&] {
        for (int version = 1; version <= kVersions; ++version) {
            m_root.WriteCatalogue("enu", "[A]\nmessage=" + std::to_string(1000 + version) + "\n");
        }
        isWritten = true;
    });
    while (!isWritten) {
        LookUp("A");
    }
    writer.join();
    ASSERT_EQ(LookUp("A"), 0);
    EXPECT_EQ(m_record->messageText, std::to_string(1000 + kVersions));
}

TEST_F(CatalogueTest, AnUnchangedFileIsParsedOnce) {
    std::vector<std::string> paths;
    for (int index = 0; index < 40; ++index) {
        paths.push_back(m_root.Write("/catalogue" + std::to_string(index), "[A]\n"));
        std::filesystem::last_write_time(
            paths.back(), std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    }
    const auto first = LoadCatalogue(paths.front());
    EXPECT_EQ(LoadCatalogue(paths.front()), first);
    for (const std::string& path : paths) {
        LoadCatalogue(path);
    }
    EXPECT_NE(LoadCatalogue(paths.front()), first) << "what is kept grows without bound";
}

}  // namespace
