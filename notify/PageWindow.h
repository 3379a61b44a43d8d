#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace KIVO::NEXNotify {

/// Picks a page, newest first, out of notifications that are given oldest first. Of all of them it keeps the
/// texts of those alone that may still be on the page, or in front of it.
class PageWindow {
public:
    /// A page of `limit` notifications behind the `offset` newest. A limit of 0 or less stands for 30, an
    /// offset below 0 for 0.
    PageWindow(int limit, int offset)
        : m_hasLimit(limit > 0),
          m_pageSize(m_hasLimit ? static_cast<std::size_t>(limit) : kDefaultPageSize),
          m_offset(static_cast<std::size_t>(std::max(offset, 0))) {}

    /// Adds one that can be listed.
    void AddTimed(std::string_view text) {
        if (m_candidates.size() < m_offset + m_pageSize) {
            m_candidates.push_back({std::string(text), m_untimed});
        } else {
            Candidate& oldest = m_candidates[m_oldest];
            m_untimedBehind = oldest.untimedBefore;
            oldest.text.assign(text);
            oldest.untimedBefore = m_untimed;
            m_oldest = (m_oldest + 1) % m_candidates.size();
        }
        ++m_timed;
    }

    /// Adds one without a time, which is never listed.
    void AddUntimed() { ++m_untimed; }

    /// The number of notifications on the page.
    std::size_t Size() const { return m_candidates.size() > m_offset ? m_candidates.size() - m_offset : 0; }

    /// The text at a position of the page.
    const std::string& operator[](std::size_t position) const {
        return m_candidates[(m_oldest + m_candidates.size() - 1 - m_offset - position) % m_candidates.size()]
            .text;
    }

    /// The number of notifications that the client is told. One that gives no limit is told what it got. One
    /// that pages is told how far it can go, together with those without a time that are older than the first
    /// one behind the page: no one looked whether they can be listed.
    std::size_t Total() const { return m_hasLimit ? m_timed + m_untimedBehind : Size(); }

private:
    static constexpr std::size_t kDefaultPageSize = 30;

    struct Candidate {
        std::string text;
        std::size_t untimedBefore;  // how many without a time are older
    };

    bool m_hasLimit;
    std::size_t m_pageSize;
    std::size_t m_offset;
    std::size_t m_timed = 0;
    std::size_t m_untimed = 0;
    /// How many without a time are older than the newest notification behind the page; 0 while there is none.
    std::size_t m_untimedBehind = 0;
    /// A ring of the newest ones, once it is full.
    std::vector<Candidate> m_candidates;
    std::size_t m_oldest = 0;
};

}  // namespace KIVO::NEXNotify
