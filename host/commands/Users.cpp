#include "host/commands/Users.h"

#include <glib.h>
#include <json/value.h>
#include <json/writer.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/Json.h"
#include "platform/kivocore/Replacement.h"
#include "platform/kivocore/Users.h"

namespace KIVO::Host {

namespace {

using Names = std::vector<std::string>;

constexpr int kFirstUid = 1026;
constexpr int kUsersGid = 100;
constexpr std::size_t kLongestName = 64;

/// What the command line says of one user.
struct Arguments {
    std::string name;
    std::string language = "enu";
    bool isAdmin = false;
    Names groups = {};
    Names apps = {};
    Names hiddenTags = {};
    std::optional<int> uid = {};
};

/// Whether it is a file's name, a word of a command line and of a list, and cannot pass for an option or a
/// group.
bool IsName(const std::string& name) {
    return name.size() <= kLongestName && Appliance::IsPlainName(name) &&
           std::string_view("@-.").find(name[0]) == std::string_view::npos &&
           g_utf8_validate_len(name.data(), name.size(), nullptr) &&
           std::ranges::none_of(
               name, [](unsigned char byte) { return byte <= ' ' || byte == 0x7f || byte == ','; });
}

void CheckName(const std::string& name, const char* whose) {
    if (!IsName(name)) {
        throw WrongUse("\"" + name + "\" is no name for a " + whose + ": that has at most " +
                       std::to_string(kLongestName) +
                       " bytes of UTF-8, no white space, comma or slash, and no '@', '-' or '.' in front.");
    }
}

std::string Join(const Names& names, const char* separator) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : separator) + name;
    }
    return text;
}

/// A wrong letter in what is hidden would show it, so that only what some catalogue has is taken.
void CheckAgainstCatalogues(const Arguments& arguments) {
    const Names languages = Appliance::InstalledLanguages();
    if (std::ranges::find(languages, arguments.language) == languages.end()) {
        throw WrongUse("The appliance has no text catalogue of the language \"" + arguments.language +
                       "\"; it has " + (languages.empty() ? "none" : Join(languages, ", ")) + ".");
    }
    const auto isInSome = [&](auto isIn) {
        return std::ranges::any_of(languages, [&](const std::string& language) {
            const auto catalogue = Appliance::LoadCatalogue(Appliance::CataloguePath(language));
            return catalogue && isIn(*catalogue);
        });
    };
    for (const std::string& app : arguments.apps) {
        const auto isOfApp = [&](const auto& entry) {
            return entry.second.appId != nullptr && entry.second.appId == app;
        };
        if (!isInSome(
                [&](const auto& catalogue) { return std::ranges::any_of(catalogue.entries, isOfApp); })) {
            throw WrongUse("No text catalogue has a text of the application \"" + app + "\".");
        }
    }
    for (const std::string& tag : arguments.hiddenTags) {
        if (tag.find(':') == std::string::npos &&
            !isInSome([&](const auto& catalogue) { return catalogue.entries.contains(tag); })) {
            throw WrongUse("No text catalogue has the tag \"" + tag + "\".");
        }
    }
}

/// The users file's document. Throws std::runtime_error when it is none.
Json::Value ReadDocument(const std::string& path) {
    const auto content = Appliance::ReadFile(path);
    if (!content) {
        const char* const advice = errno == ENOENT ? " Make the appliance with: webapi-host init" : "";
        throw std::runtime_error("Cannot read " + path + ": " + std::generic_category().message(errno) + "." +
                                 advice);
    }
    return ParseUsersFile(*content, path);
}

std::string MakeToken() {
    std::array<unsigned char, 24> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != ssize(bytes)) {
        throw std::system_error(errno, std::generic_category(), "The system gives no random bytes");
    }
    const std::unique_ptr<char, decltype(&g_free)> text(g_base64_encode(bytes.data(), bytes.size()), &g_free);
    std::string token = text.get();
    std::ranges::replace(token, '+', '-');
    std::ranges::replace(token, '/', '_');
    return token;
}

