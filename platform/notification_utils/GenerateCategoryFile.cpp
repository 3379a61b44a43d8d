#include "platform/notification_utils/GenerateCategoryFile.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Json.h"

namespace {

using namespace KIVO::Appliance;

constexpr mode_t kCategoryFileMode = 0644;

constexpr std::chrono::seconds kLongestWait(5);
constexpr std::chrono::milliseconds kPause(5);

Json::Value ListEvents(const Catalogue& catalogue) {
    Json::Value events(Json::arrayValue);
    for (const char* tag : catalogue.tags) {
        const CatalogueEntry& entry = catalogue.entries.at(tag);
        Json::Value event;
        event["name"] = tag;
        if (entry.group != nullptr) {
            event["group"] = entry.group;
        }
        if (entry.appId != nullptr) {
            event["appid"] = entry.appId;
        }
        events.append(std::move(event));
    }
    return events;
}

[[noreturn]] void ThrowWriteError(const std::string& path) {
    throw std::runtime_error("Cannot write " + path + ": " + std::generic_category().message(errno) + ".");
}

/// The file that takes a path's place in the end; removed unless it does. One at a time, so that it has one
/// name, and what a process left that was killed is in nobody's way for longer than until the next.
class Replacement {
public:
    explicit Replacement(std::string path)
        : m_path(std::move(path)),
          m_temporaryPath(m_path + ".new"),
          m_folder(open(m_path.substr(0, m_path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (!m_folder.IsOpen() || !TakeTurn()) {
            ThrowWriteError(m_path);
        }
        unlink(m_temporaryPath.c_str());
        m_file = FileDescriptor(
            open(m_temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kCategoryFileMode));
        if (!m_file.IsOpen()) {
            ThrowWriteError(m_path);
        }
    }
    ~Replacement() {
        if (!m_isInPlace) {
            unlink(m_temporaryPath.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void Write(std::string_view content) {
        while (!content.empty()) {
            const ssize_t length = write(m_file.Get(), content.data(), content.size());
            if (length >= 0) {
                content.remove_prefix(static_cast<std::size_t>(length));
            } else if (errno != EINTR) {
                ThrowWriteError(m_path);
            }
        }
    }

    /// Takes the path's place, durably as far as the system lets it.
    void Commit() {
        if (fchmod(m_file.Get(), kCategoryFileMode) != 0 || fsync(m_file.Get()) != 0 ||
            rename(m_temporaryPath.c_str(), m_path.c_str()) != 0) {
            ThrowWriteError(m_path);
        }
        m_isInPlace = true;
        // Where that fails, the file may be made once more after a power failure.
        fsync(m_folder.Get());
    }

private:
    /// False, with errno set, when others have had it for too long.
    bool TakeTurn() const {
        const auto end = std::chrono::steady_clock::now() + kLongestWait;
        while (flock(m_folder.Get(), LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(kPause);
        }
        return true;
    }

    std::string m_path;
    std::string m_temporaryPath;
    FileDescriptor m_folder;
    FileDescriptor m_file{-1};
    bool m_isInPlace = false;
};

}  // namespace

void GenerateCategoryFile(const std::string& language) {
    if (!IsLanguage(language)) {
        throw std::runtime_error("\"" + language +
                                 "\" is no language; a language is three lower-case letters.");
    }
    const std::string folder = Rooted("/var/cache/texts/" + language);
    const auto catalogue = LoadCatalogue(folder + "/mails");
    if (!catalogue) {
        throw std::runtime_error("There is no readable text catalogue " + folder + "/mails.");
    }
    Json::Value document;
    document["All"] = ListEvents(*catalogue);

    Replacement file(folder + "/notification_category");
    file.Write(WriteJson(document) + '\n');
    file.Commit();
}
