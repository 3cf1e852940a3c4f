// A process that kills or stops itself at one of its calls to the file system.
#pragma once

#include <cstdint>

namespace tabulo::internal::test {

// From now on until the process ends, call number `call` (from 1 on) that changes a file or its lock is the last one:
// it is not done, done, or, for a write across pages, done up to the end of one of its pages, which is what the system
// leaves of a write that a kill cuts short. `random` decides. For a child of its own.
void killAtCall(int call, std::uint64_t random);
// The process stops itself (SIGSTOP) before or behind one in `every` of the same calls, at random, and goes on when it
// is continued.
void stopAtCalls(int every, std::uint64_t random);

}  // namespace tabulo::internal::test
