#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <json/value.h>

#include <optional>
#include <string>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// Parses a text that is exactly one JSON value (UTF-8, no comments, no repeated member names, nothing after
/// it). False, with one sentence in `*error` unless null, when it is not.
[[nodiscard]] KIVO_PUBLIC bool ParseJson(const std::string& text, Json::Value& value,
                                         std::string* error = nullptr);

/// The value on one line, in UTF-8; each byte of a string that is not UTF-8 becomes U+FFFD.
KIVO_PUBLIC std::string WriteJson(const Json::Value& value);

/// The value of a number that was written as an integer and fits an int; nothing for every other value.
[[nodiscard]] KIVO_PUBLIC std::optional<int> AsInt(const Json::Value& value);

}  // namespace KIVO::Appliance
