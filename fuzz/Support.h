#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"
#include "webapi/APIResponse.h"

#define EXPORTED __attribute__((visibility("default")))

namespace KIVO::Fuzz {

/// What each target does with one input.
void Try(const std::string& input);

/// The process's appliance: two languages without texts, an empty database, and three users.
const Test::ApplianceRoot& Root();
constexpr char kToken[] = "Tok3n";          // alice's
constexpr char kApp[] = "KIVO.App.Backup";  // the only one that "member" may use; "admin" is an administrator

/// What has been logged since the input was begun, one line each, without the place where it was. The
/// targets' processes define syslog, and are the superuser's in their own eyes.
std::string& Log();

/// The texts of an input after its first bytes, each ended by a NUL byte or the end; the last ones empty when
/// there are fewer than `count`.
std::vector<std::string> SplitTexts(const std::string& input, std::size_t skipped = 0, std::size_t count = 0);

/// How often the response was set, and to what, on one line.
std::string Text(const APIResponse& response);

/// Reports a finding unless both texts are the same, or what is said holds.
void ExpectEqual(const char* what, const std::string& expected, const std::string& actual);
void Expect(const char* what, bool holds);

/// The texts that the notification database of a target with StoredRows.cpp holds for its only user, oldest
/// first; nothing for NULL. Such a target knows the tags of the platform's functions there, and reads no file
/// for them.
std::vector<std::optional<std::string>>& StoredRows();

/// The plainest answer of the action "load" to these parameters.
Json::Value PlainLoad(const Json::Value& parameters);

}  // namespace KIVO::Fuzz
