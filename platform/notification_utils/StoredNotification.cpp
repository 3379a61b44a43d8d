#include "platform/notification_utils/StoredNotification.h"

#include <json/value.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Users.h"
#include "sysnotify/database.h"

namespace {

using namespace KIVO::Appliance;

using Database = std::unique_ptr<sqlite3, decltype(&nexnotifyDbClose)>;
using SqlText = std::unique_ptr<char, decltype(&sqlite3_free)>;

/// Throws unless some language's catalogue has the tag. One with a ':' is known without any.
void CheckTag(const std::string& tag) {
    if (tag.find(':') != std::string::npos) {
        return;
    }
    bool hasCatalogue = false;
    for (const std::string& language : InstalledLanguages()) {
        const auto catalogue = LoadCatalogue(Rooted("/var/cache/texts/" + language + "/mails"));
        if (catalogue && catalogue->entries.contains(tag)) {
            return;
        }
        hasCatalogue |= catalogue != nullptr;
    }
    const std::string folder = Rooted("/var/cache/texts");
    throw std::runtime_error(hasCatalogue
                                 ? "No text catalogue below " + folder + " has the tag \"" + tag + "\"."
                                 : "There is no readable text catalogue below " + folder + ".");
}

int FindUid(const std::string& userName) {
    const auto users = LoadUsers();
    const auto user = users->find(userName);
    if (user == users->end()) {
        throw std::runtime_error("There is no user \"" + userName + "\" in " +
                                 Rooted("/etc/kivo/users.json") + ".");
    }
    return user->second.uid;
}

Json::Value ReadParameters(const std::vector<std::string>& parameters) {
    Json::Value object(Json::objectValue);
    for (const std::string& parameter : parameters) {
        const std::size_t equals = parameter.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw std::runtime_error("\"" + parameter + "\" is not of the form NAME=VALUE.");
        }
        object[parameter.substr(0, equals)] = parameter.substr(equals + 1);
    }
    return object;
}

Database OpenDatabase(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw std::runtime_error("There is no notification database " + path + ": " +
                                 std::generic_category().message(errno) + ".");
    }
    sqlite3* handle = nullptr;
    const int result = nexnotifyDbOpen(&handle);
    Database database(handle, &nexnotifyDbClose);
    if (result != SQLITE_OK) {
        throw std::runtime_error("Cannot open the notification database " + path + ": " +
                                 sqlite3_errstr(result) + ".");
    }
    return database;
}

}  // namespace

void StoreNotification(const std::string& userName, const std::string& tag,
                       const std::vector<std::string>& parameters) {
    const int uid = FindUid(userName);
    CheckTag(tag);
    const long long now = std::time(nullptr);
    Json::Value content;
    content["title"] = tag;
    content["time"] = static_cast<Json::Int64>(now);
    content["msg"].append(WriteJson(ReadParameters(parameters)));

    const std::string path = Rooted(kDatabasePath);
    const Database database = OpenDatabase(path);
    // Where a statement fails, closing the database rolls the earlier ones back.
    const SqlText sql(
        sqlite3_mprintf("BEGIN IMMEDIATE;"
                        "INSERT INTO message(message_content, timestamp) VALUES(%Q, %lld);"
                        "INSERT INTO nexnotify(uid, message_id) VALUES(%d, last_insert_rowid());"
                        "COMMIT;",
                        WriteJson(content).c_str(), now, uid),
        &sqlite3_free);
    if (!sql) {
        throw std::bad_alloc();
    }
    if (nexnotifyDbRunSql(database.get(), sql.get(), nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error("Cannot write to the notification database " + path + ": " +
                                 sqlite3_errmsg(database.get()) + ".");
    }
}
