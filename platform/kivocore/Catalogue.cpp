#include "platform/kivocore/Catalogue.h"

#include <fcntl.h>
#include <glib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Appliance {

namespace {

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)>;
using TextList = std::unique_ptr<gchar*, decltype(&g_strfreev)>;
using Text = std::unique_ptr<gchar, decltype(&g_free)>;

/// The text in the catalogue's keeping; null for null.
const char* Keep(Catalogue& catalogue, const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(catalogue.texts.allocate(size, 1), text, size));
}

[[nodiscard]] std::shared_ptr<const Catalogue> ParseCatalogue(const std::string& content) {
    const KeyFile file(g_key_file_new(), &g_key_file_unref);
    if (!g_key_file_load_from_data(file.get(), content.data(), content.size(), G_KEY_FILE_NONE, nullptr)) {
        return nullptr;
    }
    const TextList tags(g_key_file_get_groups(file.get(), nullptr), &g_strfreev);
    auto catalogue = std::make_shared<Catalogue>();
    for (gchar** tag = tags.get(); *tag != nullptr; ++tag) {
        const auto read = [&](const char* key) {
            return Keep(*catalogue,
                        Text(g_key_file_get_string(file.get(), *tag, key, nullptr), &g_free).get());
        };
        catalogue->tags.push_back(Keep(*catalogue, *tag));
        catalogue->entries.emplace(catalogue->tags.back(), CatalogueEntry{
                                                               .category = read("category"),
                                                               .level = read("level"),
                                                               .message = read("message"),
                                                               .altMessage = read("altMessage"),
                                                               .mail = read("mail"),
                                                               .group = read("group"),
                                                               .appId = read("appid"),
                                                           });
    }
    return catalogue;
}

/// The catalogues read last, so that thousands of lookups in one file parse it once.
class CatalogueCache {
public:
    [[nodiscard]] std::shared_ptr<const Catalogue> Load(int descriptor) {
        const std::optional<FileIdentity> identity = IdentifyFile(descriptor);
        if (!identity) {
            return nullptr;
        }
        const std::scoped_lock lock(m_mutex);
        const auto known = std::find_if(m_files.begin(), m_files.end(), [&](const CachedFile& file) {
            return file.identity.device == identity->device && file.identity.inode == identity->inode;
        });
        if (known != m_files.end()) {
            if (known->identity == *identity) {
                std::rotate(m_files.begin(), known, known + 1);
                return m_files.front().catalogue;
            }
            m_files.erase(known);
        }

        const bool isSettled = IsSettled(*identity);
        const std::optional<std::string> content = ReadFile(descriptor);
        if (!content) {
            return nullptr;
        }
        std::shared_ptr<const Catalogue> catalogue = ParseCatalogue(*content);
        if (isSettled && IdentifyFile(descriptor) == identity) {  // else a writer may have overtaken the read
            if (m_files.size() == kCapacity) {
                m_files.pop_back();
            }
            m_files.insert(m_files.begin(), {*identity, catalogue});
        }
        return catalogue;
    }

private:
    struct CachedFile {
        FileIdentity identity;
        std::shared_ptr<const Catalogue> catalogue;  // null: the file is no catalogue
    };

    static constexpr std::size_t kCapacity = 16;

    std::mutex m_mutex;
    std::vector<CachedFile> m_files;  // the one used last in front
};

}  // namespace

std::shared_ptr<const Catalogue> LoadCatalogue(const std::string& path) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return file.IsOpen() ? LoadCatalogue(file.Get()) : nullptr;
}

std::shared_ptr<const Catalogue> LoadCatalogue(int descriptor) {
    static CatalogueCache cache;
    return cache.Load(descriptor);
}

std::vector<TextPiece> PiecesOf(std::string_view text) {
    std::vector<TextPiece> pieces;
    while (!text.empty()) {
        std::size_t end = std::min(text.find_first_of("{} \t\n\v\f\r", 1), text.size());
        const bool isPlaceholder = text[0] == '{' && end > 1 && text.substr(end).starts_with('}');
        end += isPlaceholder ? 1 : 0;
        pieces.push_back({text.substr(0, end), isPlaceholder});
        text.remove_prefix(end);
    }
    return pieces;
}

std::string CataloguePath(const std::string& language) {
    return Rooted("/var/cache/texts/" + language + "/mails");
}

std::vector<std::string> InstalledLanguages() {
    std::vector<std::string> languages;
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(Rooted("/var/cache/texts"), ignored), end; entry != end;
         entry.increment(ignored)) {
        const std::string name = entry->path().filename();
        if (IsLanguage(name) && std::filesystem::exists(entry->path() / "mails", ignored)) {
            languages.push_back(name);
        }
    }
    std::ranges::sort(languages);
    return languages;
}

}  // namespace KIVO::Appliance
