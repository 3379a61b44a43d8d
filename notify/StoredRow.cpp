// What the module reads of a stored notification: its facts for the list, its tree for the answer.

#include "notify/StoredRow.h"

#include <cassert>
#include <cstdint>

#include "module/JsonFile.h"
#include "notify/Notify.h"

namespace KIVO::NEXNotify {

namespace {

/// Up to here every integer is a double. The JSON library rounds larger ones twice on their way to a double,
/// and so makes another number of some than everyone else.
constexpr std::int64_t kMaxExact = std::int64_t{1} << 53;

/// What stands for both characters of an escaped quote. JSON allows it in a text, and hardly any tag has it.
constexpr char kMask = '\x7f';

/// Nothing where the JSON library may see it otherwise. Of two members of one name the last one counts.
[[nodiscard]] std::optional<RowFacts> FactsOf(simdjson::dom::object notification) {
    RowFacts facts;
    for (const auto [name, value] : notification) {
        if (name == "title") {
            // The JSON library makes text of some values that are none.
            if (value.get(facts.tag) != simdjson::SUCCESS) {
                return std::nullopt;
            }
        } else if (name == "time") {
            std::int64_t integer = 0;
            const bool isInt64 = value.get(integer) == simdjson::SUCCESS;
            if ((isInt64 ? integer > kMaxExact : value.is_uint64()) ||
                value.get(facts.time) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            facts.hasTime = true;
        }
    }
    return facts;
}

/// The same of a tree. The tag is kept in `tag`.
RowFacts FactsOf(const Json::Value& notification, std::string& tag) {
    tag = TagOf(notification);
    RowFacts facts{.tag = tag};
    if (notification.isObject()) {
        const Json::Value& time = notification["time"];
        facts.hasTime = notification.isMember("time");
        facts.time = time.isConvertibleTo(Json::realValue) ? time.asDouble() : 0.0;
    }
    return facts;
}

}  // namespace

std::string TagOf(const Json::Value& notification) {
    if (!notification.isObject()) {
        return "";
    }
    const Json::Value& title = notification["title"];
    return title.isConvertibleTo(Json::stringValue) ? title.asString() : "";
}

std::optional<RowFacts> RowReader::Read(std::string_view text) {
    for (const std::string_view source : {Mask(text), text}) {
        const auto object = m_scanner.Scan(source);
        auto facts = object ? FactsOf(*object) : std::nullopt;
        if (facts && (source.data() == text.data() || facts->tag.find(kMask) == facts->tag.npos)) {
            return facts;
        }
    }
    Json::Value notification;
    return ParseJsonText(text, notification) ? std::optional(FactsOf(notification, m_tag)) : std::nullopt;
}

/// The text with each escaped quote masked: a message holds JSON as text, which is full of them, and the
/// scanner needs as long to decode them one by one as for all the rest.
std::string_view RowReader::Mask(std::string_view text) {
    if (text.empty()) {
        return text;
    }
    m_masked.resize(text.size());
    const char* const source = text.data();
    char* const masked = m_masked.data();
    // Without a branch, so that the compiler makes it work on many characters at a time.
    unsigned char pairs = 0;
    const std::size_t last = text.size() - 1;
    for (std::size_t i = 1; i < last; ++i) {
        const bool isEscaped = source[i - 1] == '\\';
        const bool isMasked =
            ((source[i] == '\\') & (source[i + 1] == '"')) | ((source[i] == '"') & isEscaped);
        masked[i] = isMasked ? kMask : source[i];
        pairs |= isEscaped & (source[i] == '\\');
    }
    masked[0] = source[0];
    masked[last] = source[last];
    // Of two backslashes the first escapes the second: a quote behind them ends its text.
    return pairs != 0 ? text : m_masked;
}

void RowReader::Append(const std::string& text, Json::Value& array) {
    if (const auto object = m_scanner.Scan(text)) {
        array.append(TreeOf(*object));
        return;
    }
    char* column = const_cast<char*>(text.c_str());  // the callback's type; it only reads
    [[maybe_unused]] const int result = Notify::readDbToJson(&array, 1, &column, nullptr);
    assert(result == 0);
}

int Notify::readDbToJson(void* array, int columnCount, char** columnTexts, char** /*columnNames*/) {
    Json::Value value;
    for (int column = 0; column < columnCount; ++column) {
        const char* text = columnTexts[column];
        if (text != nullptr && !ParseJsonText(text, value)) {
            return 1;
        }
        static_cast<Json::Value*>(array)->append(value);
    }
    return 0;
}

}  // namespace KIVO::NEXNotify
