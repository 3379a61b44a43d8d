#pragma once

namespace KIVO::Test {

/// How many allocations still succeed on this thread, negative for no limit: those by `operator new`, by
/// SQLite and, where AddressSanitizer is not built in, by `malloc` in the module and the JSON library.
inline thread_local long allocationsLeft = -1;

/// Whether only one allocation fails at the limit, and the later ones succeed again.
inline thread_local bool failsOnce = false;

/// Lets a further number of calls succeed, for as long as the object lives.
class AllocationLimit {
public:
    explicit AllocationLimit(long count) : m_before(allocationsLeft) { allocationsLeft = count; }
    ~AllocationLimit() { allocationsLeft = m_before; }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;

private:
    long m_before;
};

}  // namespace KIVO::Test
