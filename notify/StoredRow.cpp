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
    if (const auto object = m_scanner.Scan(text)) {
        if (auto facts = FactsOf(*object)) {
            return facts;
        }
    }
    Json::Value notification;
    return ParseJsonText(text, notification) ? std::optional(FactsOf(notification, m_tag)) : std::nullopt;
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
