#pragma once

#include <json/value.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "module/JsonScan.h"
#include "notify/TextBatch.h"

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

/// Reads the facts of stored texts without making trees of them.
class RowScanner {
public:
    /// Calls `visit` with each text of the batch and its facts, which are valid during the call. Ends early
    /// where the rest is to be judged one by one; returns how many it visited.
    std::size_t ScanBatch(const TextBatch& batch,
                          const std::function<void(std::string_view text, const RowFacts& facts)>& visit);

    /// The facts of one text; behind it must be JsonScanner::kPadding bytes to read. Valid until the next
    /// scan. Nothing when only the JSON library is to judge the text.
    std::optional<RowFacts> Scan(std::string_view text);

private:
    std::string_view Mask(std::string_view lines);

    JsonScanner m_scanner;
    std::vector<char> m_masked;
};

}  // namespace KIVO::NEXNotify
