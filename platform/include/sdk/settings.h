#pragma once

#include <json/value.h>

#include <string>

#include "kivocore/Export.h"

/// The settings documents that the desktop stores per user and per group. Safe on any thread.
class KIVO_PUBLIC KivoSettings {
public:
    explicit KivoSettings(const std::string& userName);

    /// Fills `settings` with the user's stored document. False, and `settings` unchanged, when there is none
    /// that can be read.
    [[nodiscard]] bool loadUserJsonSettings(Json::Value& settings);

    /// Stores the time of the last change to the group's settings, in seconds since 1970. False, and `mtime`
    /// unchanged, when the group has none.
    [[nodiscard]] bool getGrpJsonSettingMtime(const char* groupName, unsigned long long& mtime);

private:
    std::string m_userName;
};
