// What decides about a block whose length word is seen as 0 (block_cursor.h has the rule).
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_reader.h"
#include "messagetable/header_tail.h"

namespace tabulo::internal {

// The header's tail, the block's length word and the file's size, read in this order: a writer patches the word before
// it saves the tail.
struct BlockLook {
    TailRecords tail;
    std::uint64_t word = 0;
    std::int64_t size = 0;
};

// Reads the tail of the reader's file. One that cannot be read whole tells of no closed block. The codes of
// tableFileReadAt.
ErrorCode blockLook_readTail(const BlockReader& reader, TableFile* file, TailRecords* tail) noexcept;
// Reads what decides about the block at `start`. The codes of tableFileReadAt and tableFileGetSize.
ErrorCode blockLook_read(const BlockReader& reader, TableFile* file, std::int64_t start, BlockLook* seen) noexcept;
// Sets *closed when the tail knows the block at `start` as closed: L lies behind it. L itself has to be the end of a
// block. The codes of tableFileReadAt.
ErrorCode blockLook_isClosed(const BlockReader& reader, TableFile* file, std::int64_t start, const BlockLook& seen,
                             bool* closed) noexcept;
// Sets *inside when `place` lies inside a block of the file as it is now, told by the length words from the header's
// end on, and by its frames for the open one: then the file was dropped and filled again, and no block begins there.
// The codes of frameCursor_next but for damage.
ErrorCode blockLook_liesInside(BlockReader& reader, TableFile* file, std::int64_t place, const BlockLook& seen,
                               bool* inside) noexcept;

}  // namespace tabulo::internal
