#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "webapi/APIResponse.h"

namespace KIVO::Fuzz {

/// What has been logged by a target, one line each, without the place where it was. The targets' processes
/// define syslog, and are the superuser's in their own eyes.
std::string& Log();

/// The texts of an input, each ended by a NUL byte or the end; the last ones empty when there are fewer than
/// `count`.
std::vector<std::string> SplitTexts(const std::uint8_t* data, std::size_t size, std::size_t count = 0);

/// The value on one line.
std::string Text(const Json::Value& value);
/// How often the response was set, and to what.
std::string Text(const APIResponse& response);

/// Reports a finding unless both texts are the same.
void ExpectEqual(const char* what, const std::string& expected, const std::string& actual);

}  // namespace KIVO::Fuzz
