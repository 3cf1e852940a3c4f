// Reading one block: its place, whether it is closed, and its summary.
//
// Every length from the file is checked before it is used: a closed block's length B satisfies
// 8 + footerSize + messagesPerBlock x smallest frame <= B <= what is there. Reads are absolute and fresh, so that a
// writer in another process may append, close blocks and rewrite length words meanwhile.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/frame_cursor.h"
#include "messagetable/message_frames.h"

namespace tabulo::internal {

// A block as the reader sees it; its ranges, filters and static indexes are in the frame reader's summary.
struct BlockView {
    std::int64_t start = 0;
    bool closed = false;
    bool tornWord = false;  // the leading length word is torn (mfr_isTornLengthWord), the footer tells the length
    std::int32_t messageCount = 0;  // messagesPerBlock, or the complete frames of an open block
    std::int64_t frameBytes = 0;
    // Why the scan of an open block ended before messagesPerBlock frames: NO_DATA_ERROR at the end of the data, or
    // CONSISTENCY_ERROR at a frame that does not decode.
    ErrorCode scanEnd = NO_ERROR;
};

// File offsets of a block's first frame, of the end of its frames, and of the block that follows.
std::int64_t blockView_framesStart(const BlockView& block) noexcept;
std::int64_t blockView_framesEnd(const BlockView& block) noexcept;
std::int64_t blockView_next(const BlockView& block, const MessageFrames* mfr) noexcept;

// True when a block of this length can stand where `available` bytes are.
bool mfr_isBlockLength(const MessageFrames* mfr, std::uint64_t length, std::int64_t available) noexcept;

// True when `word`, at a file offset, is not `length` but what a writer that was stopped has left of it: the part in
// front of a page boundary or the part behind it, and zero bytes. A write is whole within a page. A reader beside a
// writer can see it too.
bool mfr_isTornLengthWord(std::int64_t offset, std::uint64_t word, std::uint64_t length) noexcept;

// Reads the block at blockStart into the summary. NO_DATA_ERROR: fewer than 8 bytes stand there, or the block is open
// and scanOpen is not set; with scanOpen its frames are scanned into the emptied summary (the static indexes go on from
// what they are). In a walk forward a closed block costs one read. A block whose length word is torn is closed when all
// its frames stand there and its footer repeats a length that the word is a part of. HEADER_CORRUPTED_ERROR: an
// impossible length, or a footer that does not fit; CONSISTENCY_ERROR: an unknown numeric type in a footer.
// FILE_READ_ERROR, SYSTEM_FILE_ERROR, OUT_OF_MEMORY_ERROR.
ErrorCode mfr_readBlockFooter(MessageFrames* mfr, TableFile* file, std::int64_t blockStart, bool scanOpen,
                              BlockView* block) noexcept;

// Empties the summary (keeping the static indexes) and reads frames from framesStart on into it: at most
// messagesPerBlock, none behind `end`. *scanEnd tells what stopped it, NO_ERROR when the block is full. The result is
// NO_ERROR or a read or memory error.
ErrorCode mfr_scanFrames(MessageFrames* mfr, TableFile* file, std::int64_t framesStart, std::int64_t end,
                         ErrorCode* scanEnd) noexcept;

// Goes on with a scan that has found messages: adds the frames behind them, up to `end`, and sets *same. When the
// message that the scan added last is no longer there, the file was dropped and filled again: *same is false then and
// nothing is added.
ErrorCode mfr_continueScan(MessageFrames* mfr, TableFile* file, std::int64_t framesStart, std::int64_t end,
                           ErrorCode* scanEnd, bool* same) noexcept;

// Reads the block that ends at blockEnd, told by its trailing length: with two reads, of its footer and its length
// word. A block whose length word says something else is read as mfr_readBlockFooter does. HEADER_CORRUPTED_ERROR also
// when the trailing length is impossible.
ErrorCode mfr_readPreviousBlock(MessageFrames* mfr, TableFile* file, std::int64_t blockEnd, bool scanOpen,
                                BlockView* block) noexcept;

// Brings the static indexes to what they were at lastBlockEnd: those of the closed block that ends there, or the
// initial ones at the header's end. A torn length word counts as damage here.
ErrorCode mfr_loadPreviousFooter(MessageFrames* mfr, TableFile* file, std::int64_t lastBlockEnd) noexcept;
// Reads the block at lastBlockEnd into the summary: by its footer when it turns out to be closed and all there, frame
// by frame otherwise. Nothing there is an open block without messages. A read or memory error is returned.
ErrorCode mfr_loadOpenBlock(MessageFrames* mfr, TableFile* file, std::int64_t lastBlockEnd, BlockView* block) noexcept;

}  // namespace tabulo::internal
