#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace KIVO::NEXNotify {

/// Parses the text as JSON the way the appliance's other components do: comments are allowed, and what
/// follows the first value is not looked at. False when it is no JSON, or nested deeper than the JSON library
/// goes.
[[nodiscard]] bool ParseJsonText(std::string_view text, Json::Value& value);

/// The content of the file at the path; nothing, with errno telling why, when it cannot be read.
[[nodiscard]] std::optional<std::string> ReadTextFile(const std::string& path);

}  // namespace KIVO::NEXNotify
