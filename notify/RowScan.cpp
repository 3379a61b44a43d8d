#include "notify/RowScan.h"

#include <new>

namespace KIVO::NEXNotify {

namespace {

// Far below the nesting that the JSON library refuses, so that what is near it is left to the library.
constexpr size_t kMaxDepth = 256;
// Holds a common notification, so that the parser seldom grows.
constexpr size_t kInitialCapacity = 4096;

}  // namespace

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

RowScanner::RowScanner() {
    if (m_parser.allocate(kInitialCapacity, kMaxDepth) != simdjson::SUCCESS) {
        throw std::bad_alloc();
    }
}

std::optional<RowFacts> RowScanner::Scan(std::string_view text) {
    simdjson::dom::object notification;
    const auto error = m_parser.parse(text.data(), text.size()).get(notification);
    if (error == simdjson::MEMALLOC) {
        throw std::bad_alloc();  // The parser is not to be used again: it may have got part of what it needs.
    }
    if (error != simdjson::SUCCESS) {
        return std::nullopt;
    }
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
            if (facts.hasTime || !value.is_number() || value.get(facts.time) != simdjson::SUCCESS) {
                return std::nullopt;
            }
            facts.hasTime = true;
        }
    }
    return facts;
}

}  // namespace KIVO::NEXNotify
