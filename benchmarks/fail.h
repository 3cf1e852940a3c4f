// The end of a benchmark that cannot go on.
#pragma once

#include <string>

namespace tabulo::internal::bench {

// Says what went wrong on standard error and ends the process with status 1.
[[noreturn]] void fail(const std::string& what);

}  // namespace tabulo::internal::bench
