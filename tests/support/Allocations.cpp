#include "tests/support/Allocations.h"

#include <dlfcn.h>
#include <sqlite3.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string_view>

#ifdef __has_feature
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__  // NOLINT(bugprone-reserved-identifier): by which gcc tells it
#endif
#endif

#ifdef __SANITIZE_ADDRESS__
#define LIBRARY_MALLOC std::malloc  // the sanitizer's, whose place no program can take
#else
#define LIBRARY_MALLOC __libc_malloc
extern "C" void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier): the C library's
#endif

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

#ifndef __SANITIZE_ADDRESS__
/// Whether what is allocated at the place in the code counts: in this program, of which the module is a part,
/// and in the JSON library. (SQLite's calls have been counted; GLib ends the process when one fails.)
bool Counts(const void* caller) {
    static const void* const program = [] {
        Dl_info self = {};
        dladdr(reinterpret_cast<const void*>(&MayAllocate), &self);
        return self.dli_fbase;
    }();
    Dl_info file = {};
    return dladdr(caller, &file) != 0 &&
           (file.dli_fbase == program ||
            std::string_view(file.dli_fname).find("/libjsoncpp.") != std::string_view::npos);
}
#endif

}  // namespace

#ifndef __SANITIZE_ADDRESS__
extern "C" void* malloc(std::size_t size) {
    if (allocationsLeft >= 0 && Counts(__builtin_return_address(0)) && !MayAllocate()) {
        errno = ENOMEM;
        return nullptr;
    }
    return LIBRARY_MALLOC(size);
}
#endif

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return MayAllocate() ? LIBRARY_MALLOC(size != 0 ? size : 1) : nullptr;
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
