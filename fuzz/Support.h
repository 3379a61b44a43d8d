#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "host/Router.h"
#include "platform/kivocore/Json.h"
#include "tests/support/ApplianceRoot.h"
#include "webapi/APIResponse.h"

namespace KIVO::Fuzz {

/// What each target does with one input.
void Try(const std::string& input);

/// The process's appliance: two languages without texts, an empty database, and three users.
const Test::ApplianceRoot& Root();
constexpr char kToken[] = "Tok3n";          // alice's
constexpr char kApp[] = "KIVO.App.Backup";  // the only one that "member" may use; "admin" is an administrator

/// What has been logged since the input was begun, one line each, without the place where it was.
std::string Logged();

/// What a target with StoredRows.cpp finds in the notification database, oldest first; nothing for NULL.
inline std::vector<std::optional<std::string>> storedRows;

/// In a target with Module.cpp, a router of a page and of one method, Test/1/user, which answers whose call
/// it is; and how often that was called since the input was begun.
const Host::Router& Router();
inline int calls;

/// What the action "load" answers to these parameters and the stored rows, worked out in the plainest way:
/// every text becomes a tree, then the trees are filtered, then the page is cut.
Json::Value PlainLoad(const Json::Value& parameters);

/// The texts of an input after its first bytes: each ends at a NUL byte or the end.
std::vector<std::string> SplitTexts(const std::string& input, std::size_t skipped = 0);

/// How often the response was set, and to what, on one line; and that of one that was set once to these data.
std::string Text(const APIResponse& response);
std::string Success(const Json::Value& data);

/// Reports a finding unless both texts are the same, or what is said holds.
void ExpectEqual(const char* what, const std::string& expected, const std::string& actual);
void Expect(const char* what, bool holds);

}  // namespace KIVO::Fuzz
