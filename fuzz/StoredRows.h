#pragma once

#include <optional>
#include <string>
#include <vector>

namespace KIVO::Fuzz {

/// The texts that the notification database of a target holds for its only user, oldest first; nothing for
/// NULL. Such a target knows the tags of the platform's functions in StoredRows.cpp, and reads no file for
/// them.
std::vector<std::optional<std::string>>& StoredRows();

/// What those functions answer.
bool IsEnabled(const std::string& tag);
bool IsAllowed(const std::string& tag);

}  // namespace KIVO::Fuzz
