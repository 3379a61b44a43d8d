#include "notify/RowScan.h"

namespace KIVO::NEXNotify {

RowFacts FactsOf(const Json::Value& notification, std::string& tagText) {
    RowFacts facts;
    // A stored text that is no object counts as one without members: one odd row must not cost the user the
    // list.
    if (!notification.isObject()) {
        return facts;
    }
    const Json::Value& title = notification["title"];
    if (title.isConvertibleTo(Json::stringValue)) {
        tagText = title.asString();
        facts.tag = tagText;
    }
    facts.hasTime = notification.isMember("time");
    const Json::Value& time = notification["time"];
    if (time.isConvertibleTo(Json::realValue)) {
        facts.time = time.asDouble();
    }
    return facts;
}

std::optional<RowFacts> ScanRow(JsonScanner& scanner, std::string_view text) {
    const auto notification = scanner.Scan(text);
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
            if (facts.hasTime || !value.is_number() || value.get(facts.time) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            facts.hasTime = true;
        }
    }
    return facts;
}

}  // namespace KIVO::NEXNotify
