// Reads the parts of one block: its length word, its footer and its frames. Which blocks there are, and what each of
// them is, block_cursor.h decides.
//
// Every length from the file is checked before it is used: a closed block's length B satisfies
// 8 + footerSize + messagesPerBlock x smallest frame <= B <= what is there. Reads are absolute and fresh, so that a
// writer in another process may append, close blocks and rewrite length words meanwhile.
//
// Footers and frames are read into streams of their own, so that the filters of a footer, which are asked in place,
// stand as long as nothing but frames is read.
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "core/handle.h"
#include "messagetable/block_summary.h"
#include "storage/table_file.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

struct BlockReader {
    TableStorage* storage = nullptr;  // borrowed
    MessageTableLayout layout;
    std::int32_t footerSize = 0;
    ByteStreamPtr footer;  // the footer that was read last
    ByteStreamPtr frames;  // the piece of frames that was read last
    BlockSummary summary;  // of the block that was read last
    // What stands behind the footer last read: the start of the next block and its length word, so that a walk forward
    // reads each closed block's summary with one read. 0 is not known.
    std::int64_t nextBlockStart = 0;
    std::uint64_t nextBlockLength = 0;
    // The message that a scan of an open block added last, by which a later scan knows that it goes on in the same
    // block.
    MessageMetadata lastScanned;
    std::int32_t lastScannedLength = 0;  // of its frame
};

// A reader over a storage, owned by the caller, with an empty summary. Null for an impossible layout or when memory is
// short. The first one writes to the debug log, like mfr_create, and serves whoever walks; the second is for what a
// table does on its own.
BlockReader* mfr_createReader(TableStorage* storage, const MessageTableLayout& layout) noexcept;
BlockReader* blockReader_create(TableStorage* storage, const MessageTableLayout& layout) noexcept;
// Frees it; null is accepted.
void blockReader_destroy(BlockReader* reader) noexcept;
using BlockReaderPtr = Handle<BlockReader, blockReader_destroy>;

// True when a block of this length can stand where `available` bytes are.
bool blockReader_isLength(const BlockReader& reader, std::uint64_t length, std::int64_t available) noexcept;
// True when `word`, at a file offset, is not `length` but what a writer that was stopped has left of it: the part in
// front of a page boundary or the part behind it, and zero bytes. A write is whole within a page. A reader beside a
// writer can see it too.
bool lengthWord_isTorn(std::int64_t offset, std::uint64_t word, std::uint64_t length) noexcept;

// Reads the length word at `offset`. NO_DATA_ERROR: fewer than 8 bytes stand there; the codes of tableFileReadAt.
ErrorCode blockReader_readWord(TableFile* file, std::int64_t offset, std::uint64_t* word) noexcept;
// Reads the footer of the closed block at `start` that has this length into the summary, and the length word behind it
// along, if it is there. HEADER_CORRUPTED_ERROR: an impossible length, or a footer that does not fit or repeats another
// length; CONSISTENCY_ERROR: an unknown numeric type in the footer. The codes of reading; OUT_OF_MEMORY_ERROR.
ErrorCode blockReader_readFooter(BlockReader* reader, TableFile* file, std::int64_t start,
                                 std::uint64_t length) noexcept;
// Reads the bytes of the footer that ends at `end`, and sets *length to what stands last in them.
// HEADER_CORRUPTED_ERROR when fewer bytes are there.
ErrorCode blockReader_readFooterBefore(BlockReader* reader, TableFile* file, std::int64_t end,
                                       std::uint64_t* length) noexcept;
// Takes the footer whose bytes were just read, of a block of this length, into the summary. Codes as
// blockReader_readFooter.
ErrorCode blockReader_takeFooter(BlockReader* reader, std::uint64_t length) noexcept;
// The length of the block that starts at a torn length word, told by its frames and its footer; 0 when the word is
// something else. The codes of reading; OUT_OF_MEMORY_ERROR.
ErrorCode blockReader_findTornLength(BlockReader* reader, TableFile* file, std::int64_t start, std::uint64_t word,
                                     std::uint64_t* length) noexcept;

// What was read of frames is not looked at any more: the memory of a large message is not kept for the next one.
void blockReader_forgetFrames(BlockReader* reader) noexcept;
// Empties the summary (keeping the static indexes) and reads frames from framesStart on into it: at most
// messagesPerBlock, none behind `end`. *scanEnd tells what stopped it: NO_ERROR when the block is full, NO_DATA_ERROR
// when no complete frame follows, CONSISTENCY_ERROR at a frame that does not decode. The result is NO_ERROR or a read
// or memory error.
ErrorCode blockReader_scan(BlockReader* reader, TableFile* file, std::int64_t framesStart, std::int64_t end,
                           ErrorCode* scanEnd) noexcept;
// Goes on with a scan that has found messages: adds the frames behind them, up to `end`, and sets *same. When the
// message that the scan added last is no longer there, the file was dropped and filled again: *same is false then and
// nothing is added.
ErrorCode blockReader_continueScan(BlockReader* reader, TableFile* file, std::int64_t framesStart, std::int64_t end,
                                   ErrorCode* scanEnd, bool* same) noexcept;

}  // namespace tabulo::internal
