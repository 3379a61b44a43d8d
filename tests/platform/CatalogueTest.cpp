#include "platform/kivocore/Catalogue.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "kivocore/file.h"
#include "sysnotify/nstring.h"
#include "tests/support/ApplianceRoot.h"

namespace {

using KIVO::Appliance::LoadCatalogue;

constexpr char kMails[] = "/var/cache/texts/enu/mails";

class CatalogueTest : public testing::Test {
protected:
    /// The message that a lookup of the tag A leaves in the record.
    std::string LookUp() {
        const int result = KIVONotifyStringGetByPath(m_root.Path(kMails).c_str(), "A", m_record.get(), 1);
        EXPECT_EQ(result == 0, m_record->messageText != nullptr);
        return m_record->messageText != nullptr ? m_record->messageText : "";
    }

    void WriteMessage(const std::string& text) {
        m_root.WriteCatalogue("enu", "[A]\nmessage=" + text + "\n");
    }

    KIVO::Test::ApplianceRoot m_root;
    const std::unique_ptr<NString, decltype(&KIVONotifyStringFree)> m_record{KIVONotifyStringNew(),
                                                                             &KIVONotifyStringFree};
};

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
    WriteMessage("one");
    EXPECT_EQ(LookUp(), "one");
    WriteMessage("two");
    EXPECT_STREQ(m_record->messageText, "one") << "valid until the record's next lookup";
    EXPECT_EQ(LookUp(), "two");
    std::filesystem::rename(m_root.Write("/new", "[A]\nmessage=six\n"), m_root.Path(kMails));
    EXPECT_EQ(LookUp(), "six");
    m_root.WriteCatalogue("enu", "not a catalogue\n");
    EXPECT_EQ(LookUp(), "");
    std::filesystem::remove(m_root.Path(kMails));
    EXPECT_EQ(LookUp(), "");
}

// The clock of a file's times stands still for some milliseconds at a time.
TEST_F(CatalogueTest, AChangeThatLeavesSizeAndTimeIsSeenAtOnceAndLater) {
    for (const auto pause : {std::chrono::milliseconds(0), std::chrono::milliseconds(50)}) {
        WriteMessage("one");
        const auto writtenAt = std::filesystem::last_write_time(m_root.Path(kMails));
        std::this_thread::sleep_for(pause);
        EXPECT_EQ(LookUp(), "one");
        WriteMessage("two");
        std::filesystem::last_write_time(m_root.Path(kMails), writtenAt);
        EXPECT_EQ(LookUp(), "two") << pause.count();
    }
}

TEST_F(CatalogueTest, AReadBesideAWriterIsNotKept) {
    WriteMessage("1000");
    std::atomic<int> version = 1000;
    std::jthread writer([&] {
        while (version < 1400) {
            WriteMessage(std::to_string(version + 1));
            ++version;
        }
    });
    while (version < 1400) {
        LookUp();
    }
    EXPECT_EQ(LookUp(), "1400");
}

TEST_F(CatalogueTest, AnUnchangedFileIsParsedOnceAndNotKeptForEver) {
    std::array<std::string, 40> paths;
    for (std::size_t index = 0; index < paths.size(); ++index) {
        paths[index] = m_root.Write("/catalogue" + std::to_string(index), "[A]\n");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto first = LoadCatalogue(paths[0]);
    EXPECT_EQ(LoadCatalogue(paths[0]), first);
    for (const std::string& path : paths) {
        EXPECT_NE(LoadCatalogue(path), nullptr);
    }
    EXPECT_NE(LoadCatalogue(paths[0]), first);
}

TEST(File, ExistsUnlessItIsKnownToBeMissing) {
    const KIVO::Test::ApplianceRoot root;
    const std::string file = root.Write("/file", "");
    std::filesystem::create_symlink("loop", root.Path("/loop"));
    std::filesystem::create_symlink("nowhere", root.Path("/dangling"));
    EXPECT_TRUE(KLIBCFileExist(file.c_str()));
    EXPECT_TRUE(KLIBCFileExist(root.Folder().c_str()));
    for (const std::string& missing : {root.Path("/missing"), file + "/below", root.Path("/loop"),
                                       root.Path("/dangling"), root.Path("/" + std::string(300, 'x'))}) {
        EXPECT_FALSE(KLIBCFileExist(missing.c_str())) << missing;
    }
}

}  // namespace
