// The platform seam for one question: may other machines use the files of this file system? Their locks, and what they
// write, are not told to this one.
#pragma once

namespace tabulo::internal {

// Of an open file, and of a path. True also where the system does not answer.
bool networkPlatform_isShared(int descriptor) noexcept;
bool networkPlatform_isShared(const char* path) noexcept;

}  // namespace tabulo::internal
