#pragma once

namespace KIVO::Test {

/// How many calls of `operator new` still succeed on this thread; negative for no limit.
extern thread_local long allocationsLeft;

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
