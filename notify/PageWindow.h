#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>

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
        if (m_candidates.size() == m_offset + m_pageSize) {
            DropOldest();
        }
        m_candidates.push_back({Keep(text), m_untimed});
        ++m_timed;
    }

    /// Adds one without a time, which is never listed.
    void AddUntimed() { ++m_untimed; }

    /// The number of notifications on the page.
    std::size_t Size() const { return m_candidates.size() > m_offset ? m_candidates.size() - m_offset : 0; }

    /// The text at a position of the page, ended by a NUL byte.
    const char* operator[](std::size_t position) const {
        return m_candidates[m_candidates.size() - 1 - m_offset - position].text;
    }

    /// The number of notifications that the client is told. One that gives no limit is told what it got. One
    /// that pages is told how far it can go, together with those without a time that are older than the first
    /// one behind the page: no one looked whether they can be listed.
    std::size_t Total() const { return m_hasLimit ? m_timed + m_untimedBehind : Size(); }

private:
    static constexpr std::size_t kDefaultPageSize = 30;
    static constexpr std::size_t kBlockSize = std::size_t{16} * 1024;

    struct Candidate {
        const char* text;
        std::size_t untimedBefore;  // how many without a time are older
    };

    /// Texts side by side: with an allocation of its own each, thousands of candidates would cost far more.
    struct Block {
        std::unique_ptr<char[]> texts;
        std::size_t capacity;
        std::size_t used = 0;
        std::size_t candidates = 0;
    };

    const char* Keep(std::string_view text) {
        const std::size_t size = text.size() + 1;
        if (m_blocks.empty() || m_blocks.back().capacity - m_blocks.back().used < size) {
            const std::size_t capacity = std::max(size, kBlockSize);
            m_blocks.push_back({std::unique_ptr<char[]>(new char[capacity]), capacity});
        }
        Block& block = m_blocks.back();
        char* kept = block.texts.get() + block.used;
        std::memcpy(kept, text.data(), text.size());
        kept[text.size()] = '\0';
        block.used += size;
        ++block.candidates;
        return kept;
    }

    void DropOldest() {
        m_untimedBehind = m_candidates.front().untimedBefore;
        m_candidates.pop_front();
        if (--m_blocks.front().candidates == 0) {
            m_blocks.pop_front();
        }
    }

    bool m_hasLimit;
    std::size_t m_pageSize;
    std::size_t m_offset;
    std::size_t m_timed = 0;
    std::size_t m_untimed = 0;
    /// How many without a time are older than the newest notification behind the page; 0 while there is none.
    std::size_t m_untimedBehind = 0;
    /// The newest ones, oldest first, and what holds their texts.
    std::deque<Candidate> m_candidates;
    std::deque<Block> m_blocks;
};

}  // namespace KIVO::NEXNotify
