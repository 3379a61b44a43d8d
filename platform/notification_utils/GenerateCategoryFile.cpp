#include "platform/notification_utils/GenerateCategoryFile.h"

#include <fcntl.h>
#include <json/value.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Json.h"

namespace {

using namespace KIVO::Appliance;

constexpr mode_t kCategoryFileMode = 0644;

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

/// A new file of a name of its own beside `path`, which it becomes in the end; removed unless it does.
class Replacement {
public:
    explicit Replacement(std::string path)
        : m_path(std::move(path)),
          m_temporaryPath(m_path + ".XXXXXX"),
          m_file(mkostemp(m_temporaryPath.data(), O_CLOEXEC)) {
        if (!m_file.IsOpen()) {
            ThrowWriteError(m_path);
        }
    }
    ~Replacement() {
        if (!m_temporaryPath.empty()) {
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

    /// Takes the path's place, durably.
    void Commit() {
        if (fchmod(m_file.Get(), kCategoryFileMode) != 0 || fsync(m_file.Get()) != 0 ||
            rename(m_temporaryPath.c_str(), m_path.c_str()) != 0) {
            ThrowWriteError(m_path);
        }
        m_temporaryPath.clear();
        const std::string folderPath = m_path.substr(0, m_path.rfind('/'));
        const FileDescriptor folder(open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!folder.IsOpen() || fsync(folder.Get()) != 0) {
            ThrowWriteError(m_path);
        }
    }

private:
    std::string m_path;
    std::string m_temporaryPath;  // "" when there is none to remove
    FileDescriptor m_file;
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
