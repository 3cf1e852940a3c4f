// Makes one allocation of this process fail, to see what an operation does without memory.
#pragma once

#include <cstdint>

namespace tabulo::test {

// While the object lives, the n-th allocation with `new` from its construction on fails (1 is the next one). Keep
// nothing but the operation under test in its scope: a test's own allocations count too.
class AllocationFailure {
  public:
    explicit AllocationFailure(std::int64_t n);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;
};

}  // namespace tabulo::test
