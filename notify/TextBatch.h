#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "module/JsonScan.h"

namespace KIVO::NEXNotify {

/// Copies of stored texts, a batch at a time. The processor is faster at one kind of work than at two by
/// turns: what reads the texts and what judges them.
class TextBatch {
public:
    /// Adds a copy of the text. False when there is no room beside the others; an empty batch takes any text.
    bool Add(std::string_view text) {
        const std::size_t size = text.size() + 1 + JsonScanner::kPadding;
        if (m_capacity - m_size < size) {
            if (!m_texts.empty()) {
                return false;
            }
            m_capacity = std::max(size, kCapacity);
            m_bytes.reset(new char[m_capacity]);
        }
        char* copy = m_bytes.get() + m_size;
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\n';
        m_size += text.size() + 1;
        m_texts.emplace_back(copy, text.size());
        return true;
    }

    /// In their order, each fit for JsonScanner::ScanPadded; valid until Clear.
    const std::vector<std::string_view>& Texts() const { return m_texts; }

    /// The same texts side by side, with a line feed behind each; "" when there are none.
    std::string_view Lines() const { return {m_bytes.get(), m_size}; }

    void Clear() {
        m_texts.clear();
        m_size = 0;
        if (m_capacity > kCapacity) {  // after a text of unusual size
            m_bytes.reset();
            m_capacity = 0;
        }
    }

private:
    static constexpr std::size_t kCapacity = std::size_t{16} * 1024;

    std::unique_ptr<char[]> m_bytes;
    std::size_t m_capacity = 0;
    std::size_t m_size = 0;
    std::vector<std::string_view> m_texts;
};

}  // namespace KIVO::NEXNotify
