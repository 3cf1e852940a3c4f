// Steps through the frames of one stretch of a file, forward or backward, reading it in pieces.
//
// A piece is loaded into the frame stream of a block reader and decoded in place, so a decoded message's texts are
// valid until the next step. A frame larger than a piece makes the next piece as large as the frame, never larger than
// the stretch.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/block_reader.h"
#include "messagetable/frame.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// Pieces of a closed block: blocks up to this size are read at once. Larger ones take no more memory than they.
inline constexpr std::int32_t BLOCK_PIECE_SIZE = 8 * 1024 * 1024;
// Pieces of an open block and of recovery, where frames may end at any point.
inline constexpr std::int32_t SCAN_PIECE_SIZE = 256 * 1024;

struct FrameCursor {
    BlockReader* reader = nullptr;
    TableFile* file = nullptr;
    std::int64_t begin = 0;  // the stretch
    std::int64_t end = 0;
    std::int64_t position = 0;    // of the next frame (forward) or behind it (backward)
    std::int64_t pieceStart = 0;  // file offset of the stream's first byte
    std::int64_t pieceEnd = 0;
    std::int32_t pieceSize = 0;
};

// A cursor over [begin, end) that will step forward from its begin, or backward from its end.
FrameCursor frameCursor_forward(BlockReader* reader, TableFile* file, std::int64_t begin, std::int64_t end,
                                std::int32_t pieceSize) noexcept;
FrameCursor frameCursor_backward(BlockReader* reader, TableFile* file, std::int64_t begin, std::int64_t end,
                                 std::int32_t pieceSize) noexcept;

// Decodes the next frame and moves behind it. NO_DATA_ERROR: no complete frame stands there, be it the stretch's end or
// a cut frame. CONSISTENCY_ERROR, FILE_READ_ERROR, OUT_OF_MEMORY_ERROR. On failure the cursor stays.
ErrorCode frameCursor_next(FrameCursor* cursor, DecodedMessage* message) noexcept;
// The same for a frame that is loaded whole: false, and nothing has changed, for every other one, of which
// frameCursor_next tells.
bool frameCursor_nextLoaded(FrameCursor* cursor, DecodedMessage* message) noexcept;
// Decodes the frame before the cursor and moves to its start, with the same errors; NO_DATA_ERROR at the stretch's
// begin.
ErrorCode frameCursor_previous(FrameCursor* cursor, DecodedMessage* message) noexcept;

}  // namespace tabulo::internal
