#include <strings.h>

#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "category/CategoryDocument.h"
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

// The JSON library does not copy such names and texts.
const Json::StaticString kMessage("msg");
const Json::StaticString kLevel("level");
const Json::StaticString kTitle("title");
const Json::StaticString kInfo("NOTIFICATION_INFO");
const Json::StaticString kSystemEvent("nexnotify:system_event");

constexpr char kUnreadable[] = " operater failed.";  // behind the path

using Tags = std::unordered_set<std::string>;

/// The tags that the configuration lists for the package; nothing when only the JSON library is to judge it.
[[nodiscard]] std::optional<Tags> ScanTags(std::string_view configuration, const std::string& package) {
    JsonScanner scanner;
    const auto packages = scanner.Scan(configuration);
    std::optional<simdjson::dom::object> entry;
    std::optional<simdjson::dom::array> keys;
    if (!packages || !FindOnly(*packages, package, entry) || (entry && !FindOnly(*entry, "keyArray", keys))) {
        return std::nullopt;
    }
    Tags tags;
    if (keys) {
        tags.reserve(keys->size());
        for (const auto key : *keys) {
            std::string_view tag;
            if (key.get(tag) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            tags.emplace(tag);
        }
    }
    return tags;
}

/// The same of a configuration of any form: none when it does not list them properly.
Tags ParseTags(std::string_view configuration, const std::string& package) {
    Json::Value packages;
    Tags tags;
    if (!ParseJsonText(configuration, packages)) {
        return tags;
    }
    try {
        if (packages.isMember(package) && packages[package].isMember("keyArray")) {
            const Json::Value& keys = packages[package]["keyArray"];
            for (Json::ArrayIndex i = 0; i < keys.size(); ++i) {
                tags.insert(keys[i].asString());
            }
        }
    } catch (const Json::LogicError&) {
        // A member of another type: as good as a package that is not listed.
        tags.clear();
    }
    return tags;
}

/// The tags that the package declares; none when the configuration cannot be read.
Tags TagsOfPackage(const std::string& package) {
    const std::string path = Paths::PackageConfiguration();
    if (!KLIBCFileExist(path.c_str())) {
        return {};
    }
    const auto configuration = ReadTextFile(path);
    if (!configuration) {
        return {};
    }
    auto tags = ScanTags(*configuration, package);
    return tags ? std::move(*tags) : ParseTags(*configuration, package);
}

/// Calls `visit` with the tag of each of the category file's events, in their order.
template <class Visit>
void ForEachTag(CategoryDocument& categories, const Visit& visit) {
    std::string tag;
    if (const auto& events = categories.Events()) {
        for (const CategoryEvent& event : *events) {
            visit(tag.assign(event.name.value_or("")));
        }
        return;
    }
    // Null when there is none, which is gone through like an empty list.
    for (const Json::Value& event : categories.Tree()["All"]) {
        visit(tag = event["name"].asString());
    }
}

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

/// What the record says of its tag.
Json::Value EntryOf(const NString& record, const char* message) {
    const bool isSystem = record.category == nullptr || strcasecmp(record.category, "system") == 0;
    Json::Value entry(Json::objectValue);
    entry[kMessage] = message;
    entry[kLevel] = record.level != nullptr ? Json::Value(record.level) : kInfo;
    entry[kTitle] = isSystem ? kSystemEvent : Json::Value(record.category);
    return entry;
}

/// Makes `answer` an object of all texts that are asked for; leaves it null when there are none. False when a
/// file cannot be read: the answer then says which.
[[nodiscard]] bool ReadStrings(APIRequest& request, Json::Value& answer) {
    const NotifyString record(KIVONotifyStringNew());
    if (!record) {
        throw std::bad_alloc();  // Without a record every look-up would fail, and no texts would pass for the
                                 // answer.
    }
    std::string mailsPath = Paths::MailsCatalogue(request.GetUILanguage());
    std::string categoryPath = Paths::CategoryFile(Paths::kEnglish);
    const std::string package = request.GetParam("pkgName", Json::Value()).asString();
    Tags packageTags;
    if (!package.empty()) {
        packageTags = TagsOfPackage(package);
    }

    CategoryDocument categories;
    if (!categories.Load(categoryPath)) {
        answer = categoryPath + kUnreadable;
        return false;
    }
    const File mails = OpenToRead(mailsPath);
    if (!mails) {
        answer = mailsPath + kUnreadable;
        return false;
    }
    ForEachTag(categories, [&](const std::string& tag) {
        if (tag.empty() || (!package.empty() && !packageTags.contains(tag)) ||
            KIVONotifyStringGetByFp(mails.get(), tag.c_str(), record.get()) != 0) {
            return;
        }
        const char* message = IsEmpty(record->messageText) ? record->altMessageText : record->messageText;
        if (!IsEmpty(message)) {
            answer[tag] = EntryOf(*record, message);
        }
    });
    return true;
}

}  // namespace

void Strings_1_get(APIRequest* request, APIResponse* response) {
    Json::Value answer;
    if (ReadStrings(*request, answer)) {
        response->SetSuccess(answer);
    } else {
        response->SetError(kErrorBadRequest, answer);
    }
}

}  // namespace KIVO::NEXNotify
