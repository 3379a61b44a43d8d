#include "host/commands/Check.h"

#include <fcntl.h>
#include <json/value.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Schema.h"
#include "host/Account.h"
#include "host/commands/Layout.h"
#include "host/commands/Users.h"
#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/FileDescriptor.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

namespace fs = std::filesystem;
using Appliance::Rooted;

/// The findings of one part, and its line when there is none.
class Part {
public:
    explicit Part(std::string name) : m_name(std::move(name)) {}

    /// The host cannot do its work.
    void Error(const std::string& what) { Print("error", what, s_errors); }
    /// It can, but something is not as it should be.
    void Warn(const std::string& what) { Print("warning", what, s_warnings); }
    /// It is well, unless something was found.
    void End(const std::string& what) {
        if (m_isWell) {
            std::cout << "ok       " << m_name << ": " << what << '\n';
        }
    }

    static int Errors() { return s_errors; }
    static int Warnings() { return s_warnings; }

private:
    void Print(std::string level, const std::string& what, int& count) {
        level.resize(9, ' ');
        std::cout << level << m_name << ": " << what << '\n';
        m_isWell = false;
        ++count;
    }

    inline static int s_errors = 0;
    inline static int s_warnings = 0;
    std::string m_name;
    bool m_isWell = true;
};

using Severity = void (Part::*)(const std::string&);

std::string SystemMessage() { return std::generic_category().message(errno); }

bool IsAccessible(const std::string& path, int mode) {
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

/// Whether something is at the path; its owner and mode are looked at, of which it may have no bit of
/// `forbidden`.
bool CheckRights(Part& part, const std::string& path, mode_t forbidden, Severity whenMissing = &Part::Warn) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        (part.*whenMissing)(path + ": " + SystemMessage() + "; webapi-host init makes what is missing.");
        return false;
    }
    if (status.st_uid != 0 && status.st_uid != getuid()) {
        part.Warn(path + " belongs to the uid " + std::to_string(status.st_uid) +
                  " and not to the superuser.");
    }
    if ((status.st_mode & forbidden & (S_IWGRP | S_IWOTH)) != 0) {
        part.Warn("Others can write " + path + ": run chmod go-w on it.");
    }
    if ((status.st_mode & forbidden & (S_IRGRP | S_IROTH)) != 0) {
        const char* const whose = (forbidden & S_IRGRP) != 0 ? "go-r" : "o-r";
        part.Warn("Others can read " + path + ": run chmod " + whose + " on it.");
    }
    return true;
}

void CheckFolders() {
    Part part("folders");
    for (const std::string_view folder : kFolders) {
        const std::string path = Rooted(folder);
        if (CheckRights(part, path, S_IWGRP | S_IWOTH) && !fs::is_directory(path)) {
            part.Error(path + " is no folder.");
        }
    }
    part.End(std::to_string(std::size(kFolders)) + " below " + Rooted("/"));
}

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Rows = std::set<std::string>;

/// The first column of the rows. Throws std::runtime_error.
Rows Query(sqlite3* database, const char* sql) {
    Rows rows;
    const auto collect = [](void* to, int, char** texts, char**) {
        static_cast<Rows*>(to)->insert(texts[0] != nullptr ? texts[0] : "");
        return 0;
    };
    if (sqlite3_exec(database, sql, collect, &rows, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(database));
    }
    return rows;
}

