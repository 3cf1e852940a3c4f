// What recovery has saved beside a table.
#pragma once

#include <cstddef>
#include <string>

#include "tests/support/memory_platform.h"

namespace tabulo::internal::test {

// A file "<path>.cut-<offset>" holds these bytes, which stood at `start` of the table at `path`.
bool isSavedBeside(const MemoryPlatform& platform, const std::string& path, const Bytes& bytes, std::size_t start);

}  // namespace tabulo::internal::test
