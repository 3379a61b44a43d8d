#include "sdk/settings.h"

#include <chrono>
#include <optional>

#include "platform/kivocore/ApplianceRoot.h"
#include "platform/kivocore/FileContent.h"
#include "platform/kivocore/Json.h"

using namespace KIVO::Appliance;

KivoSettings::KivoSettings(const std::string& userName) : m_userName(userName) {}

bool KivoSettings::loadUserJsonSettings(Json::Value& settings) {
    if (!IsPlainName(m_userName)) {
        return false;
    }
    const auto content = ReadFile(Rooted("/etc/kivo/settings/users/" + m_userName + ".json"));
    return content && ParseJson(*content, settings);
}

bool KivoSettings::getGrpJsonSettingMtime(const char* groupName, unsigned long long& mtime) {
    if (groupName == nullptr || !IsPlainName(groupName)) {
        return false;
    }
    const auto identity =
        IdentifyFile(Rooted("/etc/kivo/settings/groups/" + std::string(groupName) + ".json"));
    if (!identity || identity->mtimeNanoseconds < 0) {
        return false;
    }
    const std::chrono::nanoseconds sinceEpoch(identity->mtimeNanoseconds);
    mtime = static_cast<unsigned long long>(std::chrono::floor<std::chrono::seconds>(sinceEpoch).count());
    return true;
}
