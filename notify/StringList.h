#pragma once

#include <cassert>
#include <optional>
#include <string>

#include "kivocore/file.h"
#include "kivocore/list.h"

namespace KIVO::NEXNotify {

/// A string list of the core library, released at the end of its life. False when it could not be had.
class StringList {
public:
    StringList() : m_list(KLIBCSzListAlloc(kCapacity)) {}
    ~StringList() {
        if (m_list != nullptr) {
            KLIBCSzListFree(m_list);
        }
    }
    StringList(const StringList&) = delete;
    StringList& operator=(const StringList&) = delete;

    explicit operator bool() const { return m_list != nullptr; }

    /// Adds the section names of the sectioned file. Their number; nothing when it cannot be read.
    [[nodiscard]] std::optional<int> AddSections(const std::string& path) {
        assert(m_list != nullptr);
        const int count = KLIBCFileEnumSection(path.c_str(), &m_list);
        return count >= 0 ? std::optional(count) : std::nullopt;
    }

    const char* operator[](int index) const { return KLIBCSzListGet(m_list, index); }
    bool Contains(const std::string& text) const { return KLIBCSzListFind(m_list, text.c_str()) >= 0; }

private:
    static constexpr int kCapacity = 1024;

    KLIBCSzList* m_list;
};

}  // namespace KIVO::NEXNotify
