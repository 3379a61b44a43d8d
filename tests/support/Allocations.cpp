#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

namespace KIVO::Test {

thread_local long allocationsLeft = -1;

}  // namespace KIVO::Test

using KIVO::Test::allocationsLeft;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (allocationsLeft == 0) {
        return nullptr;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    return std::malloc(size != 0 ? size : 1);
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
