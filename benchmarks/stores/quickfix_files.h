// QuickFIX's FileStore behind functions that need nothing of C++17 or later: its headers are written for C++14, and
// quickfix_files.cpp is compiled as that.
#pragma once

#include <cstddef>

namespace tabulo::internal {
namespace bench {

void* quickfixFiles_open(const char* directory);
// False when the store refuses.
bool quickfixFiles_set(void* files, int seqNum, const char* text, std::size_t length);
void quickfixFiles_close(void* files);
// Hands on the messages, which the callee may change, of a range of sequence numbers until `take` returns false,
// backward from the last if wanted. False when the store refuses.
bool quickfixFiles_get(void* files, int first, int last, bool backward,
                       bool (*take)(void* context, char* text, std::size_t length), void* context);

}  // namespace bench
}  // namespace tabulo::internal
