// What a run under faults may not keep, and how many of its expectations have failed.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace tabulo::internal::test {

inline std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

// In the running test.
inline int failureCount() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

}  // namespace tabulo::internal::test
