#include "messagetable/frame_jump.h"

namespace tabulo::internal {

namespace {

// `distance` is how many frames lie between the cursor and the target, `markDistance` between the mark and the target.
ErrorCode jump(FrameCursor* cursor, const FrameMark& mark, std::int32_t pieceSize, std::int32_t distance,
               std::int32_t markDistance, ErrorCode (*step)(FrameCursor*, DecodedMessage*) noexcept,
               DecodedMessage* passed) {
    const FrameCursor before = *cursor;
    if (markDistance <= distance) {
        if (mark.offset < cursor->begin || mark.offset > cursor->end) {
            return CONSISTENCY_ERROR;
        }
        cursor->position = mark.offset;
        cursor->pieceSize = pieceSize;
        distance = markDistance;
    }
    for (; distance > 0; --distance) {
        const ErrorCode code = step(cursor, passed);
        if (code != NO_ERROR) {
            *cursor = before;
            cursor->pieceStart = cursor->position;  // the reader may hold another piece by now
            cursor->pieceEnd = cursor->position;
            return code;
        }
    }
    return NO_ERROR;
}

}  // namespace

ErrorCode frameJump_forward(FrameCursor* cursor, const FrameMark& mark, std::int32_t pieceSize, std::int32_t target,
                            std::int32_t* number, DecodedMessage* passed) noexcept {
    const ErrorCode code =
        jump(cursor, mark, pieceSize, target - *number, target - mark.number, frameCursor_next, passed);
    *number = code == NO_ERROR ? target : *number;
    return code;
}

ErrorCode frameJump_backward(FrameCursor* cursor, const FrameMark& mark, std::int32_t pieceSize, std::int32_t target,
                             std::int32_t* number, DecodedMessage* passed) noexcept {
    const ErrorCode code =
        jump(cursor, mark, pieceSize, *number - target - 1, mark.number - target - 1, frameCursor_previous, passed);
    *number = code == NO_ERROR ? target + 1 : *number;
    return code;
}

}  // namespace tabulo::internal
