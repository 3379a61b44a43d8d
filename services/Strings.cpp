#include <strings.h>

#include <new>
#include <string>
#include <unordered_set>
#include <utility>

#include "kivocore/file.h"
#include "module/ErrorCodes.h"
#include "module/File.h"
#include "module/JsonFile.h"
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

    Json::Value categories;
    if (!fromFile(categories, categoryPath)) {
        return categoryPath;
    }
    const File mails(std::fopen(mailsPath.c_str(), "r"));
    if (!mails) {
        return mailsPath;
    }

    // Null when there is none, which is gone through like an empty list.
    for (const Json::Value& event : std::as_const(categories)["All"]) {
        const std::string tag = event["name"].asString();
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
