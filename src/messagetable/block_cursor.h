// Steps through the blocks of a table file, forward or backward. Everybody who reads a table steps with it: each rule
// about where a block begins, whether it is closed and where it ends stands here.
//
// A block's length word is 0 until the block is closed. A block whose length word is not 0 is closed, and its footer
// repeats the length; where they disagree, a word that a stopped writer has torn at a page boundary is recognised by
// the frames and the footer, and anything else is damage.
//
// A length word of 0 at P says "open", unless it was damaged. The block's frames are read first. When they reach the
// file's end the block is open. Otherwise these are read, in this order: the header's tail, the word, the size and the
// frames again (a writer patches the word before it saves the tail, so a tail that knows the block as closed has come
// after the word). A word that is no longer 0 decides. Otherwise the block is closed when P lies before L, or when a
// valid trailing length has led to P from behind; L is the tail's lastBlockEnd when that lies within the file and
// behind a valid trailing length, else the header's end. A closed block
//   - with exactly messagesPerBlock whole frames and a footer that parses and repeats 8 + frames + footerSize has a
//   torn
//     length word, and is read by its footer;
//   - is damaged otherwise, unless a second look shows that the table was dropped meanwhile.
// A block that is not closed is the open block. What stands behind its last whole frame must be what a crash or a
// writer at work leaves there (torn_tail.h), or the beginning of a full block's footer; anything else is damage, too.
//
// Recovery, and whoever checks a header's tail, do not let that tail judge: to them a word of 0 is an open block.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_reader.h"
#include "storage/table_file.h"

namespace tabulo::internal {

enum class BlockState {
    none,     // no block stands here: the data ends, or has not come so far yet
    open,     // the block that messages are being appended to
    closed,   // told by its length word and its footer, which is in the reader's summary
    torn,     // as closed, but the length word is torn: the footer alone tells
    damaged,  // closed, and neither its word nor its footer tells what it is
    gone,     // the table was dropped under the cursor: the place means nothing any more
};

struct Block {
    std::int64_t start = 0;  // file offset of the length word
    BlockState state = BlockState::none;
    // Messages: messagesPerBlock for closed and torn, the whole frames for an open block that was scanned, those that
    // could be read in front of the damage for a damaged one.
    std::int32_t messageCount = 0;
    // File offset behind the last frame; behind the last whole one for open and damaged blocks. For a damaged block
    // that was reached from behind it is the footer's front: its frames can be read from there down to the damage.
    std::int64_t framesEnd = 0;
    // damaged: the code to tell it by. open: CONSISTENCY_ERROR when what follows the frames is damage, else NO_ERROR.
    ErrorCode damage = NO_ERROR;
};

inline std::int64_t block_framesStart(const Block& block) noexcept {
    return block.start + BLOCK_LENGTH_SIZE;
}
inline bool block_isClosed(const Block& block) noexcept {
    return block.state == BlockState::closed || block.state == BlockState::torn;
}

struct BlockCursor {
    // What a step does about an open block: leaves it unread (messageCount 0), or scans it into the reader's summary
    // (whose static indexes go on from what they are).
    enum class OpenBlocks { unread, scanned };
    // What a length word of 0 means: judged by the header's tail, or always an open block.
    enum class ZeroWords { judged, open };

    BlockReader* reader = nullptr;  // borrowed; its summary is that of the block at hand
    OpenBlocks openBlocks = OpenBlocks::scanned;
    ZeroWords zeroWords = ZeroWords::judged;
    std::int64_t position = 0;  // where the next block begins, or the one that is not complete yet
    Block block;                // the block at hand
};

// A cursor whose next step forward reads the block at `position`.
BlockCursor blockCursor_at(BlockReader* reader, std::int64_t position, BlockCursor::OpenBlocks openBlocks,
                           BlockCursor::ZeroWords zeroWords) noexcept;

// Reads the block behind the one at hand; the same one again while that is not complete (open and not full, full
// without its whole footer, or none). Damage is a state, not an error. FILE_READ_ERROR, SYSTEM_FILE_ERROR,
// OUT_OF_MEMORY_ERROR.
ErrorCode blockCursor_next(BlockCursor* cursor, TableFile* file) noexcept;
// Reads the block that ends where the one at hand begins, told by its trailing length: with two reads, of its footer
// and its length word. Codes as blockCursor_next.
ErrorCode blockCursor_previous(BlockCursor* cursor, TableFile* file) noexcept;
// Looks again at the block at hand, which was read as open and whose frames were found not to reach the file's end.
// Scans it; codes as blockCursor_next.
ErrorCode blockCursor_refresh(BlockCursor* cursor, TableFile* file) noexcept;
// Adds to a scanned open block what has been appended to it since. *same is false, and nothing is added, when its last
// message is no longer there: the table was dropped. The file's size was asked just before. Codes as blockCursor_next.
ErrorCode blockCursor_grow(BlockCursor* cursor, TableFile* file, bool* same) noexcept;

// Brings the reader's static indexes to what they were at lastBlockEnd: those of the closed block that ends there, or
// the initial ones at the header's end. A torn length word counts as damage here, and one of 0 as open.
// HEADER_CORRUPTED_ERROR, CONSISTENCY_ERROR; codes as blockCursor_next.
ErrorCode mfr_loadPreviousFooter(BlockReader* reader, TableFile* file, std::int64_t lastBlockEnd) noexcept;
// Reads the block at the cursor's position into the summary: by its footer when it turns out to be closed and all
// there, frame by frame otherwise, whatever its length word says; only a block with a length word of 0 that is damaged
// stays damaged. Nothing there is a block without messages. Codes as blockCursor_next.
ErrorCode mfr_loadOpenBlock(BlockCursor* cursor, TableFile* file) noexcept;

}  // namespace tabulo::internal
