// The category file of a language: where it lies, how it comes to be there, and what its events are.

#include "category/CategoryFile.h"

#include <cerrno>
#include <utility>

#include "module/JsonFile.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "module/RunAs.h"
#include "module/SourceLines.h"
#include "notify/Notify.h"

#include "kivocore/exec.h"
#include "kivocore/file.h"

namespace KIVO::NEXNotify {

namespace {

/// The event; nothing when it is no object, or has a member twice or of another type.
std::optional<CategoryEvent> ReadEvent(simdjson::dom::element element) {
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
std::optional<std::vector<CategoryEvent>> ReadEvents(simdjson::dom::object document) {
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

bool CategoryFile::Load(const std::string& path) {
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

const Json::Value& CategoryFile::Tree() {
    if (!m_tree) {
        ParseJsonText(m_text, m_tree.emplace());  // what could be scanned is JSON to the library, too
    }
    return *m_tree;
}

std::string Notify::GetNotifyCategoryFile(const std::string& language) {
    const std::string path = Paths::CategoryFile(language);
    if (KLIBCFileExist(path.c_str())) {
        return path;
    }
    IF_RUN_AS2("root", SourceLines::kGenerateCategoryFileAsRoot) {
        KLIBCExec(Paths::NotificationTool().c_str(), "--gen_category_file", language.c_str(), nullptr,
                  nullptr);
    }
    // Whether the tool did its work is seen by the file alone.
    if (!KLIBCFileExist(path.c_str())) {
        LOG_FAILURE_AT(SourceLines::kCategoryFileNotFound, "%s not found.", path.c_str());
    }
    return path;
}

}  // namespace KIVO::NEXNotify
