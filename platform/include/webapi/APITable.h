#pragma once

// The two tables through which the web-API server finds what a module serves. The server reads the rows
// directly from the module's data, so their byte layout is part of the interface.

#include <cstddef>
#include <cstdint>

namespace KIVO {

class APIRequest;
class APIResponse;

/// Answers one request: sets exactly one of success and error on the response. Borrows both arguments.
using APIHandler = void (*)(APIRequest*, APIResponse*);

/// Vets one request before its handler. False refuses it; the error is then already set on the response.
using APICheckFunction = bool (*)(APIRequest*, APIResponse*);

/// One API method and its handler. A table ends with a row whose every byte is zero.
struct APITableRow {
    const char* api;
    std::uint64_t version;
    const char* method;
    APIHandler handler;
};
static_assert(sizeof(APITableRow) == 32 && offsetof(APITableRow, handler) == 24);

/// One API method and its check function. A table ends with a row whose every byte is zero.
struct APICheckTableRow {
    const char* api;
    std::uint64_t version;
    const char* method;
    APICheckFunction check;
    std::uint64_t reserved[2];
};
static_assert(sizeof(APICheckTableRow) == 48 && offsetof(APICheckTableRow, reserved) == 32);

}  // namespace KIVO