/// Opens it in a way that makes no file: where none of the files beside it is there by which its users
/// agree, nobody uses it.
Database OpenReadOnly(const std::string& path) {
    std::string uri = "file:";
    for (const char letter : path) {
        switch (letter) {
            case '%':
                uri += "%25";
                break;
            case '?':
                uri += "%3f";
                break;
            case '#':
                uri += "%23";
                break;
            default:
                uri += letter;
        }
    }
    const bool isInUse = fs::exists(path + "-wal") && fs::exists(path + "-shm");
    uri += isInUse ? "?mode=ro" : "?immutable=1";
    sqlite3* handle = nullptr;
    sqlite3_open_v2(uri.c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    sqlite3_busy_timeout(handle, 5000);
    return {handle, &sqlite3_close};
}

/// A line for each table with its columns and for each index.
Rows DescribeSchema(sqlite3* database) {
    return Query(database,
                 "SELECT 'table ' || m.name || ' (' || group_concat(c.name || ' ' || c.type, ', ') || ')'"
                 " FROM sqlite_master m, pragma_table_info(m.name) c WHERE m.type = 'table' GROUP BY m.name"
                 " UNION SELECT 'index ' || m.name || ' on ' || m.tbl_name || ' (' || group_concat(c.name)"
                 " || ')' FROM sqlite_master m, pragma_index_info(m.name) c"
                 " WHERE m.type = 'index' AND m.sql NOT NULL GROUP BY m.name");
}

Rows ExpectedSchema() {
    sqlite3* handle = nullptr;
    sqlite3_open(":memory:", &handle);
    const Database database(handle, &sqlite3_close);
    Query(handle, kSchema);
    return DescribeSchema(handle);
}

/// Whether the file says that it has a write-ahead log.
bool HasWal(const std::string& path) {
    const Appliance::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char versions[2] = {};
    return pread(file.Get(), versions, sizeof versions, 18) == sizeof versions && versions[0] == 2 &&
           versions[1] == 2;
}

void CheckDatabase() {
    Part part("database");
    const std::string path = Rooted(Appliance::kDatabasePath);
    if (!CheckRights(part, path, S_IRWXG | S_IRWXO, &Part::Error)) {
        return;
    }
    if (!IsAccessible(path, R_OK) && geteuid() != 0) {
        part.End(path + " is the superuser's, and was not looked into");
        return;
    }
    try {
        const auto findDamage = [&] {
            Rows rows = Query(OpenReadOnly(path).get(), "PRAGMA integrity_check(10)");
            rows.erase("ok");
            return rows;
        };
        // Who begins to write while nobody is expected to may have been taken for damage.
        Rows damage = findDamage();
        damage = damage.empty() ? damage : findDamage();
        for (const std::string& row : damage) {
            part.Error(path + " is damaged: " + row);
        }
        std::error_code none;
        if (fs::file_size(path + "-wal", none) > 0 && !none && !fs::exists(path + "-shm")) {
            part.Warn(path + "-wal holds changes that the next opening takes in; they were not looked at.");
        }
        const Database database = OpenReadOnly(path);
        const Rows schema = DescribeSchema(database.get());
        bool hasTables = true;
        for (const std::string& line : ExpectedSchema()) {
            if (schema.contains(line)) {
                continue;
            }
            const bool isTable = line.starts_with("table");
            hasTables &= !isTable;
            const Severity severity = isTable ? &Part::Error : &Part::Warn;
            (part.*severity)(path + " lacks the " + line + ".");
        }
        if (!HasWal(path)) {
            part.Warn(path +
                      " has no write-ahead log, so that readers and writers wait for each other: run "
                      "PRAGMA journal_mode = WAL.");
        }
        if (hasTables) {
            part.End(*Query(database.get(), "SELECT count(*) FROM message").begin() + " messages");
        }
    } catch (const std::runtime_error& error) {
        part.Error(path + ": " + error.what() + ".");
    }
}

std::set<std::string> PlaceholdersOf(const char* text) {
    std::set<std::string> placeholders;
    for (const auto& [piece, isPlaceholder] : Appliance::PiecesOf(text)) {
        if (isPlaceholder) {
            placeholders.emplace(piece);
        }
    }
    return placeholders;
}

/// Whatever of the texts of one language the other lacks.
void CompareTexts(Part& part, const std::string& tag, const char* kind, const char* text, const char* other,
                  const std::string& language, const std::string& otherLanguage) {
    if (text == nullptr) {
        return;
    }
    const std::string which = "the " + std::string(kind) + " of the tag " + tag;
    if (other == nullptr) {
        part.Warn(otherLanguage + " lacks " + which + ", which " + language + " has.");
        return;
    }
    const auto others = PlaceholdersOf(other);
    for (const std::string& placeholder : PlaceholdersOf(text)) {
        if (!others.contains(placeholder)) {
            part.Warn(otherLanguage + " lacks " + placeholder + " in " + which + ", which " + language +
                      " has.");
        }
    }
}

using Catalogues = std::map<std::string, std::shared_ptr<const Appliance::Catalogue>>;

void CompareCatalogues(Part& part, const Catalogues::value_type& one, const Catalogues::value_type& other) {
    for (const auto& entry : one.second->entries) {
        const std::string tag(entry.first);
        const auto found = other.second->entries.find(tag);
        if (found == other.second->entries.end()) {
            part.Warn(other.first + " lacks the tag " + tag + ", which " + one.first + " has.");
            continue;
        }
        const auto compare = [&](const char* kind, const char* Appliance::CatalogueEntry::*text) {
            CompareTexts(part, tag, kind, entry.second.*text, found->second.*text, one.first, other.first);
        };
        compare("message", &Appliance::CatalogueEntry::message);
        compare("altMessage", &Appliance::CatalogueEntry::altMessage);
        compare("mail", &Appliance::CatalogueEntry::mail);
    }
}

/// The readable catalogues.
Catalogues CheckCatalogues() {
    Part part("catalogues");
    Catalogues catalogues;
    std::string names;
    std::set<std::string> languages;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(Rooted("/var/cache/texts"), ignored)) {
        languages.insert(entry.path().filename());
    }
    std::erase_if(languages, [](const std::string& name) { return !Appliance::IsLanguage(name); });
    for (const std::string& language : languages) {
        const std::string path = Appliance::CataloguePath(language);
        if (!CheckRights(part, path, S_IWGRP | S_IWOTH)) {
            continue;
        }
        if (auto catalogue = Appliance::LoadCatalogue(path)) {
            catalogues.emplace(language, std::move(catalogue));
            names += (names.empty() ? "" : ", ") + language;
        } else {
            part.Warn(path + " cannot be read or is no text catalogue.");
        }
    }
    const auto english = catalogues.find("enu");
    if (english == catalogues.end()) {
        part.Error("There is no English text catalogue " + Appliance::CataloguePath("enu") +
                   " that can be read.");
        return catalogues;
    }
    for (const auto& other : catalogues) {
        if (other.first != "enu") {
            CompareCatalogues(part, *english, other);
            CompareCatalogues(part, other, *english);
        }
    }
    part.End(names + " with " + std::to_string(english->second->tags.size()) + " tags");
    return catalogues;
}

