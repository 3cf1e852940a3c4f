// The platform seam for one question: has somebody this file open for writing? One source per platform answers it.
#pragma once

#include "core/system_error.h"

namespace tabulo::internal {

enum class WriterPresence { yes, no, unknown };

// Told from the system's list of locks, without taking one: a lock that is taken to look, and be it for a moment, can
// refuse a writer that is just starting. `unknown` where there is no such list, or where it says nothing although
// somebody may write: a file on a network, or processes that this one cannot see. The error is that of a file that
// cannot be looked at.
SystemError writerPlatform_find(const char* path, WriterPresence* presence) noexcept;

}  // namespace tabulo::internal
