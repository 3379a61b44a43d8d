#include "platform/kivocore/Catalogue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "sysnotify/nstring.h"
#include "tests/support/ApplianceRoot.h"

namespace {

using KIVO::Appliance::LoadCatalogue;
using KIVO::Test::ApplianceRoot;
using Record = std::unique_ptr<NString, decltype(&KIVONotifyStringFree)>;

constexpr char kMails[] = "/var/cache/texts/enu/mails";

class CatalogueTest : public testing::Test {
protected:
    int LookUp(const std::string& tag) {
        return KIVONotifyStringGetByPath(m_root.Path(kMails).c_str(), tag.c_str(), m_record.get(), 1);
    }

    /// What a lookup leaves in the record.
    std::string Describe(const std::string& tag) {
        std::string texts = LookUp(tag) == 0 ? "found" : "failed";
        for (const char* text : {m_record->category, m_record->level, m_record->messageText,
                                 m_record->altMessageText, m_record->mailText}) {
            texts += text != nullptr ? std::string("|") + text : "|-";
        }
        return texts;
    }

    ApplianceRoot m_root;
    Record m_record{KIVONotifyStringNew(), &KIVONotifyStringFree};
};

TEST_F(CatalogueTest, EachLookupDescribesItsOwnTagOnly) {
    m_root.WriteCatalogue(
        "enu",
        "[Full]\ncategory=Backup\nlevel=NOTIFICATION_WARN\nmessage=Line 1\\nLine 2\naltMessage=Alt\n"
        "mail=Body of {NAME}\n[Sparse]\nlevel=\n[Latin1]\nmessage=caf\xe9\nmail=Body\n");
    for (const auto& [tag, texts] : std::map<std::string, std::string>{{"", "failed|-|-|-|-|-"},
                                                                       {"full", "failed|-|-|-|-|-"},
                                                                       {"Full]", "failed|-|-|-|-|-"},
                                                                       {"Sparse", "found|-||-|-|-"},
                                                                       {"Latin1", "found|-|-|-|-|Body"}}) {
        EXPECT_EQ(Describe("Full"), "found|Backup|NOTIFICATION_WARN|Line 1\nLine 2|Alt|Body of {NAME}");
        EXPECT_EQ(Describe(tag), texts) << tag;
    }
}

TEST_F(CatalogueTest, AnOpenFileIsSearchedWhereverItsPositionStands) {
    m_root.WriteCatalogue("enu", "[A]\nmessage=a\n[B]\nmessage=b\n");
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(m_root.Path(kMails).c_str(), "r"), &fclose);
    for (const long position : {0L, 5L, 1000L}) {
        fseek(file.get(), position, SEEK_SET);
        for (const char* tag : {"B", "A", "B"}) {
            ASSERT_EQ(KIVONotifyStringGetByFp(file.get(), tag, m_record.get()), 0);
            EXPECT_STRCASEEQ(m_record->messageText, tag);
        }
    }
    // The same stream for another file: what was read of the first is not what it holds.
    ASSERT_NE(freopen(m_root.Write("/other", "[A]\nmessage=other\n").c_str(), "r", file.get()), nullptr);
    ASSERT_EQ(KIVONotifyStringGetByFp(file.get(), "A", m_record.get()), 0);
    EXPECT_STREQ(m_record->messageText, "other");
}

TEST_F(CatalogueTest, AChangedFileIsReadAgain) {
    m_root.WriteCatalogue("enu", "[A]\nmessage=one\n");
    ASSERT_EQ(LookUp("A"), 0);
    m_root.WriteCatalogue("enu", "[A]\nmessage=two\n");
    EXPECT_STREQ(m_record->messageText, "one") << "valid until the record's next lookup";
    EXPECT_EQ(Describe("A"), "found|-|-|two|-|-");
    std::filesystem::rename(m_root.Write("/new", "[A]\nmessage=six\n"), m_root.Path(kMails));
    EXPECT_EQ(Describe("A"), "found|-|-|six|-|-");
    m_root.WriteCatalogue("enu", "not a catalogue\n");
    EXPECT_NE(LookUp("A"), 0);
    std::filesystem::remove(m_root.Path(kMails));
    EXPECT_NE(LookUp("A"), 0);
}

// The clock of modification times stands still for some milliseconds at a time.
TEST_F(CatalogueTest, AChangeWithinOneStepOfTheClockIsSeen) {
    const std::string path = m_root.Path(kMails);
    std::filesystem::file_time_type writtenAt;
    do {
        m_root.WriteCatalogue("enu", "[A]\nmessage=one\n");
        writtenAt = std::filesystem::last_write_time(path);
        ASSERT_EQ(LookUp("A"), 0);
    } while (std::filesystem::file_time_type::clock::now() - writtenAt > std::chrono::milliseconds(10));
    m_root.WriteCatalogue("enu", "[A]\nmessage=two\n");
    std::filesystem::last_write_time(path, writtenAt);
    EXPECT_EQ(Describe("A"), "found|-|-|two|-|-");
}

TEST_F(CatalogueTest, AReadBesideAWriterIsNotKept) {
    m_root.WriteCatalogue("enu", "[A]\nmessage=1000\n");
    std::atomic<bool> isWritten = false;
    std::thread writer([&] {
        for (int version = 1001; version <= 1400; ++version) {
            m_root.WriteCatalogue("enu", "[A]\nmessage=" + std::to_string(version) + "\n");
        }
        isWritten = true;
    });
    while (!isWritten) {
        LookUp("A");
    }
    writer.join();
    EXPECT_EQ(Describe("A"), "found|-|-|1400|-|-");
}

TEST_F(CatalogueTest, AnUnchangedFileIsParsedOnceAndNotKeptForEver) {
    const auto load = [&](int index) {
        const std::string path = m_root.Write("/catalogue" + std::to_string(index), "[A]\n");
        std::filesystem::last_write_time(path, std::filesystem::file_time_type() + std::chrono::hours(1));
        return std::pair(LoadCatalogue(path), LoadCatalogue(path));
    };
    const auto [first, again] = load(0);
    EXPECT_EQ(first, again);
    for (int index = 1; index < 40; ++index) {
        load(index);
    }
    EXPECT_NE(LoadCatalogue(m_root.Path("/catalogue0")), first);
}

}  // namespace
