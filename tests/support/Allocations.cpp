#include "tests/support/Allocations.h"

#include <sqlite3.h>

#include <cstdlib>
#include <new>

namespace {

using namespace KIVO::Test;

/// False when an allocation is to fail.
bool MayAllocate() {
    if (allocationsLeft == 0) {
        allocationsLeft = failsOnce ? -1 : 0;
        return false;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    return true;
}

/// Makes SQLite's allocations count. It takes that before its first use only.
[[maybe_unused]] const int g_sqliteLimit = [] {
    static sqlite3_mem_methods real;
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &real);
    sqlite3_mem_methods limited = real;
    limited.xMalloc = [](int size) { return MayAllocate() ? real.xMalloc(size) : nullptr; };
    limited.xRealloc = [](void* block, int size) {
        return MayAllocate() ? real.xRealloc(block, size) : nullptr;
    };
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &limited);
}();

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return MayAllocate() ? std::malloc(size != 0 ? size : 1) : nullptr;
}

void* operator new(std::size_t size) {
    if (void* block = operator new(size, std::nothrow)) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }

void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
