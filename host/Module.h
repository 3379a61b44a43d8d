#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "webapi/APITable.h"

namespace KIVO::Host {

/// One API method: where its handler stands, and the function to ask before it.
struct Method {
    const APITableRow* row;
    APICheckFunction check;
};

/// A loaded module and its two tables.
class Module {
public:
    /// Loads the module. Throws std::runtime_error with one sentence when the file or one of its symbols is
    /// missing, or when a method has no check function, since it would then be open to every request.
    explicit Module(const std::string& file);

    /// The method at "API/VERSION/METHOD". Throws a Refusal 404 that says which of the three is unknown.
    Method Find(std::string_view address) const;

    std::span<const APITableRow> Rows() const { return m_rows; }
    std::span<const APICheckTableRow> CheckRows() const { return m_checkRows; }

private:
    struct Unload {
        void operator()(void* library) const;
    };

    APICheckFunction FindCheck(const APITableRow& row) const;

    std::unique_ptr<void, Unload> m_library;
    std::span<const APITableRow> m_rows;
    std::span<const APICheckTableRow> m_checkRows;
};

}  // namespace KIVO::Host
