#include "tests/support/PlainLoad.h"

#include <json/reader.h>

#include <algorithm>

namespace KIVO::Test {

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

}  // namespace

Json::Value PlainLoad(const std::vector<std::optional<std::string>>& rows, int limit, int offset, bool all,
                      const std::function<bool(const std::string& tag)>& isEnabled,
                      const std::function<bool(const std::string& tag)>& isAllowed) {
    Json::Value answer;
    answer["total"] = 0;
    answer["items"] = Json::arrayValue;
    answer["newestMsgTime"] = 0;
    std::vector<Json::Value> filtered;
    double newest = 0.0;
    for (const auto& text : rows) {
        const auto row = text ? ParseRow(*text) : Json::Value();
        if (!row) {
            return answer;
        }
        const Json::Value title = row->isObject() ? (*row)["title"] : Json::Value();
        const std::string tag = title.isConvertibleTo(Json::stringValue) ? title.asString() : "";
        if ((tag.find(':') == std::string::npos && !isEnabled(tag)) || (!all && !isAllowed(tag))) {
            continue;
        }
        if (row->isObject() && (*row)["time"].isConvertibleTo(Json::realValue)) {
            newest = std::max(newest, (*row)["time"].asDouble());
        }
        filtered.push_back(*row);
    }
    if (rows.empty()) {
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
        } else if (timed++ >= offset) {
            page.append(*row);
        }
    }
    answer["newestMsgTime"] = newest;
    answer["priorityMap"] = Json::Value();
    answer["total"] = limit > 0 ? static_cast<Json::ArrayIndex>(filtered.size()) - untimed : page.size();
    return answer;
}

}  // namespace KIVO::Test
