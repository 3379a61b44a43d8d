#pragma once

namespace KIVO::Test {

/// How many allocations still succeed on this thread; negative for no limit. `operator new` and what SQLite
/// allocates count.
extern thread_local long allocationsLeft;

/// Whether only one allocation fails at the limit, and the later ones succeed again.
extern thread_local bool failsOnce;

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
