// Moving a frame cursor inside a closed block to a message with a number, by way of a frame whose place is known.
#pragma once

#include <cstdint>

#include "core/error_codes.h"
#include "messagetable/frame_cursor.h"

namespace tabulo::internal {

// Where a frame of a block begins, and its number in the block; that of the frames' end is messagesPerBlock.
struct FrameMark {
    std::int64_t offset = 0;  // in the file
    std::int32_t number = 0;
};

// The frame with the number `target` becomes the next one of a cursor that steps forward, whose next one now is
// *number: by stepping over those in between, from the mark if that is nearer (it is not behind the target). Pieces of
// `pieceSize` bytes are read from then on when the mark was used. On failure (frameCursor_next) nothing has moved.
ErrorCode frameJump_forward(FrameCursor* cursor, const FrameMark& mark, std::int32_t pieceSize, std::int32_t target,
                            std::int32_t* number, DecodedMessage* passed) noexcept;
// The same for a cursor that steps backward, where *number is that of the frame behind the cursor, and the mark is
// behind the target.
ErrorCode frameJump_backward(FrameCursor* cursor, const FrameMark& mark, std::int32_t pieceSize, std::int32_t target,
                             std::int32_t* number, DecodedMessage* passed) noexcept;

}  // namespace tabulo::internal
