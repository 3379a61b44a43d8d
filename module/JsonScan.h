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

    /// How many bytes behind a text ScanPadded may read.
    static constexpr size_t kPadding = simdjson::SIMDJSON_PADDING;

    /// The object, valid until the next scan; nothing when only the JSON library is to judge the text.
    std::optional<simdjson::dom::object> Scan(std::string_view text) { return Scan(text, false); }

    /// The same of a text that has kPadding bytes behind it, which spares a copy.
    std::optional<simdjson::dom::object> ScanPadded(std::string_view text) { return Scan(text, true); }

    /// The same of texts side by side: one pass finds the marks of all, which costs less than one a text.
    /// Behind each text is white space. Behind all of them are kPadding bytes, the first of them NUL: where a
    /// last text does not end, simdjson reads that byte as if it were of the text. Calls `visit` with where
    /// each object lies and with the object, as long as it returns true; ends early where only the JSON
    /// library is to judge. Throws std::bad_alloc.
    template <class Visit>
    void ScanMany(std::string_view texts, const Visit& visit) {
        simdjson::dom::document_stream stream;
        auto error = m_parser.parse_many(texts.data(), texts.size(), texts.size()).get(stream);
        if (error == simdjson::SUCCESS) {
            for (auto document = stream.begin(); document != stream.end(); ++document) {
                simdjson::dom::object object;
                error = (*document).get(object);
                if (error != simdjson::SUCCESS || !visit(document.source(), object)) {
                    break;
                }
            }
        }
        ThrowIfShort(error);
    }

private:
    std::optional<simdjson::dom::object> Scan(std::string_view text, bool isPadded);

    /// Throws std::bad_alloc when that is what the error tells: the parser may have got part of what it
    /// needs.
    static void ThrowIfShort(simdjson::error_code error);

    simdjson::dom::parser m_parser;
};

/// Finds the member of the name. False when there are two of them, or the one is no T.
template <class T>
bool FindOnly(simdjson::dom::object object, std::string_view name, std::optional<T>& found) {
    for (const auto [member, value] : object) {
        if (member == name && (found || value.get(found.emplace()) != simdjson::SUCCESS)) {
            return false;
        }
    }
    return true;
}

}  // namespace KIVO::NEXNotify
