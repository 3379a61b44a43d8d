#pragma once

#include <cstddef>
#include <functional>

namespace KIVO::Bench {

struct MemoryUse {
    std::size_t allocations = 0;
    /// The greatest amount held at once, beyond what was held before.
    std::size_t peakBytes = 0;
    /// What the process holds afterwards.
    std::size_t heldBytes = 0;
};

/// What one call of the function allocates. A program that links this has a malloc of its own, which sees
/// every block to the byte, those of SQLite and GLib included; the process's resident memory would show whole
/// pages, and pages that the allocator keeps. Not for programs with more than one thread.
MemoryUse CountMemory(const std::function<void()>& function);

}  // namespace KIVO::Bench
