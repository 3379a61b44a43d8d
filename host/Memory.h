#pragma once

#include <sys/resource.h>

#include <cstddef>

#include "platform/kivocore/FileDescriptor.h"

namespace KIVO::Host {

/// Begins the program anew, with `arguments` as main got them, unless GLIBC_TUNABLES is set: only then does
/// the C library read how it is to allocate. An answer's tree takes hundreds of blocks of a size, of which
/// the library would keep seven at hand, and a long list is best kept in large pages.
void TuneAllocation(char* const arguments[]);

/// Lets the process keep the memory that a request frees for the next one, which needs much the same: given
/// back to the system it costs a page fault for every page.
void KeepFreedMemory();

/// Lets the process map at most two gibibytes more than now; what would take more fails.
void LimitMemory();

/// Raises or lowers the limit of open descriptors to this many. Warns when it must stay lower.
void LimitDescriptors(rlim_t count);

/// Gives back what a large request leaves behind: more than the next ones need.
class MemoryTrimmer {
public:
    MemoryTrimmer();

    /// Gives back what is free when the process is 16 MiB larger than in the beginning, or than what
    /// was in use at the last time.
    void Trim();

private:
    Appliance::FileDescriptor m_status;
    std::size_t m_pagesKept;
};

}  // namespace KIVO::Host
