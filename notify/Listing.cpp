#include "notify/Listing.h"

#include <algorithm>
#include <cassert>

namespace KIVO::NEXNotify {

int Listing::OnRow(void* listing, [[maybe_unused]] int columnCount, char** columnTexts,
                   char** /*columnNames*/) noexcept {
    assert(columnCount == 1);
    auto& self = *static_cast<Listing*>(listing);
    self.m_hasRows = true;
    try {
        // A row without a text has no facts.
        const std::string_view text = columnTexts[0] != nullptr ? columnTexts[0] : "null";
        const auto facts = self.m_reader.Read(text);
        if (!facts) {
            return 1;
        }
        self.Add(text, *facts);
        return 0;
    } catch (...) {
        self.m_failure = std::current_exception();
        return 1;
    }
}

void Listing::ThrowFailure() const {
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
}

Json::Value Listing::Items() {
    Json::Value items(Json::arrayValue);
    for (std::size_t position = 0; position < m_page.Size(); ++position) {
        m_reader.Append(m_page[position], items);
    }
    return items;
}

void Listing::Add(std::string_view text, const RowFacts& facts) {
    if (!m_filter.IsListed(facts.tag)) {
        return;
    }
    if (!facts.hasTime) {
        m_page.AddUntimed();
        return;
    }
    m_page.AddTimed(text);
    m_newestTime = std::max(m_newestTime, facts.time);
}

}  // namespace KIVO::NEXNotify
