// What the module reads of a stored notification: its facts for the list, its tree for the answer.

#include "notify/StoredRow.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <iterator>

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

[[nodiscard]] Json::Value TreeOf(simdjson::dom::element element);

/// The tree that the JSON library would make of the object, in a fraction of the time.
[[nodiscard]] Json::Value TreeOf(simdjson::dom::object object) {
    // Not copied into each tree.
    constexpr const char* kNames[] = {"msg", "time", "title"};
    Json::Value tree(Json::objectValue);
    for (const auto [name, value] : object) {
        // Of two members of one name the last one stays.
        const auto known = std::ranges::find(kNames, name);
        (known != std::end(kNames) ? tree[Json::StaticString(*known)]
                                   : *tree.demand(name.data(), name.data() + name.size())) = TreeOf(value);
    }
    return tree;
}

Json::Value TreeOf(simdjson::dom::element element) {
    switch (element.type()) {
        case simdjson::dom::element_type::OBJECT:
            return TreeOf(simdjson::dom::object(element.get_object()));
        case simdjson::dom::element_type::ARRAY: {
            Json::Value array(Json::arrayValue);
            for (const auto value : element.get_array()) {
                array.append(TreeOf(value));
            }
            return array;
        }
        case simdjson::dom::element_type::STRING: {
            const std::string_view text = element.get_string();
            return {text.data(), text.data() + text.size()};
        }
        case simdjson::dom::element_type::INT64:
            return Json::Int64{element.get_int64()};
        case simdjson::dom::element_type::UINT64:
            return Json::UInt64{element.get_uint64()};
        case simdjson::dom::element_type::DOUBLE:
            return double{element.get_double()};
        case simdjson::dom::element_type::BOOL:
            return bool{element.get_bool()};
        case simdjson::dom::element_type::NULL_VALUE:
            break;
    }
    return {};
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
