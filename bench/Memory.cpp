#include "bench/Memory.h"

#include <malloc.h>

#include <algorithm>
#include <cerrno>

namespace KIVO::Bench {

namespace {

std::size_t g_allocations = 0;
std::size_t g_heldBytes = 0;
std::size_t g_peakBytes = 0;

void* CountNew(void* block) {
    if (block != nullptr) {
        ++g_allocations;
        g_heldBytes += malloc_usable_size(block);
        g_peakBytes = std::max(g_peakBytes, g_heldBytes);
    }
    return block;
}

void CountOld(void* block) { g_heldBytes -= malloc_usable_size(block); }

}  // namespace

MemoryUse CountMemory(const std::function<void()>& function) {
    g_allocations = 0;
    g_peakBytes = g_heldBytes;
    const std::size_t heldBefore = g_heldBytes;
    function();
    return {g_allocations, g_peakBytes - heldBefore, g_heldBytes};
}

}  // namespace KIVO::Bench

using KIVO::Bench::CountNew;
using KIVO::Bench::CountOld;

// The C library's allocator under the names that it keeps for replacements such as these.
extern "C" {

void* __libc_malloc(size_t size);                      // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(size_t alignment, size_t size);  // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* block);                         // NOLINT(bugprone-reserved-identifier)

#define REPLACEMENT __attribute__((visibility("default")))

REPLACEMENT void* malloc(size_t size) { return CountNew(__libc_malloc(size)); }

REPLACEMENT void* calloc(size_t count, size_t size) { return CountNew(__libc_calloc(count, size)); }

REPLACEMENT void* realloc(void* block, size_t size) {
    CountOld(block);
    return CountNew(__libc_realloc(block, size));
}

REPLACEMENT void* memalign(size_t alignment, size_t size) {
    return CountNew(__libc_memalign(alignment, size));
}

REPLACEMENT void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

REPLACEMENT int posix_memalign(void** block, size_t alignment, size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

REPLACEMENT void free(void* block) {
    CountOld(block);
    __libc_free(block);
}

}  // extern "C"
