// Makes allocations of this process fail, to see what an operation does without memory, and counts what was not freed.
#pragma once

#include <cstdint>

namespace tabulo::internal::test {

// While the object lives, the n-th allocation with `new` from its construction on fails (1 is the next one). Keep
// nothing but the operation under test in its scope: a test's own allocations count too.
class AllocationFailure {
  public:
    explicit AllocationFailure(std::int64_t n);
    // The same, and with `goesOn` every allocation behind it fails too.
    AllocationFailure(std::int64_t n, bool goesOn);
    static AllocationFailure fromThenOn(std::int64_t n) { return AllocationFailure(n, true); }
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    // True once an allocation has failed.
    bool happened() const;
};

// What this thread has allocated with `new` and not deleted yet, in pieces.
std::int64_t liveAllocations();

}  // namespace tabulo::internal::test
