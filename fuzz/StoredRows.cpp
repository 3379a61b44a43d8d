#include <json/reader.h>

#include "fuzz/Support.h"
#include "sysnotify/database.h"

using KIVO::Fuzz::storedRows;

namespace {

/// Nothing when the text is not JSON, or nested deeper than the library goes.
std::optional<Json::Value> ParseRow(const std::string& text) {
    Json::Value row;
    try {
        return Json::Reader().parse(text.c_str(), row, false) ? std::optional(row) : std::nullopt;
    } catch (const Json::Exception&) {
        return std::nullopt;
    }
}

bool IsListed(const std::string& tag, bool all) {
    const bool isEnabled = tag == "Known" || tag == "Hidden" || tag == "5" || tag == "true";
    // The rights end a tag at its first NUL byte.
    return (isEnabled || tag.find(':') != std::string::npos) && (all || tag.c_str() != std::string("Hidden"));
}

}  // namespace

Json::Value KIVO::Fuzz::PlainLoad(const Json::Value& parameters) {
    const int limit = parameters["limit"].asInt();
    Json::Value answer;
    answer["total"] = 0;
    answer["items"] = Json::arrayValue;
    answer["newestMsgTime"] = 0;
    std::vector<Json::Value> filtered;
    double newest = 0.0;
    for (const auto& text : storedRows) {
        const auto row = text ? ParseRow(*text) : Json::Value();
        if (!row) {
            return answer;
        }
        const Json::Value title = row->isObject() ? (*row)["title"] : Json::Value();
        const std::string tag = title.isConvertibleTo(Json::stringValue) ? title.asString() : "";
        if (!IsListed(tag, parameters["all"].asBool())) {
            continue;
        }
        if (row->isObject() && (*row)["time"].isConvertibleTo(Json::realValue)) {
            newest = std::max(newest, (*row)["time"].asDouble());
        }
        filtered.push_back(*row);
    }
    if (storedRows.empty()) {
        return answer;
    }
    const Json::ArrayIndex pageSize = limit > 0 ? static_cast<Json::ArrayIndex>(limit) : 30;
    Json::ArrayIndex untimed = 0;
    int timed = 0;
    Json::Value& page = answer["items"];
    for (auto row = filtered.rbegin(); row != filtered.rend(); ++row) {
        if (!row->isObject() || !row->isMember("time")) {
            ++untimed;
        } else if (page.size() >= pageSize) {
            break;
        } else if (timed++ >= parameters["offset"].asInt()) {
            page.append(*row);
        }
    }
    answer["newestMsgTime"] = newest;
    answer["priorityMap"] = Json::Value();
    answer["total"] = limit > 0 ? static_cast<Json::ArrayIndex>(filtered.size()) - untimed : page.size();
    return answer;
}

extern "C" {

int nexnotifyDbOpen(sqlite3** db) { return *db = nullptr, 0; }

int nexnotifyDbRunSql(sqlite3*, const char*, int (*callback)(void*, int, char**, char**), void* arg) {
    for (const auto& row : storedRows) {
        std::string text = row.value_or("");
        char* column = row ? text.data() : nullptr;
        if (callback != nullptr && callback(arg, 1, &column, nullptr) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // extern "C"
