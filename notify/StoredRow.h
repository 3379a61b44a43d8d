#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "module/JsonScan.h"

namespace KIVO::NEXNotify {

/// The tag of a notification: its title, "" when it has none, or one that is no text. One that is no object
/// has no members: an odd row must not cost its user the list.
std::string TagOf(const Json::Value& notification);

/// What the list has to know of a stored notification to filter and count it.
struct RowFacts {
    std::string_view tag;
    bool hasTime = false;
    /// The time of the notification; 0 when it has none, or one that is no number.
    double time = 0.0;
};

/// Reads stored texts, with the scanner where it can.
class RowReader {
public:
    /// The facts of a text, valid until the next call. Nothing when the text is not JSON. Throws
    /// std::bad_alloc.
    [[nodiscard]] std::optional<RowFacts> Read(std::string_view text);

    /// Appends the tree of a text that Read has taken to the array. Throws std::bad_alloc.
    void Append(const std::string& text, Json::Value& array);

private:
    JsonScanner m_scanner;
    std::string m_tag;  // of a text that only the JSON library could read
};

}  // namespace KIVO::NEXNotify