void CheckCategoryFiles(const Catalogues& catalogues) {
    Part part("category files");
    int count = 0;
    for (const auto& [language, catalogue] : catalogues) {
        const std::string path = Rooted("/var/cache/texts/" + language + "/notification_category");
        if (!fs::exists(path)) {
            continue;
        }
        ++count;
        CheckRights(part, path, S_IWGRP | S_IWOTH);
        const auto content = Appliance::ReadFile(path);
        Json::Value document;
        std::vector<std::string> tags;
        if (content && Appliance::ParseJson(*content, document) && document.isObject()) {
            for (const Json::Value& event : document["All"]) {
                tags.push_back(event.isObject() && event["name"].isString() ? event["name"].asString() : "");
            }
        }
        if (!std::ranges::equal(tags, catalogue->tags, {}, {},
                                [](const char* tag) { return std::string(tag); })) {
            part.Warn(path +
                      " does not list the tags of the catalogue: run notification_utils "
                      "--gen_category_file " +
                      language + ".");
        }
    }
    part.End(std::to_string(count) + " of " + std::to_string(catalogues.size()) +
             "; the first request makes a missing one");
}

void CheckTool() {
    Part part("tool");
    const std::string path = Rooted(kToolPath);
    if (CheckRights(part, path, S_IWGRP | S_IWOTH) &&
        !(fs::is_regular_file(path) && IsAccessible(path, X_OK))) {
        part.Warn(path + " is no program, so that no category file can be made.");
    }
    part.End(path);
}

