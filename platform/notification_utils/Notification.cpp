#include "platform/notification_utils/Notification.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string_view>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/Json.h"
#include "platform/notification_utils/Database.h"

namespace {

using namespace KIVO::Appliance;

constexpr char kGroupMark = '@';

/// One with a ':' is known, and its own text, without any catalogue.
bool IsSystemEvent(const std::string& tag) { return tag.find(':') != std::string::npos; }

/// Throws unless some language's catalogue has the tag.
void CheckTag(const std::string& tag) {
    if (IsSystemEvent(tag)) {
        return;
    }
    bool hasCatalogue = false;
    for (const std::string& language : InstalledLanguages()) {
        const auto catalogue = LoadCatalogue(CataloguePath(language));
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

std::map<std::string, User> FindRecipients(const std::string& name) {
    const auto users = LoadUsers();
    const bool isGroup = name.starts_with(kGroupMark);
    std::map<std::string, User> recipients;
    for (const auto& [userName, user] : *users) {
        if (isGroup ? user.groups.contains(name.substr(1)) : userName == name) {
            recipients.emplace(userName, user);
        }
    }
    if (recipients.empty()) {
        throw std::runtime_error(
            (isGroup ? "No user is in the group \"" + name.substr(1) : "There is no user \"" + name) +
            "\" in " + Rooted(kUsersPath) + ".");
    }
    return recipients;
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

std::string Listed(std::string list, const std::string& element) {
    return list.append(list.empty() ? "" : ", ").append(element);
}

/// What fills the placeholders of texts, and which of them it did and could not.
struct Filling {
    const Json::Value& parameters;
    Json::Value unused = parameters;
    std::string missing = {};

    /// The text as the page fills it: in one pass, and a placeholder without a value stays as it is.
    std::string Fill(std::string_view text) {
        std::string filled;
        for (const auto& [piece, isPlaceholder] : PiecesOf(text)) {
            const std::string name(isPlaceholder ? piece.substr(1, piece.size() - 2) : "");
            if (isPlaceholder && parameters.isMember(name)) {
                unused.removeMember(name);
                filled += parameters[name].asString();
                continue;
            }
            if (isPlaceholder && missing.find(piece) == std::string::npos) {
                missing = Listed(missing, std::string(piece));
            }
            filled += piece;
        }
        return filled;
    }
};

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

/// Writes what the page shows in the language. What is wrong with it; "" when nothing is.
std::string Show(const Notification& notification, const std::string& language) {
    const auto catalogue = LoadCatalogue(CataloguePath(language));
    const CatalogueEntry none{};
    const CatalogueEntry* entry = &none;
    if (catalogue && catalogue->entries.contains(notification.tag)) {
        entry = &catalogue->entries.at(notification.tag);
    }
    const char* const text = IsEmpty(entry->message) ? entry->altMessage : entry->message;
    if (IsEmpty(text)) {
        std::printf("%s\n", notification.tag.c_str());
        return IsSystemEvent(notification.tag) ? "" : "no text";
    }
    Filling filling{notification.parameters};
    std::printf("%s\n", filling.Fill(text).c_str());
    filling.Fill(IsEmpty(entry->mail) ? "" : entry->mail);
    std::string wrong;
    if (!filling.missing.empty()) {
        wrong = "no value for " + filling.missing;
    }
    for (const std::string& name : filling.unused.getMemberNames()) {
        wrong = Listed(wrong, "no placeholder {" + name + "}");
    }
    return wrong;
}

}  // namespace

Notification ReadNotification(const std::vector<std::string>& words) {
    Notification notification{FindRecipients(words[0]), words[1],
                              ReadParameters({words.begin() + 2, words.end()})};
    CheckTag(notification.tag);
    return notification;
}

void StoreNotification(const Notification& notification) {
    const long long now = std::time(nullptr);
    Json::Value content;
    content["title"] = notification.tag;
    content["time"] = static_cast<Json::Int64>(now);
    content["msg"].append(WriteJson(notification.parameters));
    Json::Value uids(Json::arrayValue);
    for (const auto& [name, user] : notification.recipients) {
        uids.append(user.uid);
    }
    NotificationDatabase().Run(
        SqlText("BEGIN IMMEDIATE;"
                "INSERT INTO message(message_content, timestamp) VALUES(%Q, %lld);"
                "INSERT INTO nexnotify(uid, message_id)"
                " SELECT DISTINCT value, last_insert_rowid() FROM json_each(%Q);"
                "COMMIT;",
                WriteJson(content).c_str(), now, WriteJson(uids).c_str()));
}

void ShowNotification(const Notification& notification) {
    std::map<std::string, std::string> namesByLanguage;
    for (const auto& [name, user] : notification.recipients) {
        std::string& names = namesByLanguage[user.language];
        names = Listed(names, name + (user.hiddenTags.contains(notification.tag) ? " [hidden]" : ""));
    }
    std::string wrong;
    for (const auto& [language, names] : namesByLanguage) {
        std::printf("%s (%s):\n", names.c_str(), language.c_str());
        if (const std::string reason = Show(notification, language); !reason.empty()) {
            wrong += (wrong.empty() ? "" : "; ") + ("in " + language + " " + reason);
        }
    }
    std::fflush(stdout);
    if (!wrong.empty()) {
        throw std::runtime_error("The notification has gaps: " + wrong + ".");
    }
}
