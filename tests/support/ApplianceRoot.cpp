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

std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

bool CanTakeOnIds() {
    long ignored = 0;
    long count = 0;
    std::ifstream("/proc/self/uid_map") >> ignored >> ignored >> count;
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
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << content << std::flush;
    return path;
}

std::optional<std::string> ApplianceRoot::Read(std::string_view appliancePath) const {
    const std::string path = Path(appliancePath);
    return fs::exists(path) ? std::optional(ReadWholeFile(path)) : std::nullopt;
}

void ApplianceRoot::WriteUsers(const std::vector<TestUser>& users) const {
    Json::Value document;
    for (const TestUser& user : users) {
        Json::Value& entry = document["users"][user.name];
        entry["uid"] = user.uid;
        entry["gid"] = 100;
        entry["language"] = user.language;
        entry["token"] = user.token;
        for (const auto& [list, texts] : {std::pair("groups", &user.groups), std::pair("apps", &user.apps),
                                          std::pair("hiddenTags", &user.hiddenTags)}) {
            for (const std::string& text : *texts) {
                entry[list].append(text);
            }
        }
    }
    Write("/etc/kivo/users.json", document.toStyledString());
}

void ApplianceRoot::CreateDatabase() const {
    fs::permissions(Write(kDatabase, ""), fs::perms::owner_read | fs::perms::owner_write);
    Query(ReadWholeFile(SCHEMA_FILE));
}

long long ApplianceRoot::AddMessage(const std::vector<int>& uids, const std::optional<std::string>& content,
                                    long long timestamp) const {
    std::string hex;
    for (const char character : content.value_or("")) {
        const auto byte = static_cast<unsigned char>(character);
        hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    }
    std::string sql = "INSERT INTO message(message_content, timestamp) VALUES(CAST(" +
                      (content ? "x'" + hex + "'" : "NULL") + " AS TEXT), " + std::to_string(timestamp) +
                      "); ";
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
