// Action "loadHaveNtAppList": the notification categories that the login user may see, titled in the user's
// language, with the user's choice for each.

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "category/FirstMatch.h"
#include "kivocore/rights.h"
#include "module/ErrorCodes.h"
#include "module/JsonFile.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "module/SourceLines.h"
#include "notify/Notify.h"
#include "sdk/settings.h"

namespace KIVO::NEXNotify {

namespace {

constexpr char kSettingsApplication[] = "KIVO.ZUI.NEXNotify.Setting.Application";
constexpr char kStoredChoices[] = "notifcationSettings";

/// The member of the object (or of null, which has none), or null.
const Json::Value* Member(const Json::Value& object, std::string_view name) {
    return object.find(name.data(), name.data() + name.size());
}

const Json::Value& MemberOr(const Json::Value& object, std::string_view name, const Json::Value& fallback) {
    const Json::Value* member = Member(object, name);
    return member != nullptr ? *member : fallback;
}

bool IsEmptyText(const Json::Value& value) { return value.asString().empty(); }

/// The categories of the events in order of first appearance, each with its first event's application.
Json::Value CategoriesOf(const Json::Value& events, const Json::Value& englishEvents) {
    const Json::Value emptyText("");
    FirstMatch<1> english(englishEvents, {"name"});
    std::unordered_set<JsonKey<1>, HashJsonKey, EqualJsonKeys> listed;
    Json::Value categories(Json::arrayValue);
    for (const Json::Value& event : events) {
        const Json::Value& title = MemberOr(event, "group", emptyText);
        const Json::Value* englishEvent = english.Find({&MemberOr(event, "name", emptyText)});
        if (englishEvent == nullptr) {
            continue;
        }
        const Json::Value& englishTitle = MemberOr(*englishEvent, "group", emptyText);
        const Json::Value& app = MemberOr(*englishEvent, "appid", emptyText);
        const bool hasApp = !IsEmptyText(app);
        if (IsEmptyText(title) || IsEmptyText(englishTitle) || !listed.insert({&englishTitle}).second) {
            continue;
        }
        Json::Value row(Json::objectValue);
        row["category"] = title;
        row["category_enu"] = englishTitle;
        row["app"] = app;
        row["appids"] = Json::Value(Json::arrayValue);
        if (hasApp) {
            row["appids"].append(app);
        }
        row["nexnotify"] = "on";
        categories.append(std::move(row));
    }
    return categories;
}

}  // namespace

int Notify::ExecuteLoadHaveNtAppList() {
    m_result = GetNotifyCategorySettings();
    return kSuccess;
}

Json::Value Notify::GetNotifyCategorySettings() const {
    Json::Value english;
    Json::Value translated;
    const Json::Value* document = &english;
    bool isLoaded = fromFile(english, GetNotifyCategoryFile(Paths::kEnglish));
    if (isLoaded) {
        const std::string language = m_request->GetUILanguage();
        if (language != Paths::kEnglish) {  // else it is the same file, which need not be read twice
            document = &translated;
            isLoaded = fromFile(translated, GetNotifyCategoryFile(language));
        }
    }
    if (!isLoaded) {
        LOG_FAILURE_AT(SourceLines::kCategoryFileNotParsed, "pasre json file failed. %s",
                       std::strerror(errno));
        return Json::Value(Json::arrayValue);
    }
    const Json::Value noEvents(Json::arrayValue);
    Json::Value categories =
        CategoriesOf(MemberOr(*document, "All", noEvents), MemberOr(english, "All", noEvents));
    UpdateNotifyCategorySettingsFromUserSetting(categories);
    CheckNotifyCategoryPrivilege(categories);
    Json::Value settings(Json::objectValue);
    settings["total"] = categories.size();
    settings["items"] = std::move(categories);
    return settings;
}

void Notify::UpdateNotifyCategorySettingsFromUserSetting(Json::Value& categories) const {
    Json::Value document;
    KivoSettings(m_userName).loadUserJsonSettings(document);
    const Json::Value* application = Member(document, kSettingsApplication);
    const Json::Value* storedChoices =
        application != nullptr ? Member(*application, kStoredChoices) : nullptr;
    if (storedChoices == nullptr) {
        return;
    }
    FirstMatch<2> choices(*storedChoices, {"category_enu", "app"});
    for (Json::Value& row : categories) {
        if (const Json::Value* choice = choices.Find({&row["category_enu"], &row["app"]})) {
            row["nexnotify"] = (*choice)["nexnotify"];
        }
    }
}

void Notify::CheckNotifyCategoryPrivilege(Json::Value& categories) const {
    std::optional<bool> isAdmin;
    std::unordered_map<std::string, bool>
        privileges;  // Many categories share an application: it is asked for once.
    const auto mayUse = [&](const std::string& appId) {
        if (!isAdmin) {
            isAdmin = KLIBGroupIsAdminGroupMem(m_userName.c_str(), 0) != 0;
        }
        if (*isAdmin) {
            return true;
        }
        const auto [privilege, isNew] = privileges.try_emplace(appId);
        if (isNew) {
            privilege->second = KLIBAppPrivUserHas(m_userName.c_str(), appId.c_str(), "ignore") != 0;
        }
        return privilege->second;
    };
    Json::Value retained(Json::arrayValue);
    for (Json::Value& row : categories) {
        bool isRetained = row["appids"].empty();
        for (const Json::Value& appId : row["appids"]) {
            isRetained = isRetained || mayUse(appId.asString());
        }
        if (isRetained) {
            retained.append(std::move(row));
        }
    }
    categories = std::move(retained);
}

}  // namespace KIVO::NEXNotify
