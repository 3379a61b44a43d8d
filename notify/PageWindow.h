#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <string_view>

namespace KIVO::NEXNotify {

/// Picks a page, newest first, out of notifications that are given oldest first. Of all of them it keeps the
/// texts of those alone that may still be on the page, or in front of it. When those become too many, it only
/// counts them, and has to be given all of them once more.
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
        if (m_timed++ >= m_end || m_countsOnly || !MakeRoom(text.size() + 1)) {
            return;
        }
        std::memcpy(m_next, text.data(), text.size());
        m_next[text.size()] = '\0';
        m_candidates.push_back({m_next, m_untimed});
        ++m_blocks.back().candidates;
        m_next += text.size() + 1;
        if (m_candidates.size() > m_offset + m_pageSize) {
            DropOldest();
        }
    }

    /// Adds one without a time, which is never listed.
    void AddUntimed() { ++m_untimed; }

    /// Whether all notifications have to be given once more; if so, it is ready for them. What comes or goes
    /// meanwhile moves the page, as it does between two requests.
    bool StartsOver() {
        const bool isNeeded = m_countsOnly && m_timed > m_offset;
        if (isNeeded) {
            // Now it is known where the page ends, and the newer ones need not be kept.
            m_end = m_timed - m_offset;
            m_offset = m_timed = m_untimed = m_untimedBehind = 0;
            m_countsOnly = false;
        }
        return isNeeded;
    }

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
    /// Of texts that are kept in front of a page. Reading all of them twice costs less than memory without a
    /// limit, of which the client alone says how much.
    static constexpr std::size_t kMostMemory = std::size_t{24} * 1024 * 1024;

    struct Candidate {
        const char* text;
        std::size_t untimedBefore;  // how many without a time are older
    };

    /// Texts side by side: with an allocation of its own each, thousands of candidates would cost far more.
    struct Block {
        std::unique_ptr<char[]> texts;
        std::size_t capacity;
        std::size_t candidates = 0;
    };

    /// Makes so many bytes at m_next free to write. False when that would be too much to keep; from then on
    /// all are only counted.
    bool MakeRoom(std::size_t size) {
        if (static_cast<std::size_t>(m_blockEnd - m_next) >= size) {
            return true;
        }
        const std::size_t capacity = std::max(size, kBlockSize);
        m_countsOnly = m_offset > 0 && m_memory + capacity > kMostMemory;
        if (m_countsOnly) {
            m_candidates.clear();
            m_blocks.clear();
            m_memory = 0;
            m_next = m_blockEnd = nullptr;
            return false;
        }
        std::unique_ptr<char[]> texts(new char[capacity]);
        m_next = texts.get();
        m_blockEnd = m_next + capacity;
        m_blocks.push_back({std::move(texts), capacity});
        m_memory += capacity;
        return true;
    }

    void DropOldest() {
        m_untimedBehind = m_candidates.front().untimedBefore;
        m_candidates.pop_front();
        Block& block = m_blocks.front();
        if (--block.candidates == 0) {
            m_memory -= block.capacity;
            m_blocks.pop_front();
        }
    }

    bool m_hasLimit;
    std::size_t m_pageSize;
    std::size_t m_offset;
    /// Of those that can be listed, the first that is newer than the page.
    std::size_t m_end = std::numeric_limits<std::size_t>::max();
    bool m_countsOnly = false;
    std::size_t m_timed = 0;
    std::size_t m_untimed = 0;
    /// How many without a time are older than the newest notification behind the page; 0 while there is none.
    std::size_t m_untimedBehind = 0;
    /// The newest ones, oldest first, and what holds their texts.
    std::deque<Candidate> m_candidates;
    std::deque<Block> m_blocks;
    std::size_t m_memory = 0;  // of all blocks
    /// Where the next text comes, and where the last block ends.
    char* m_next = nullptr;
    char* m_blockEnd = nullptr;
};

}  // namespace KIVO::NEXNotify
