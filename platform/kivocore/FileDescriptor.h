#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <unistd.h>

#include <chrono>
#include <utility>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// Owns an open descriptor; -1 for none.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { Close(); }

    /// Closes it early; nothing when it is none.
    void Close() noexcept {
        if (m_descriptor >= 0) {
            close(std::exchange(m_descriptor, -1));
        }
    }

    bool IsOpen() const { return m_descriptor >= 0; }
    int Get() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// Takes the exclusive flock on the file. False, with errno set, when others have it for longer.
[[nodiscard]] KIVO_PUBLIC bool LockWithin(const FileDescriptor& file, std::chrono::milliseconds longest);

}  // namespace KIVO::Appliance
