#pragma once

#include <simdjson.h>

#include <optional>
#include <string_view>

namespace KIVO::NEXNotify {

/// Reads JSON objects without making trees of them, where the JSON library would read the same members and
/// values: a text that it accepts, that library accepts too. The library also accepts more (comments,
/// trailing text), and takes the last of two members of one name: who reads members off an object has to look
/// out for a second one.
class JsonScanner {
public:
    /// Throws std::bad_alloc, as Scan does; the scanner is then not to be used again.
    JsonScanner();

    /// The object, valid until the next scan; nothing when only the JSON library is to judge the text.
    [[nodiscard]] std::optional<simdjson::dom::object> Scan(std::string_view text);

private:
    simdjson::dom::parser m_parser;
};

/// Finds the member of the name. False when there are two of them, or the one is no T.
template <class T>
[[nodiscard]] bool FindOnly(simdjson::dom::object object, std::string_view name, std::optional<T>& found) {
    for (const auto [member, value] : object) {
        if (member == name && (found || value.get(found.emplace()) != simdjson::SUCCESS)) {
            return false;
        }
    }
    return true;
}

}  // namespace KIVO::NEXNotify
