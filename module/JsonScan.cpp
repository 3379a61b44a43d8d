#include "module/JsonScan.h"

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

}  // namespace KIVO::NEXNotify