void CheckUsers(const Account& account) {
    Part part("users");
    const std::string path = Rooted(Appliance::kUsersPath);
    if (!CheckRights(part, path, S_IWGRP | S_IRWXO, &Part::Error)) {
        return;
    }
    const auto content = Appliance::ReadFile(path);
    if (!content) {
        part.Error("The account " + account.name + " cannot read " + path + ": " + SystemMessage() + ".");
        return;
    }
    Json::Value document;
    try {
        document = ParseUsersFile(*content, path);
    } catch (const std::runtime_error& error) {
        part.Error(error.what());
        return;
    }
    const auto users = Appliance::LoadUsers();
    std::map<int, std::string> uids;
    std::map<std::string, std::string> tokens;
    for (const std::string& name : document["users"].getMemberNames()) {
        const auto user = users->find(name);
        if (user == users->end()) {
            part.Warn("The entry of the user " + name + " is malformed and left out.");
            continue;
        }
        const auto [sameUid, isNewUid] = uids.emplace(user->second.uid, name);
        if (!isNewUid) {
            part.Warn(sameUid->second + " and " + name + " have one uid, " +
                      std::to_string(user->second.uid) + ", and so one list of notifications.");
        }
        const auto [sameToken, isNewToken] = tokens.emplace(user->second.token, name);
        if (!isNewToken && !user->second.token.empty()) {
            part.Warn(sameToken->second + " and " + name +
                      " have one token and cannot sign in: run webapi-host users token on one.");
        }
    }
    std::error_code ignoredError;
    for (const auto& entry : fs::directory_iterator(Rooted("/etc/kivo/settings/users"), ignoredError)) {
        const auto settings = Appliance::ReadFile(entry.path());
        Json::Value ignored;
        if (!settings || !Appliance::ParseJson(*settings, ignored)) {
            part.Warn("The settings " + entry.path().string() + " cannot be read.");
        }
    }
    part.End(users->empty() ? "none yet; webapi-host users add makes one" : std::to_string(users->size()));
}

[[nodiscard]] int Check(const std::string& accountName, bool ignoresWarnings) {
    const std::optional<Account> account = FindAccount(accountName);
    if (!account) {
        throw WrongUse("There is no account " + accountName + " on this machine.");
    }
    CheckFolders();
    CheckDatabase();
    CheckTool();
    // What follows is read with the account's rights when requests are answered.
    Part part("account");
    try {
        if (geteuid() == 0) {
            Become(*account);
        }
        if (const auto closed = FirstClosedFolder(Rooted("/"))) {
            part.Error("The account " + accountName + " cannot enter " + *closed + ": run chmod o+x on it.");
        }
    } catch (const std::runtime_error& error) {
        part.Error(error.what());
    }
    part.End(accountName + " (uid " + std::to_string(account->uid) + ")");
    CheckUsers(*account);
    CheckCategoryFiles(CheckCatalogues());
    return Part::Errors() > 0 || (Part::Warnings() > 0 && !ignoresWarnings) ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

Command AddCheckCommand(CLI::App& app, const std::string& accountName) {
    CLI::App& check = *app.add_subcommand("check", "Looks whether all is well with the appliance");
    check.footer(
        "It writes nothing. Each part has a line, or one for each finding: an error keeps the server "
        "from its work, a warning does not. The exit status is 1 if there is a finding.");
    const auto ignoresWarnings = std::make_shared<bool>(false);
    check.add_flag("--ignore-warnings", *ignoresWarnings, "Exit with 1 for errors only, as before a start");
    return {&check, [=, &accountName] { return Check(accountName, *ignoresWarnings); }};
}

}  // namespace KIVO::Host
