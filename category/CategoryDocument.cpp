#include "category/CategoryDocument.h"

#include <cassert>
#include <cerrno>
#include <utility>

#include "module/JsonFile.h"

namespace KIVO::NEXNotify {

namespace {

/// The event; nothing when it is no object, or has a member twice or of another type.
[[nodiscard]] std::optional<CategoryEvent> ReadEvent(simdjson::dom::element element) {
    simdjson::dom::object fields;
    if (element.get(fields) != simdjson::SUCCESS) {
        return std::nullopt;
    }
    std::optional<std::string_view> name, group, appId;
    for (const auto [member, value] : fields) {
        auto* field = member == "name"    ? &name
                      : member == "group" ? &group
                      : member == "appid" ? &appId
                                          : nullptr;
        if (field == nullptr) {
            continue;
        }
        std::string_view text;
        if (*field || value.get(text) != simdjson::SUCCESS) {
            return std::nullopt;
        }
        *field = text;
    }
    return CategoryEvent{name, group.value_or(""), appId.value_or("")};
}

/// The events of the document, none when it has no list of them; nothing when the JSON library may see it
/// otherwise.
[[nodiscard]] std::optional<std::vector<CategoryEvent>> ReadEvents(simdjson::dom::object document) {
    std::optional<simdjson::dom::array> list;
    if (!FindOnly(document, "All", list)) {
        return std::nullopt;
    }
    std::vector<CategoryEvent> events;
    if (list) {
        events.reserve(list->size());
        for (const auto element : *list) {
            const auto event = ReadEvent(element);
            if (!event) {
                return std::nullopt;
            }
            events.push_back(*event);
        }
    }
    return events;
}

}  // namespace

bool CategoryDocument::Load(const std::string& path) {
    assert(m_text.empty());
    auto text = ReadTextFile(path);
    if (!text) {
        return false;
    }
    m_text = std::move(*text);
    if (const auto document = m_scanner.Scan(m_text)) {
        m_events = ReadEvents(*document);
    } else if (!ParseJsonText(m_text, m_tree.emplace())) {
        errno = EBADMSG;
        return false;
    }
    return true;
}

const Json::Value& CategoryDocument::Tree() {
    assert(!m_text.empty());
    if (!m_tree) {
        [[maybe_unused]] const bool isJson = ParseJsonText(m_text, m_tree.emplace());
        assert(isJson);  // What could be scanned is JSON to the library, too.
    }
    return *m_tree;
}

}  // namespace KIVO::NEXNotify
