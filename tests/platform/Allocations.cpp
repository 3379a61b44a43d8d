#include "tests/platform/Allocations.h"

#include <cstdlib>
#include <new>

namespace KIVO::Test {

thread_local long allocationsLeft = -1;

}  // namespace KIVO::Test

using KIVO::Test::allocationsLeft;

void* operator new(std::size_t size) {
    if (allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    if (void* block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }
