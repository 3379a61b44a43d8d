#include "tests/support/ApplianceRoot.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace KIVO::Test {

namespace fs = std::filesystem;

namespace {

constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Json::Value ToArray(const std::vector<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const std::string& text : texts) {
        array.append(text);
    }
    return array;
}

}  // namespace

bool CanTakeOnIds() {
    long inside = 0;
    long outside = 0;
    long count = 0;
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    return geteuid() == 0 && count > 65534;
}

ApplianceRoot::ApplianceRoot() {
    std::string folder = (fs::temp_directory_path() / "appliance-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    m_folder = folder;
    fs::permissions(m_folder, fs::perms(0755));
    setenv("KIVO_ROOT", m_folder.c_str(), 1);
}

ApplianceRoot::~ApplianceRoot() {
    unsetenv("KIVO_ROOT");
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

std::string ApplianceRoot::Path(std::string_view appliancePath) const {
    return m_folder.string().append(appliancePath);
}

std::string ApplianceRoot::Write(std::string_view appliancePath, std::string_view content) const {
    std::string path = Path(appliancePath);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(path, std::ios::binary);
    file << content;
    file.close();
    return path;
}

std::optional<std::string> ApplianceRoot::Read(std::string_view appliancePath) const {
    const std::string path = Path(appliancePath);
    return fs::exists(path) ? std::optional(ReadWholeFile(path)) : std::nullopt;
}

void ApplianceRoot::WriteUsers(const std::vector<TestUser>& users) const {
    Json::Value document;
    Json::Value& entries = document["users"] = Json::Value(Json::objectValue);
    for (const TestUser& user : users) {
        Json::Value& entry = entries[user.name];
        entry["uid"] = user.uid;
        entry["gid"] = user.gid;
        entry["language"] = user.language;
        entry["groups"] = ToArray(user.groups);
        entry["apps"] = ToArray(user.apps);
        entry["hiddenTags"] = ToArray(user.hiddenTags);
        entry["token"] = user.token;
    }
    Write("/etc/kivo/users.json", document.toStyledString());
}

void ApplianceRoot::WriteCatalogue(std::string_view language, std::string_view keyFile) const {
    Write("/var/cache/texts/" + std::string(language) + "/mails", keyFile);
}

void ApplianceRoot::WriteUserSettings(const std::string& user, const Json::Value& document) const {
    Write("/etc/kivo/settings/users/" + user + ".json", document.toStyledString());
}

void ApplianceRoot::WriteGroupSettings(const std::string& group, const Json::Value& document) const {
    Write("/etc/kivo/settings/groups/" + group + ".json", document.toStyledString());
}

void ApplianceRoot::CreateDatabase() const {
    fs::permissions(Write(kDatabase, ""), fs::perms::owner_read | fs::perms::owner_write);
    Query(ReadWholeFile(SCHEMA_FILE));
}

long long ApplianceRoot::AddMessage(const std::vector<int>& uids, const std::optional<std::string>& content,
                                    long long timestamp) const {
    std::string sqlContent = content ? "CAST(x'" : "NULL";
    for (const unsigned char byte : content.value_or("")) {
        sqlContent += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    }
    sqlContent += content ? "' AS TEXT)" : "";
    std::string sql = "INSERT INTO message(message_content, timestamp) VALUES(" + sqlContent + ", " +
                      std::to_string(timestamp) + "); ";
    for (const int uid : uids) {
        sql += "INSERT INTO nexnotify VALUES(" + std::to_string(uid) + ", last_insert_rowid()); ";
    }
    return std::stoll(*Query(sql + "SELECT last_insert_rowid()")[0][0]);
}

std::vector<std::vector<Column>> ApplianceRoot::Query(const std::string& sql) const {
    sqlite3* handle = nullptr;
    sqlite3_open_v2(Path(kDatabase).c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(handle, &sqlite3_close);
    sqlite3_busy_timeout(handle, 5000);
    std::vector<std::vector<Column>> rows;
    const auto collect = [](void* to, int count, char** texts, char**) {
        auto& row = static_cast<decltype(rows)*>(to)->emplace_back();
        for (int column = 0; column < count; ++column) {
            row.push_back(texts[column] != nullptr ? Column(texts[column]) : std::nullopt);
        }
        return 0;
    };
    if (sqlite3_exec(handle, sql.c_str(), collect, &rows, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(handle));
    }
    return rows;
}

}  // namespace KIVO::Test
