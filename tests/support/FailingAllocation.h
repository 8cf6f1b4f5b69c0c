#pragma once

#include <cstddef>

namespace kennly::test {

/// Makes operator new throw std::bad_alloc on this thread, for as long as the object lives: at the
/// allocation number `index` (counted from 0) and at every one after it.
///
/// Replaces the global operator new and delete of the whole test program.
class FailingAllocation {
public:
    explicit FailingAllocation(std::size_t index);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether an allocation was refused.
    bool HasFailed() const;
};

/// As FailingAllocation, but only the allocation with that number fails; those after it succeed.
class FailingOnceAllocation {
public:
    explicit FailingOnceAllocation(std::size_t index);
    ~FailingOnceAllocation();
    FailingOnceAllocation(const FailingOnceAllocation&) = delete;
    FailingOnceAllocation& operator=(const FailingOnceAllocation&) = delete;

    bool HasFailed() const;
};

}  // namespace kennly::test
