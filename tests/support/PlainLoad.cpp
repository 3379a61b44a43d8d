#include "tests/support/PlainLoad.h"

#include <json/reader.h>

#include <algorithm>

namespace KIVO::Test {

namespace {

/// False when the text is not JSON, or nested deeper than the library goes.
bool ParseRow(const std::string& text, Json::Value& row) {
    const char* begin = text.c_str();
    try {
        return Json::Reader().parse(begin, begin + std::char_traits<char>::length(begin), row, false);
    } catch (const Json::Exception&) {
        return false;
    }
}

std::string TagOf(const Json::Value& row) {
    const Json::Value title = row.isObject() ? row.get("title", "") : Json::Value("");
    return title.isConvertibleTo(Json::stringValue) ? title.asString() : "";
}

bool HasTime(const Json::Value& row) { return row.isObject() && row.isMember("time"); }

}  // namespace

Json::Value PlainLoad(const std::vector<std::optional<std::string>>& rows, int limit, int offset, bool all,
                      const std::function<bool(const std::string& tag)>& isEnabled,
                      const std::function<bool(const std::string& tag)>& isAllowed) {
    Json::Value answer;
    answer["total"] = 0;
    answer["items"] = Json::Value(Json::arrayValue);
    answer["newestMsgTime"] = 0;
    std::vector<Json::Value> filtered;
    double newest = 0.0;
    for (const auto& text : rows) {
        Json::Value row;
        if (text && !ParseRow(*text, row)) {
            return answer;
        }
        const std::string tag = TagOf(row);
        if ((tag.find(':') == std::string::npos && !isEnabled(tag)) || (!all && !isAllowed(tag))) {
            continue;
        }
        if (HasTime(row) && row["time"].isConvertibleTo(Json::realValue)) {
            newest = std::max(newest, row["time"].asDouble());
        }
        filtered.push_back(row);
    }
    if (rows.empty()) {
        return answer;
    }
    const size_t pageSize = limit > 0 ? static_cast<size_t>(limit) : 30;
    const auto skip = static_cast<long long>(std::max(offset, 0));
    const auto count = static_cast<long long>(filtered.size());
    long long skipped = 0;
    Json::Value page(Json::arrayValue);
    for (long long i = count - 1; i >= 0; --i) {
        const Json::Value& row = filtered[static_cast<size_t>(i)];
        if (!HasTime(row)) {
            ++skipped;
        } else if (page.size() >= pageSize) {
            break;
        } else if (i <= count - 1 - skipped - skip) {
            page.append(row);
        }
    }
    answer["newestMsgTime"] = newest;
    answer["priorityMap"] = Json::Value();
    answer["total"] = limit > 0 ? static_cast<Json::ArrayIndex>(count - skipped) : page.size();
    answer["items"] = page;
    return answer;
}

}  // namespace KIVO::Test