/// Changes the users file: `change` gets the object of its users and the whole document.
template <typename Change>
void ChangeUsers(Change change) {
    const std::string path = Appliance::Rooted(Appliance::kUsersPath);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        ReadDocument(path);  // says why
    }
    Appliance::Replacement replacement(path);
    Json::Value document = ReadDocument(path);
    change(document["users"], document);

    Json::StreamWriterBuilder writer;
    writer["indentation"] = "    ";
    writer["emitUTF8"] = true;
    writer["enableYAMLCompatibility"] = true;  // no space in front of a colon
    replacement.Write(Json::writeString(writer, document) + "\n");
    // As it is now: whoever had the lock before may have changed that too.
    if (stat(path.c_str(), &status) == 0) {
        replacement.SetOwner(status.st_uid, status.st_gid);
    }
    replacement.Commit(status.st_mode & ACCESSPERMS);
}

Json::Value& Find(Json::Value& users, const std::string& name) {
    if (!users.isMember(name)) {
        throw WrongUse("The appliance has no user " + name + ".");
    }
    return users[name];
}

Json::Value ToList(const Names& names) {
    Json::Value list(Json::arrayValue);
    for (const std::string& name : std::set(names.begin(), names.end())) {
        list.append(name);
    }
    return list;
}

/// One that no user has or, as far as the document knows, had: a user's notifications go with the uid, and
/// outlive the user.
Json::Int64 NextUid(const Json::Value& users, const Json::Value& document) {
    Json::Int64 next = kFirstUid;
    if (document["nextUid"].isInt64()) {
        next = std::max(next, document["nextUid"].asInt64());
    }
    for (const Json::Value& user : users) {
        if (user.isObject() && user["uid"].isInt()) {
            next = std::max(next, user["uid"].asInt64() + 1);
        }
    }
    return next;
}

[[nodiscard]] int Add(Arguments arguments) {
    CheckName(arguments.name, "user");
    std::ranges::for_each(arguments.groups, [](const auto& group) { CheckName(group, "group"); });
    CheckAgainstCatalogues(arguments);
    arguments.groups.emplace_back("users");
    if (arguments.isAdmin) {
        arguments.groups.emplace_back("administrators");
    }
    Json::Value user;
    ChangeUsers([&](Json::Value& users, Json::Value& document) {
        if (users.isMember(arguments.name)) {
            throw WrongUse("There is a user " + arguments.name + " already.");
        }
        const Json::Int64 next = NextUid(users, document);
        const Json::Int64 uid = arguments.uid ? *arguments.uid : next;
        for (const std::string& name : users.getMemberNames()) {
            if (users[name].isObject() && users[name]["uid"] == Json::Value(uid)) {
                throw WrongUse("The uid " + std::to_string(uid) + " is that of the user " + name + ".");
            }
        }
        if (uid > std::numeric_limits<int>::max()) {
            throw WrongUse("The next uid would be too large: choose a free one with --uid.");
        }
        user["uid"] = uid;
        user["gid"] = kUsersGid;
        user["language"] = arguments.language;
        user["groups"] = ToList(arguments.groups);
        user["apps"] = ToList(arguments.apps);
        user["hiddenTags"] = ToList(arguments.hiddenTags);
        user["token"] = MakeToken();
        users[arguments.name] = user;
        document["nextUid"] = std::max(next, uid + 1);
    });
    std::cout << "Added " << arguments.name << " (uid " << user["uid"].asInt()
              << "). A link that signs in: webapi-host sign-in " << arguments.name << std::endl;
    return EXIT_SUCCESS;
}

[[nodiscard]] int Remove(const std::string& name) {
    ChangeUsers([&](Json::Value& users, Json::Value& document) {
        Find(users, name);
        document["nextUid"] = NextUid(users, document);
        users.removeMember(name);
    });
    return EXIT_SUCCESS;
}

