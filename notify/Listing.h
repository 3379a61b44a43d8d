#pragma once

#include <json/value.h>

#include <cstddef>
#include <exception>
#include <string_view>

#include "notify/PageWindow.h"
#include "notify/StoredRow.h"
#include "notify/TagFilter.h"

namespace KIVO::NEXNotify {

/// What the answer to "load" is made of: takes the stored notifications row by row, oldest first, and keeps
/// the page.
class Listing {
public:
    /// Borrows the filter.
    Listing(TagFilter& filter, int limit, int offset) : m_filter(filter), m_page(limit, offset) {}

    /// The callback of the query, with the listing as its argument; stops the query at a text that is not
    /// JSON. No exception may pass through SQLite: it stops the query, too, and waits for ThrowFailure.
    [[nodiscard]] static int OnRow(void* listing, int columnCount, char** columnTexts,
                                   char** columnNames) noexcept;

    /// Throws what stopped the query, if anything was thrown.
    void ThrowFailure() const;

    bool HasRows() const { return m_hasRows; }
    /// The greatest time of the listed notifications, at least 0.
    double NewestTime() const { return m_newestTime; }
    /// The number of notifications that the client is told.
    std::size_t Total() const { return m_page.Total(); }
    /// The notifications of the page, newest first. Throws std::bad_alloc.
    Json::Value Items();

private:
    void Add(std::string_view text, const RowFacts& facts);

    TagFilter& m_filter;
    PageWindow m_page;
    RowReader m_reader;
    bool m_hasRows = false;
    double m_newestTime = 0.0;
    std::exception_ptr m_failure;
};

}  // namespace KIVO::NEXNotify
