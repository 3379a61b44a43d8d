#include "notify/RowScan.h"

#include <cstdint>

namespace KIVO::NEXNotify {

namespace {

/// Up to here every integer is a double. The JSON library rounds larger ones twice on their way to a double,
/// and so makes another number of some than everyone else.
constexpr std::int64_t kMaxExact = std::int64_t{1} << 53;

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

std::optional<RowFacts> ScanRow(JsonScanner& scanner, std::string_view text) {
    const auto notification = scanner.ScanPadded(text);
    if (!notification) {
        return std::nullopt;
    }
    RowFacts facts;
    bool hasTitle = false;
    for (const auto [name, value] : *notification) {
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

}  // namespace KIVO::NEXNotify