[[nodiscard]] int RenewToken(const std::string& name) {
    const std::string token = MakeToken();
    ChangeUsers([&](Json::Value& users, const Json::Value&) {
        Json::Value& user = Find(users, name);
        if (!user.isObject()) {
            throw std::runtime_error("The entry of the user " + name + " is malformed.");
        }
        user["token"] = token;
    });
    std::cout << token << std::endl;
    return EXIT_SUCCESS;
}

[[nodiscard]] int List() {
    const Json::Value document = ReadDocument(Appliance::Rooted(Appliance::kUsersPath));
    std::vector<Names> rows = {{"NAME", "UID", "LANGUAGE", "GROUPS", "APPLICATIONS", "HIDDEN-TAGS"}};
    // What passes for no user is left out here too, and the log says so.
    const auto known = Appliance::LoadUsers();
    for (const std::string& name : document["users"].getMemberNames()) {
        const auto user = known->find(name);
        if (user == known->end()) {
            continue;
        }
        rows.push_back({name, std::to_string(user->second.uid), user->second.language});
        for (const char* const list : {"groups", "apps", "hiddenTags"}) {
            Names names;
            for (const Json::Value& element : document["users"][name][list]) {
                names.push_back(element.asString());
            }
            rows.back().push_back(names.empty() ? "-" : Join(names, ","));
        }
    }
    std::array<long, 6> widths = {};
    const auto width = [](const std::string& cell) { return g_utf8_strlen(cell.c_str(), -1); };
    for (const Names& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width(row[i]));
        }
    }
    for (const Names& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            line.append(i + 1 < row.size() ? static_cast<std::size_t>(widths[i] - width(row[i]) + 2) : 0,
                        ' ');
        }
        std::cout << line << '\n';
    }
    return EXIT_SUCCESS;
}

}  // namespace

Json::Value ParseUsersFile(const std::string& content, const std::string& path) {
    Json::Value document;
    std::string error = "It has no object \"users\".";
    if (!Appliance::ParseJson(content, document, &error) || !document.isObject() ||
        !document["users"].isObject()) {
        throw std::runtime_error(path + " is no users file: " + error);
    }
    return document;
}

Command AddUsersCommand(CLI::App& app) {
    CLI::App& users = *app.add_subcommand("users", "Adds, removes and lists the appliance's users");
    users.require_subcommand(1);
    const auto arguments = std::make_shared<Arguments>();
    const auto addVerb = [&](const char* verb, const char* does) {
        CLI::App& command = *users.add_subcommand(verb, does);
        command.add_option("name", arguments->name, "The user's name")->type_name("")->required();
        return &command;
    };
    CLI::App* const add = addVerb("add", "Adds a user, who can then sign in");
    add->add_flag("--administrator", arguments->isAdmin, "A member of the group administrators");
    add->add_option("--language", arguments->language, "The language of the user's desktop")
        ->type_name("LLL")
        ->capture_default_str();
    const auto addList = [&](const char* name, Names& names, const char* type, const char* what) {
        add->add_option(name, names, std::string(what) + "; may be repeated")
            ->type_name(type)
            ->allow_extra_args(false);
    };
    addList("--group", arguments->groups, "GROUP", "A group of the user's, besides users");
    addList("--app", arguments->apps, "APP", "An application that the user may use");
    addList("--hidden-tag", arguments->hiddenTags, "TAG", "A tag of notifications that the user may not see");
    add->add_option("--uid", arguments->uid,
                    "The uid, to which a user's notifications belong; one that no one had when absent")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->type_name("N");
    CLI::App* const remove = addVerb("remove", "Removes a user, who is signed out at once");
    CLI::App* const token =
        addVerb("token", "Gives a user a new token and prints it; the earlier one, and its links, end");
    users.add_subcommand("list", "Lists the users");
    return {&users, [=] {
                if (add->parsed()) {
                    return Add(*arguments);
                }
                if (remove->parsed()) {
                    return Remove(arguments->name);
                }
                return token->parsed() ? RenewToken(arguments->name) : List();
            }};
}

}  // namespace KIVO::Host
