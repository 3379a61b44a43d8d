#pragma once

#include <json/value.h>

#include <array>
#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace KIVO::NEXNotify {

/// Hashes JSON values so that equal ones (same type, same value) have equal hashes.
inline size_t HashJson(const Json::Value& value) {
    switch (value.type()) {
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            value.getString(&begin, &end);
            return std::hash<std::string_view>()({begin, static_cast<size_t>(end - begin)});
        }
        case Json::arrayValue:
        case Json::objectValue: {
            size_t hash = value.size();
            for (const Json::Value& element : value) {
                hash = hash * 31 + HashJson(element);
            }
            return hash;
        }
        default:
            return std::hash<double>()(value.asDouble());
    }
}

/// Some JSON values by which something is looked up: borrowed, compared by value.
template <size_t N>
using JsonKey = std::array<const Json::Value*, N>;

struct HashJsonKey {
    template <size_t N>
    size_t operator()(const JsonKey<N>& key) const {
        size_t hash = 0;
        for (const Json::Value* value : key) {
            hash = hash * 31 + HashJson(*value);
        }
        return hash;
    }
};

struct EqualJsonKeys {
    template <size_t N>
    bool operator()(const JsonKey<N>& left, const JsonKey<N>& right) const {
        for (size_t i = 0; i < N; ++i) {
            if (*left[i] != *right[i]) {
                return false;
            }
        }
        return true;
    }
};

/// Looks through the objects of a JSON array for the first that has given values in N members. The array is
/// gone through once, however many look-ups there are, and never further than the look-ups need: an element
/// behind the last match is not touched, so one that is no object does no harm there.
template <size_t N>
class FirstMatch {
public:
    /// Borrows the array. A member that an element does not have counts as null.
    FirstMatch(const Json::Value& array, const std::array<const char*, N>& members)
        : m_next(array.begin()), m_end(array.end()), m_members(members) {}

    /// The first element with these values, or null.
    const Json::Value* Find(const JsonKey<N>& values) {
        if (const auto seen = m_seen.find(values); seen != m_seen.end()) {
            return seen->second;
        }
        while (m_next != m_end) {
            const Json::Value& element = *m_next++;
            JsonKey<N> key;
            for (size_t i = 0; i < N; ++i) {
                key[i] = &element[m_members[i]];
            }
            if (m_seen.try_emplace(key, &element).second && EqualJsonKeys()(key, values)) {
                return &element;
            }
        }
        return nullptr;
    }

private:
    Json::Value::const_iterator m_next;
    Json::Value::const_iterator m_end;
    std::array<const char*, N> m_members;
    std::unordered_map<JsonKey<N>, const Json::Value*, HashJsonKey, EqualJsonKeys> m_seen;
};

}  // namespace KIVO::NEXNotify
