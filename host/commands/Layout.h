#pragma once

#include <filesystem>
#include <string_view>

namespace KIVO::Host {

/// The folders of an appliance. They belong to the superuser, and everyone may enter them.
inline constexpr std::string_view kFolders[] = {
    "/etc/kivo/settings/groups",
    "/etc/kivo/settings/users",
    "/usr/kivo/bin",
    "/usr/kivo/etc/notification",
    "/usr/local/share/notification",
    "/var/cache/texts",
    "/var/lib/kivo",
    "/var/log/kivo",
};

inline constexpr std::string_view kToolPath = "/usr/kivo/bin/notification_utils";

/// The folder whose bin/ holds this program, with what belongs to it beside.
inline std::filesystem::path InstallPrefix() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}

}  // namespace KIVO::Host
