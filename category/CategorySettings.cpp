// Action "loadHaveNtAppList": the notification categories that the login user may see, titled in the user's
// language, with the user's choice for each.

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "category/CategoryDocument.h"
#include "category/FirstMatch.h"
#include "kivocore/rights.h"
#include "module/ErrorCodes.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "module/SourceLines.h"
#include "notify/Notify.h"
#include "sdk/settings.h"

namespace KIVO::NEXNotify {

namespace {

constexpr char kSettingsApplication[] = "KIVO.ZUI.NEXNotify.Setting.Application";
constexpr char kStoredChoices[] = "notifcationSettings";

// A category's row. The JSON library does not copy such names.
const Json::StaticString kTitle("category");
const Json::StaticString kEnglishTitle("category_enu");
const Json::StaticString kApp("app");
const Json::StaticString kAppIds("appids");
const Json::StaticString kChoice("nexnotify");
const Json::StaticString kOn("on");

/// The member of the object (or of null, which has none), or null.
const Json::Value* Member(const Json::Value& object, std::string_view name) {
    return object.find(name.data(), name.data() + name.size());
}

const Json::Value& MemberOr(const Json::Value& object, std::string_view name, const Json::Value& fallback) {
    const Json::Value* member = Member(object, name);
    return member != nullptr ? *member : fallback;
}

bool IsEmptyText(const Json::Value& value) { return value.asString().empty(); }

Json::Value RowOf(Json::Value title, Json::Value englishTitle, Json::Value app, bool hasApp) {
    Json::Value appIds(Json::arrayValue);
    if (hasApp) {
        appIds.append(app);
    }
    Json::Value row(Json::objectValue);
    row[kTitle] = std::move(title);
    row[kEnglishTitle] = std::move(englishTitle);
    row[kApp] = std::move(app);
    row[kAppIds] = std::move(appIds);
    row[kChoice] = kOn;
    return row;
}

Json::Value TextValue(std::string_view text) { return {text.data(), text.data() + text.size()}; }

/// The categories of the events in order of first appearance, each with its first event's application.
Json::Value CategoriesOf(const std::vector<CategoryEvent>& events,
                         const std::vector<CategoryEvent>& englishEvents) {
    std::unordered_map<std::string_view, const CategoryEvent*> english;
    english.reserve(englishEvents.size());
    for (const CategoryEvent& event : englishEvents) {
        if (event.name) {
            english.try_emplace(*event.name, &event);
        }
    }
    std::unordered_set<std::string_view> listed;
    Json::Value categories(Json::arrayValue);
    for (const CategoryEvent& event : events) {
        const auto found = english.find(event.name.value_or(""));
        if (found == english.end() || event.group.empty() || found->second->group.empty() ||
            !listed.insert(found->second->group).second) {
            continue;
        }
        const auto& [name, englishTitle, app] = *found->second;
        categories.append(
            RowOf(TextValue(event.group), TextValue(englishTitle), TextValue(app), !app.empty()));
    }
    return categories;
}

/// The same of files whose members may be of any type: what the JSON library makes of them holds.
Json::Value CategoriesOf(const Json::Value& document, const Json::Value& englishDocument) {
    const Json::Value noEvents(Json::arrayValue);
    const Json::Value emptyText("");
    FirstMatch<1> english(MemberOr(englishDocument, "All", noEvents), {"name"});
    std::unordered_set<JsonKey<1>, HashJsonKey, EqualJsonKeys> listed;
    Json::Value categories(Json::arrayValue);
    for (const Json::Value& event : MemberOr(document, "All", noEvents)) {
        const Json::Value& title = MemberOr(event, "group", emptyText);
        const Json::Value* englishEvent = english.Find({&MemberOr(event, "name", emptyText)});
        if (englishEvent == nullptr) {
            continue;
        }
        const Json::Value& englishTitle = MemberOr(*englishEvent, "group", emptyText);
        const Json::Value& app = MemberOr(*englishEvent, "appid", emptyText);
        const bool hasApp = !IsEmptyText(app);
        if (!IsEmptyText(title) && !IsEmptyText(englishTitle) && listed.insert({&englishTitle}).second) {
            categories.append(RowOf(title, englishTitle, app, hasApp));
        }
    }
    return categories;
}

}  // namespace

int Notify::ExecuteLoadHaveNtAppList() {
    m_result = GetNotifyCategorySettings();
    return kSuccess;
}

Json::Value Notify::GetNotifyCategorySettings() const {
    CategoryDocument english;
    CategoryDocument translated;
    CategoryDocument* titled = &english;
    bool isLoaded = english.Load(GetNotifyCategoryFile(Paths::kEnglish));
    if (isLoaded) {
        const std::string language = m_request->GetUILanguage();
        if (language != Paths::kEnglish) {  // else it is the same file, which need not be read twice
            titled = &translated;
            isLoaded = translated.Load(GetNotifyCategoryFile(language));
        }
    }
    if (!isLoaded) {
        LOG_FAILURE_AT(SourceLines::kCategoryFileNotParsed, "pasre json file failed. %s",
                       std::strerror(errno));
        return Json::Value(Json::arrayValue);
    }
    Json::Value categories = titled->Events() && english.Events()
                                 ? CategoriesOf(*titled->Events(), *english.Events())
                                 : CategoriesOf(titled->Tree(), english.Tree());
    UpdateNotifyCategorySettingsFromUserSetting(categories);
    CheckNotifyCategoryPrivilege(categories);
    Json::Value settings(Json::objectValue);
    settings["total"] = categories.size();
    settings["items"] = std::move(categories);
    return settings;
}

void Notify::UpdateNotifyCategorySettingsFromUserSetting(Json::Value& categories) const {
    Json::Value document;
    // One that cannot be loaded is like one without choices.
    static_cast<void>(KivoSettings(m_userName).loadUserJsonSettings(document));
    const Json::Value* application = Member(document, kSettingsApplication);
    const Json::Value* storedChoices =
        application != nullptr ? Member(*application, kStoredChoices) : nullptr;
    if (storedChoices == nullptr) {
        return;
    }
    FirstMatch<2> choices(*storedChoices, {kEnglishTitle, kApp});
    for (Json::Value& row : categories) {
        if (const Json::Value* choice = choices.Find({&row[kEnglishTitle], &row[kApp]})) {
            row[kChoice] = (*choice)[kChoice];
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
    Json::ArrayIndex retained = 0;
    for (Json::ArrayIndex i = 0; i < categories.size(); ++i) {
        const Json::Value& appIds = categories[i][kAppIds];
        bool isRetained = appIds.empty();
        for (const Json::Value& appId : appIds) {
            isRetained = isRetained || mayUse(appId.asString());
        }
        if (!isRetained) {
            continue;
        }
        if (retained != i) {
            categories[retained] = std::move(categories[i]);
        }
        ++retained;
    }
    categories.resize(retained);
}

}  // namespace KIVO::NEXNotify
