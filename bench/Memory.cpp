#include "bench/Memory.h"

#include <malloc.h>

#include <algorithm>
#include <cerrno>

namespace KIVO::Bench {

namespace {

bool g_isCounting = false;
MemoryUse g_use;
std::ptrdiff_t g_heldBytes = 0;

void* CountNew(void* block) {
    if (g_isCounting && block != nullptr) {
        ++g_use.allocations;
        g_heldBytes += static_cast<std::ptrdiff_t>(malloc_usable_size(block));
        g_use.peakBytes =
            std::max(g_use.peakBytes, static_cast<std::size_t>(std::max<std::ptrdiff_t>(g_heldBytes, 0)));
    }
    return block;
}

void CountOld(void* block) {
    if (g_isCounting) {
        g_heldBytes -= static_cast<std::ptrdiff_t>(malloc_usable_size(block));
    }
}

}  // namespace

MemoryUse CountMemory(const std::function<void()>& function) {
    g_use = {};
    g_heldBytes = 0;
    g_isCounting = true;
    function();
    g_isCounting = false;
    return g_use;
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
