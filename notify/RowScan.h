#pragma once

#include <json/value.h>
#include <simdjson.h>

#include <optional>
#include <string>
#include <string_view>

namespace KIVO::NEXNotify {

/// What the list has to know of a stored notification to filter and count it.
struct RowFacts {
    /// "" when it has no title, or one that is no text.
    std::string_view tag;
    bool hasTime = false;
    /// The time of the notification; 0 when it has none, or one that is no number.
    double time = 0.0;
};

/// The facts of a notification that the JSON library has parsed. The tag is kept in `tagText`.
RowFacts FactsOf(const Json::Value& notification, std::string& tagText);

/// Reads the facts off a stored text in one pass, without making a tree of it.
class RowScanner {
public:
    /// Throws std::bad_alloc, as Scan does.
    RowScanner();

    /// The facts, whose tag is valid until the next scan, or nothing when the scan cannot vouch that the JSON
    /// library would read the same: only that library is to judge such a text.
    std::optional<RowFacts> Scan(std::string_view text);

private:
    simdjson::dom::parser m_parser;
};

}  // namespace KIVO::NEXNotify
