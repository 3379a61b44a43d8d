#include "tests/support/ApplianceRoot.h"

#include <json/writer.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace KIVO::Test {

namespace {

namespace fs = std::filesystem;

constexpr char kDatabase[] = "/var/lib/kivo/nexnotify.db";

fs::path MakeTemporaryFolder() {
    std::string path = (fs::temp_directory_path() / "appliance-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr || chmod(path.c_str(), 0755) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

void WriteFile(const fs::path& path, std::string_view content) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return content;
}

std::string WriteJson(const Json::Value& value) {
    return Json::writeString(Json::StreamWriterBuilder(), value);
}

Json::Value ToArray(const std::vector<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const std::string& text : texts) {
        array.append(text);
    }
    return array;
}

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

void Expect(bool isRight, sqlite3* database) {
    if (!isRight) {
        throw std::runtime_error(sqlite3_errmsg(database));
    }
}

Database Open(const std::string& path, int flags) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    Database database(handle, &sqlite3_close);
    Expect(result == SQLITE_OK, handle);
    sqlite3_busy_timeout(handle, 5000);
    return database;
}

Statement Prepare(const Database& database, const std::string& sql) {
    sqlite3_stmt* handle = nullptr;
    const int result = sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &handle, nullptr);
    Statement statement(handle, &sqlite3_finalize);
    Expect(result == SQLITE_OK, database.get());
    return statement;
}

}  // namespace

bool CanTakeOnIds() {
    std::uint64_t inside = 0;
    std::uint64_t outside = 0;
    std::uint64_t count = 0;
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    return geteuid() == 0 && count > 65534;
}

ApplianceRoot::ApplianceRoot() : m_folder(MakeTemporaryFolder()) {
    if (const char* earlierRoot = getenv("KIVO_ROOT")) {
        m_earlierRoot = earlierRoot;
    }
    setenv("KIVO_ROOT", m_folder.c_str(), 1);
}

ApplianceRoot::~ApplianceRoot() {
    if (m_earlierRoot) {
        setenv("KIVO_ROOT", m_earlierRoot->c_str(), 1);
    } else {
        unsetenv("KIVO_ROOT");
    }
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

std::string ApplianceRoot::Path(std::string_view appliancePath) const {
    return m_folder.string().append(appliancePath);
}

std::string ApplianceRoot::Write(std::string_view appliancePath, std::string_view content) const {
    std::string path = Path(appliancePath);
    WriteFile(path, content);
    return path;
}

std::string ApplianceRoot::Replace(std::string_view appliancePath, std::string_view content) const {
    std::string path = Path(appliancePath);
    WriteFile(path + ".new", content);
    fs::rename(path + ".new", path);
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
    Write("/etc/kivo/users.json", WriteJson(document));
}

void ApplianceRoot::WriteCatalogue(std::string_view language, std::string_view keyFile) const {
    Write("/var/cache/texts/" + std::string(language) + "/mails", keyFile);
}

void ApplianceRoot::WriteUserSettings(const std::string& user, const Json::Value& document) const {
    Write("/etc/kivo/settings/users/" + user + ".json", WriteJson(document));
}

void ApplianceRoot::WriteGroupSettings(const std::string& group, const Json::Value& document) const {
    Write("/etc/kivo/settings/groups/" + group + ".json", WriteJson(document));
}

void ApplianceRoot::CreateDatabase() const {
    const std::string path = Write(kDatabase, "");
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    const Database database = Open(path, SQLITE_OPEN_READWRITE);
    Expect(sqlite3_exec(database.get(), ReadWholeFile(SCHEMA_FILE).c_str(), nullptr, nullptr, nullptr) ==
               SQLITE_OK,
           database.get());
}

long long ApplianceRoot::AddMessage(const std::vector<int>& uids, const std::optional<std::string>& content,
                                    long long timestamp) const {
    const Database database = Open(Path(kDatabase), SQLITE_OPEN_READWRITE);
    const Statement message =
        Prepare(database, "INSERT INTO message(message_content, timestamp) VALUES(?, ?)");
    if (content) {
        sqlite3_bind_text(message.get(), 1, content->data(), static_cast<int>(content->size()),
                          SQLITE_STATIC);
    }
    sqlite3_bind_int64(message.get(), 2, timestamp);
    Expect(sqlite3_step(message.get()) == SQLITE_DONE, database.get());
    const long long messageId = sqlite3_last_insert_rowid(database.get());

    const Statement link = Prepare(database, "INSERT INTO nexnotify(uid, message_id) VALUES(?, ?)");
    for (const int uid : uids) {
        sqlite3_reset(link.get());
        sqlite3_bind_int(link.get(), 1, uid);
        sqlite3_bind_int64(link.get(), 2, messageId);
        Expect(sqlite3_step(link.get()) == SQLITE_DONE, database.get());
    }
    return messageId;
}

std::vector<std::vector<Column>> ApplianceRoot::Query(const std::string& sql) const {
    const Database database = Open(Path(kDatabase), SQLITE_OPEN_READWRITE);
    const Statement statement = Prepare(database, sql);
    std::vector<std::vector<Column>> rows;
    int result = 0;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        std::vector<Column>& row = rows.emplace_back();
        for (int column = 0; column < sqlite3_column_count(statement.get()); ++column) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
            row.push_back(text != nullptr ? Column(text) : std::nullopt);
        }
    }
    Expect(result == SQLITE_DONE, database.get());
    return rows;
}

}  // namespace KIVO::Test
