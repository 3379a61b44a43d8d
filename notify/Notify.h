#pragma once

#include <json/value.h>

#include <cstddef>
#include <functional>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_set>

#include "module/NEXNotifyAPI.h"

namespace KIVO::NEXNotify {

/// Lets texts be looked up by a view of them.
struct HashText {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

/// The tags of the notifications that are enabled on the appliance.
using EnabledTags = std::pmr::unordered_set<std::pmr::string, HashText, std::equal_to<>>;

/// Answers one request to method "notify": its parameter "action" chooses what is done for the login user.
/// Every operation returns 0 or an error code and leaves its answer in m_result. An exception leaves nothing
/// held.
class Notify : public NEXNotifyAPIBase {
public:
    Notify(APIRequest* request, APIResponse* response);
    ~Notify() override = default;

    /// Reads the parameters. 117 with an error object when one cannot be converted: the fields read before it
    /// keep their values.
    [[nodiscard]] int ParseParams() override;

    /// Runs the action. 101 with an error object when there is none of that name, 117 when the identity that
    /// it needs cannot be raised.
    [[nodiscard]] int Execute() override;

    /// Callback of the query of stored notifications: parses the row's text and appends the value (null for
    /// NULL) to the Json::Value array at `array`. 0 to go on, 1 to stop the query at a text that is not JSON.
    /// Throws when memory is short, so SQLite must not be its direct caller.
    [[nodiscard]] static int readDbToJson(void* array, int columnCount, char** columnTexts,
                                          char** columnNames);

    /// The enabled tags: the section names of the English catalogue, none when it cannot be read. The set
    /// takes its memory from the resource.
    EnabledTags getEnabledNotificationList(std::pmr::memory_resource& memory) const;

    /// Whether the login user may see the notification.
    bool HasPrivilege(const Json::Value& notification) const;

private:
    // Action "load" (Load.cpp).
    [[nodiscard]] int ExecuteLoad();

    // Action "apply" (NotificationStore.cpp).
    [[nodiscard]] int ExecuteApply();

    // Action "loadHaveNtAppList" (category/).
    [[nodiscard]] int ExecuteLoadHaveNtAppList();
    Json::Value GetNotifyCategorySettings() const;
    void UpdateNotifyCategorySettingsFromUserSetting(Json::Value& categories) const;
    void CheckNotifyCategoryPrivilege(Json::Value& categories) const;
    static std::string GetNotifyCategoryFile(const std::string& language);

    std::string m_action;
    std::string m_clean;
    int m_offset = 0;
    int m_limit = 0;
    bool m_all = false;
    std::string m_userName;
};

}  // namespace KIVO::NEXNotify
