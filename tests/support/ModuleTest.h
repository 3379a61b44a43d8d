#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

#include "tests/support/ApplianceRoot.h"
#include "tests/support/Log.h"
#include "tests/support/Platform.h"
#include "webapi/APIResponse.h"

namespace KIVO::Test {

/// The JSON value that the text holds; fails the test when it is not valid.
Json::Value Parse(const std::string& text);

/// The value on one line, members in order of their names.
std::string Text(const Json::Value& value);

/// What a request was answered: "success: DATA", "error CODE: DATA", or "nothing".
std::string Text(const APIResponse& response);

/// The texts of LogLines, which must all be of ordinary failures, with "#" for the number behind "file:",
/// which tells only where the code stands today.
std::vector<std::string> LoggedTexts();

/// An appliance with the users alice (an administrator, uid 1026), bob (1027, may use KIVO.App.Backup) and
/// carol (1028, may not see the tag Hidden), and a process of the superuser's that has logged nothing.
class ModuleTest : public testing::Test {
protected:
    ModuleTest();

    /// Answers a request as the web-API server does: check function, then handler, from the module's tables.
    static APIResponse Ask(const std::string& api, const std::string& method, const std::string& parameters,
                           const std::string& user = "alice", const std::string& language = "enu");

    /// The same to method "notify"; the answer as text.
    static std::string Notify(const std::string& parameters, const std::string& user = "alice",
                              const std::string& language = "enu");

    ApplianceRoot m_root;
};

}  // namespace KIVO::Test
