#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "module/JsonScan.h"

namespace KIVO::NEXNotify {

/// What the list has to know of a stored notification to filter and count it.
struct RowFacts {
    /// "" when it has no title, or one that is no text.
    std::string_view tag;
    bool hasTime = false;
    /// The time of the notification; 0 when it has none, or one that is no number.
    double time = 0.0;
};

/// The tag of a notification that the JSON library has parsed: its title, "" when it has none, or one that is
/// no text.
std::string TagOf(const Json::Value& notification);

/// The facts of a notification that the JSON library has parsed. The tag is kept in `tagText`.
RowFacts FactsOf(const Json::Value& notification, std::string& tagText);

/// Reads the facts off a stored text in one pass; behind it must be JsonScanner::kPadding bytes to read. The
/// tag is valid until the scanner's next scan. Nothing when only the JSON library is to judge the text.
std::optional<RowFacts> ScanRow(JsonScanner& scanner, std::string_view text);

}  // namespace KIVO::NEXNotify
