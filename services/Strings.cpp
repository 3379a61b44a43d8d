#include <strings.h>

#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "kivocore/file.h"
#include "module/ErrorCodes.h"
#include "module/File.h"
#include "module/JsonFile.h"
#include "module/JsonScan.h"
#include "module/NEXNotifyAPI.h"
#include "module/Paths.h"
#include "notify/NotifyString.h"

namespace KIVO::NEXNotify {

namespace {

/// The tags that the package declares; none when the configuration cannot be read, or does not list them
/// properly.
std::unordered_set<std::string> TagsOfPackage(const std::string& package) {
    const std::string path = Paths::PackageConfiguration();
    std::unordered_set<std::string> tags;
    Json::Value configuration;
    if (!KLIBCFileExist(path.c_str()) || !fromFile(configuration, path)) {
        return tags;
    }
    try {
        if (!configuration.isMember(package) || !configuration[package].isMember("keyArray")) {
            return tags;
        }
        const Json::Value& keys = configuration[package]["keyArray"];
        for (Json::ArrayIndex i = 0; i < keys.size(); ++i) {
            tags.insert(keys[i].asString());
        }
    } catch (const Json::Exception&) {
        // A member of another type: as good as a package that is not listed.
        tags.clear();
    }
    return tags;
}

/// The tags of the category file's events, in their order; nothing when only the JSON library is to judge the
/// text.
std::optional<std::vector<std::string>> ScanTags(std::string_view categories) {
    JsonScanner scanner;
    const auto document = scanner.Scan(categories);
    if (!document) {
        return std::nullopt;
    }
    std::vector<std::string> tags;
    bool hasEvents = false;
    for (const auto [member, events] : *document) {
        if (member != "All") {
            continue;
        }
        simdjson::dom::array list;
        if (std::exchange(hasEvents, true) || events.get(list) != simdjson::SUCCESS) {
            return std::nullopt;
        }
        for (const auto event : list) {
            simdjson::dom::object fields;
            if (event.get(fields) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            bool hasName = false;
            std::string_view tag;
            for (const auto [field, value] : fields) {
                if (field == "name" &&
                    (std::exchange(hasName, true) || value.get(tag) != simdjson::SUCCESS)) {
                    return std::nullopt;
                }
            }
            tags.emplace_back(tag);
        }
    }
    return tags;
}

/// The same of a category file that the JSON library has parsed.
std::vector<std::string> TagsOf(const Json::Value& categories) {
    std::vector<std::string> tags;
    // Null when there is none, which is gone through like an empty list.
    for (const Json::Value& event : categories["All"]) {
        tags.push_back(event["name"].asString());
    }
    return tags;
}

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

/// What the record says of its tag.
Json::Value EntryOf(const NString& record, const char* message) {
    const bool isSystem = record.category == nullptr || strcasecmp(record.category, "system") == 0;
    Json::Value entry(Json::objectValue);
    entry["msg"] = message;
    entry["level"] = record.level != nullptr ? record.level : "NOTIFICATION_INFO";
    entry["title"] = isSystem ? "nexnotify:system_event" : record.category;
    return entry;
}

/// Fills `strings` with an object of all texts that are asked for; leaves it null when there are none. "", or
/// the path of the file that cannot be read.
std::string ReadStrings(const APIRequest& request, Json::Value& strings) {
    const NotifyString record(KIVONotifyStringNew());
    if (!record) {
        throw std::bad_alloc();  // Without a record every look-up would fail, and no texts would pass for the
                                 // answer.
    }
    const std::string mailsPath = Paths::MailsCatalogue(request.GetUILanguage());
    const std::string categoryPath = Paths::CategoryFile(Paths::kEnglish);
    const std::string package = request.GetParam("pkgName", Json::Value()).asString();
    std::unordered_set<std::string> packageTags;
    if (!package.empty()) {
        packageTags = TagsOfPackage(package);
    }

    const auto categoryText = ReadTextFile(categoryPath);
    auto tags = categoryText ? ScanTags(*categoryText) : std::nullopt;
    Json::Value categories;
    if (!categoryText || (!tags && !ParseJsonText(*categoryText, categories))) {
        return categoryPath;
    }
    const File mails(std::fopen(mailsPath.c_str(), "r"));
    if (!mails) {
        return mailsPath;
    }
    if (!tags) {
        tags = TagsOf(categories);
    }

    for (const std::string& tag : *tags) {
        if (tag.empty() || KIVONotifyStringGetByFp(mails.get(), tag.c_str(), record.get()) != 0) {
            continue;
        }
        if (!package.empty() && !packageTags.contains(tag)) {
            continue;
        }
        const char* message = IsEmpty(record->messageText) ? record->altMessageText : record->messageText;
        if (!IsEmpty(message)) {
            strings[tag] = EntryOf(*record, message);
        }
    }
    return "";
}

}  // namespace

void Strings_1_get(APIRequest* request, APIResponse* response) {
    Json::Value strings;
    const std::string unreadableFile = ReadStrings(*request, strings);
    if (unreadableFile.empty()) {
        response->SetSuccess(std::move(strings));
    } else {
        response->SetError(kErrorBadRequest, Json::Value(unreadableFile + " operater failed."));
    }
}

}  // namespace KIVO::NEXNotify
