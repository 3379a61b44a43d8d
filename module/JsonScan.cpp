#include "module/JsonScan.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace KIVO::NEXNotify {

namespace {

// Far below the nesting that the JSON library refuses, so that what is near it is left to the library.
constexpr size_t kMaxDepth = 256;
// Grows with what is scanned.
constexpr size_t kInitialCapacity = 4096;

// At its first use simdjson looks for the processor's best implementation, and ends the process when memory
// is short there. So that comes when the module is loaded, and no request meets it.
[[maybe_unused]] const bool kHasImplementation = !simdjson::get_active_implementation()->name().empty();

Json::Value TreeOf(simdjson::dom::element element) {
    switch (element.type()) {
        case simdjson::dom::element_type::OBJECT:
            return NEXNotify::TreeOf(element.get_object());
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

/// The parser may have got part of what it needs.
void ThrowIfShort(simdjson::error_code error) {
    if (error == simdjson::MEMALLOC) {
        throw std::bad_alloc();
    }
}

}  // namespace

JsonScanner::JsonScanner() { ThrowIfShort(m_parser.allocate(kInitialCapacity, kMaxDepth)); }

std::optional<simdjson::dom::object> JsonScanner::Scan(std::string_view text) {
    simdjson::dom::object object;
    const auto error = m_parser.parse(text.data(), text.size()).get(object);
    ThrowIfShort(error);
    return error == simdjson::SUCCESS ? std::optional(object) : std::nullopt;
}

Json::Value TreeOf(simdjson::dom::object object) {
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

}  // namespace KIVO::NEXNotify
