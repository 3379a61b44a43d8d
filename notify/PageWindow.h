#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace KIVO::NEXNotify {

/// Picks a page, newest first, out of notifications that are given oldest first. It keeps the texts of the
/// newest ones alone, those of the page and those in front of it: what a page deep in the list needs grows
/// with offset and limit, never with what lies behind it.
class PageWindow {
public:
    /// A page of `limit` notifications behind the `offset` newest. A limit of 0 or less stands for 30, an
    /// offset below 0 for 0.
    PageWindow(int limit, int offset)
        : m_hasLimit(limit > 0),
          m_pageSize(m_hasLimit ? static_cast<std::size_t>(limit) : kDefaultPageSize),
          m_offset(static_cast<std::size_t>(std::max(offset, 0))) {}

    /// Adds one with a time.
    void AddTimed(std::string_view text) {
        ++m_timed;
        std::string kept;
        if (m_newest.size() == m_offset + m_pageSize) {
            m_untimedBehind = m_newest.front().untimedBefore;
            kept = std::move(m_newest.front().text);  // its memory
            m_newest.pop_front();
        }
        kept = text;
        m_newest.push_back({std::move(kept), m_untimed});
    }

    /// Adds one without a time, which is never on a page.
    void AddUntimed() { ++m_untimed; }

    /// The number of notifications on the page.
    std::size_t Size() const { return m_newest.size() > m_offset ? m_newest.size() - m_offset : 0; }

    /// The text at a position of the page.
    const std::string& operator[](std::size_t position) const {
        assert(position < Size());
        return m_newest[m_newest.size() - 1 - m_offset - position].text;
    }

    /// The number of notifications that the client is told. One that gives no limit is told what it got. One
    /// that pages is told how far it can go, together with those without a time that are older than the first
    /// one behind the page: no one looked whether they have one.
    std::size_t Total() const { return m_hasLimit ? m_timed + m_untimedBehind : Size(); }

private:
    static constexpr std::size_t kDefaultPageSize = 30;

    struct Timed {
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
    /// Of those with a time, oldest first.
    std::deque<Timed> m_newest;
};

}  // namespace KIVO::NEXNotify
