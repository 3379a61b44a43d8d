#pragma once

#include <json/value.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KIVO::Test {

/// Whether this process can take on another account's ids, which not every namespace's superuser can.
bool CanTakeOnIds();

/// One entry of the users file.
struct TestUser {
    std::string name;
    int uid = 1026;
    std::string language = "enu";
    std::vector<std::string> groups = {"users"};
    std::vector<std::string> apps = {};
    std::vector<std::string> hiddenTags = {};
    std::string token = {};
};

/// One column of a result row: nothing for NULL.
using Column = std::optional<std::string>;

/// An empty appliance root in a temporary folder that every account can read: the process's KIVO_ROOT while
/// the object lives. Every operation throws when it fails. Paths are the appliance's own; one object at a
/// time.
class ApplianceRoot {
public:
    ApplianceRoot();
    ~ApplianceRoot();
    ApplianceRoot(const ApplianceRoot&) = delete;
    ApplianceRoot& operator=(const ApplianceRoot&) = delete;

    const std::filesystem::path& Folder() const { return m_folder; }
    /// The appliance's path as a path of this machine.
    std::string Path(std::string_view appliancePath) const;

    /// Writes the file, in place if it exists, making the folders above it. Its path on this machine.
    std::string Write(std::string_view appliancePath, std::string_view content) const;
    /// The file's whole content; nothing when there is none.
    std::optional<std::string> Read(std::string_view appliancePath) const;

    void WriteUsers(const std::vector<TestUser>& users) const;
    /// Writes the text catalogue of a language, in GLib key-file form.
    void WriteCatalogue(const std::string& language, std::string_view keyFile) const {
        Write("/var/cache/texts/" + language + "/mails", keyFile);
    }
    void WriteUserSettings(const std::string& user, const Json::Value& document) const {
        Write("/etc/kivo/settings/users/" + user + ".json", document.toStyledString());
    }
    void WriteGroupSettings(const std::string& group, const Json::Value& document) const {
        Write("/etc/kivo/settings/groups/" + group + ".json", document.toStyledString());
    }

    /// Makes the database, which is empty and readable by its owner only.
    void CreateDatabase() const;
    /// Adds one message and links the users to it. Its message_id.
    long long AddMessage(const std::vector<int>& uids, const std::optional<std::string>& content,
                         long long timestamp) const;
    /// Runs statements on the notification database. The result rows.
    std::vector<std::vector<Column>> Query(const std::string& sql) const;

private:
    std::filesystem::path m_folder;
};

}  // namespace KIVO::Test
