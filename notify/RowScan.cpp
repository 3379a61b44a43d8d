#include "notify/RowScan.h"

#include <cstdint>
#include <cstring>

namespace KIVO::NEXNotify {

namespace {

/// Up to here every integer is a double. The JSON library rounds larger ones twice on their way to a double,
/// and so makes another number of some than everyone else.
constexpr std::int64_t kMaxExact = std::int64_t{1} << 53;

/// What stands for both characters of an escaped quote. JSON allows it in a text, and hardly any tag has it.
constexpr char kMask = '\x7f';

/// Nothing when only the JSON library is to judge the notification.
std::optional<RowFacts> ReadFacts(simdjson::dom::object notification) {
    RowFacts facts;
    bool hasTitle = false;
    for (const auto [name, value] : notification) {
        if (name == "title") {
            // The JSON library takes the last of two, and makes text of some values that are none.
            if (hasTitle || value.get(facts.tag) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            hasTitle = true;
        } else if (name == "time") {
            std::int64_t integer = 0;
            const bool isInt64 = value.get(integer) == simdjson::SUCCESS;
            if (facts.hasTime || !value.is_number() || (isInt64 ? integer > kMaxExact : value.is_uint64()) ||
                value.get(facts.time) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            facts.hasTime = true;
        }
    }
    return facts;
}

}  // namespace

std::string TagOf(const Json::Value& notification) {
    // A stored text that is no object counts as one without members: one odd row must not cost the user the
    // list.
    if (!notification.isObject()) {
        return "";
    }
    const Json::Value& title = notification["title"];
    return title.isConvertibleTo(Json::stringValue) ? title.asString() : "";
}

RowFacts FactsOf(const Json::Value& notification, std::string& tagText) {
    tagText = TagOf(notification);
    RowFacts facts{.tag = tagText};
    if (!notification.isObject()) {
        return facts;
    }
    facts.hasTime = notification.isMember("time");
    const Json::Value& time = notification["time"];
    if (time.isConvertibleTo(Json::realValue)) {
        facts.time = time.asDouble();
    }
    return facts;
}

std::size_t RowScanner::ScanBatch(const TextBatch& batch,
                                  const std::function<void(std::string_view, const RowFacts&)>& visit) {
    const auto& texts = batch.Texts();
    const std::string_view lines = batch.Lines();
    if (texts.empty()) {
        return 0;
    }
    std::size_t count = 0;
    const std::string_view masked = Mask(lines);
    m_scanner.ScanMany(masked, [&](std::string_view source, simdjson::dom::object notification) {
        // An object that begins or ends elsewhere is none of the texts as a whole: there is white space in
        // front, more behind, or it is made of pieces of broken ones.
        const std::string_view text = texts[count];
        if (source.data() - masked.data() != text.data() - lines.data() || source.size() > text.size()) {
            return false;
        }
        const auto facts = ReadFacts(notification);
        if (!facts || facts->tag.find(kMask) != std::string_view::npos) {
            return false;
        }
        visit(text, *facts);
        return ++count < texts.size();
    });
    return count;
}

std::optional<RowFacts> RowScanner::Scan(std::string_view text) {
    const auto notification = m_scanner.ScanPadded(text);
    return notification ? ReadFacts(*notification) : std::nullopt;
}

/// A copy of the lines for JsonScanner::ScanMany, with each escaped quote masked. Most messages hold JSON as
/// text, which is full of such quotes, and simdjson needs about as long to decode them one by one as for all
/// the rest.
std::string_view RowScanner::Mask(std::string_view lines) {
    const std::size_t size = lines.size();
    if (m_masked.size() < size + JsonScanner::kPadding) {
        m_masked.resize(size + JsonScanner::kPadding);
    }
    const char* const text = lines.data();
    char* const copy = m_masked.data();
    // Without a branch, so that the compiler (at -O3) makes it work on many characters at a time.
    unsigned char pairs = 0;
    for (std::size_t i = 1; i + 1 < size; ++i) {
        const bool isBehindBackslash = text[i - 1] == '\\';
        const bool isMasked =
            ((text[i] == '\\') & (text[i + 1] == '"')) | ((text[i] == '"') & isBehindBackslash);
        copy[i] = isMasked ? kMask : text[i];
        pairs |= isBehindBackslash & (text[i] == '\\');
    }
    // The first one begins an object only if it is a brace, and the last one is a line feed: neither is
    // masked.
    copy[0] = text[0];
    copy[size - 1] = text[size - 1];
    if (pairs != 0) {
        // Of two backslashes the first escapes the second: a quote behind them ends its text.
        std::memcpy(copy, text, size);
    }
    copy[size] = '\0';
    return {copy, size};
}

}  // namespace KIVO::NEXNotify
