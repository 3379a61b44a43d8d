#include "host/Memory.h"

#include <malloc.h>

namespace KIVO::Host {

namespace {

// The largest threshold that the C library accepts: what is larger is given back.
constexpr int kLargestKeptBlock = 32 << 20;
constexpr int kMostKeptMemory = 64 << 20;

}  // namespace

void KeepFreedMemory() {
    mallopt(M_MMAP_THRESHOLD, kLargestKeptBlock);
    mallopt(M_TRIM_THRESHOLD, kMostKeptMemory);
}

}  // namespace KIVO::Host
