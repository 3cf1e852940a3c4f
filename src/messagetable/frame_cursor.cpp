#include "messagetable/frame_cursor.h"

#include <algorithm>
#include <cstring>

#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

ErrorCode loadPiece(FrameCursor* cursor, std::int64_t start, std::int64_t length) {
    KSVByteStream* stream = cursor->reader->frames.get();
    cursor->pieceStart = start;
    cursor->pieceEnd = start;
    const ErrorCode code = byteStream_readFromFileAt(stream, cursor->file, start, static_cast<std::int32_t>(length));
    if (code == NO_ERROR) {
        cursor->pieceEnd = start + byteStream_writeMark(stream);
    }
    return code;
}

// A size that the stream can hold: pieces grow by doubling, up to what is wanted and what is there.
std::int64_t nextPieceLength(std::int64_t wanted, std::int64_t available, std::int32_t pieceSize) {
    constexpr std::int64_t largest = INT32_MAX;
    return std::min({std::max<std::int64_t>(wanted, pieceSize), available, largest});
}

std::uint32_t lengthWordAt(const FrameCursor* cursor, std::int64_t offset) {
    std::uint32_t length = 0;
    std::memcpy(&length, byteStream_buffer(cursor->reader->frames.get()) + (offset - cursor->pieceStart),
                sizeof(length));
    return length;
}

ErrorCode decodeHere(const FrameCursor* cursor, DecodedMessage* message) {
    const std::uint8_t* piece = byteStream_buffer(cursor->reader->frames.get());
    return mfr_decodeFrame(piece + (cursor->position - cursor->pieceStart), cursor->pieceEnd - cursor->position,
                           cursor->reader->layout, message);
}

FrameCursor makeCursor(BlockReader* reader, TableFile* file, std::int64_t begin, std::int64_t end,
                       std::int64_t position, std::int32_t pieceSize) {
    FrameCursor cursor;
    cursor.reader = reader;
    cursor.file = file;
    cursor.begin = begin;
    cursor.end = end;
    cursor.position = position;
    cursor.pieceStart = position;
    cursor.pieceEnd = position;
    cursor.pieceSize = pieceSize;
    return cursor;
}

}  // namespace

FrameCursor frameCursor_forward(BlockReader* reader, TableFile* file, std::int64_t begin, std::int64_t end,
                                std::int32_t pieceSize) noexcept {
    return makeCursor(reader, file, begin, end, begin, pieceSize);
}

FrameCursor frameCursor_backward(BlockReader* reader, TableFile* file, std::int64_t begin, std::int64_t end,
                                 std::int32_t pieceSize) noexcept {
    return makeCursor(reader, file, begin, end, end, pieceSize);
}

ErrorCode frameCursor_next(FrameCursor* cursor, DecodedMessage* message) noexcept {
    std::int64_t wanted = 0;
    for (;;) {
        const std::int64_t available = cursor->end - cursor->position;
        const std::int64_t loaded = cursor->pieceEnd - cursor->position;
        if (loaded > 0) {
            const ErrorCode code = decodeHere(cursor, message);
            if (code == NO_ERROR) {
                cursor->position += message->frameLength;
            }
            if (code != NO_DATA_ERROR) {
                return code;
            }
            // Not all of the frame is loaded: what its length announces, capped by the stretch, settles it.
            wanted = loaded < FRAME_LENGTH_SIZE ? FRAME_LENGTH_SIZE : lengthWordAt(cursor, cursor->position);
            if (loaded >= wanted) {
                return NO_DATA_ERROR;
            }
        }
        if (loaded >= available || (wanted > 0 && loaded >= nextPieceLength(wanted, available, 0))) {
            return NO_DATA_ERROR;
        }
        // A damaged length must not read the rest of a large file at once: double until the frame decodes or ends.
        const std::int64_t step = std::min(wanted, std::max<std::int64_t>(2 * loaded, cursor->pieceSize));
        const std::int64_t length = nextPieceLength(step, available, cursor->pieceSize);
        const ErrorCode code = loadPiece(cursor, cursor->position, length);
        if (code != NO_ERROR) {
            return code;
        }
        if (cursor->pieceEnd - cursor->position <= loaded) {
            return NO_DATA_ERROR;
        }
    }
}

bool frameCursor_nextLoaded(FrameCursor* cursor, DecodedMessage* message) noexcept {
    if (cursor->pieceEnd <= cursor->position || decodeHere(cursor, message) != NO_ERROR) {
        return false;
    }
    cursor->position += message->frameLength;
    return true;
}

ErrorCode frameCursor_previous(FrameCursor* cursor, DecodedMessage* message) noexcept {
    const std::int64_t frameEnd = cursor->position;
    const std::int64_t available = frameEnd - cursor->begin;
    if (available < FRAME_LENGTH_SIZE) {
        return NO_DATA_ERROR;
    }
    if (cursor->pieceEnd < frameEnd || cursor->pieceStart > frameEnd - FRAME_LENGTH_SIZE) {
        const std::int64_t length = nextPieceLength(FRAME_LENGTH_SIZE, available, cursor->pieceSize);
        const ErrorCode code = loadPiece(cursor, frameEnd - length, length);
        if (code != NO_ERROR) {
            return code;
        }
    }
    if (cursor->pieceEnd < frameEnd) {
        return NO_DATA_ERROR;
    }
    const std::int64_t frameLength = lengthWordAt(cursor, frameEnd - FRAME_LENGTH_SIZE);
    if (frameLength > available) {
        return NO_DATA_ERROR;
    }
    if (frameEnd - frameLength < cursor->pieceStart) {
        const std::int64_t length = nextPieceLength(frameLength, available, cursor->pieceSize);
        const ErrorCode code = loadPiece(cursor, frameEnd - length, length);
        if (code != NO_ERROR) {
            return code;
        }
        if (cursor->pieceEnd < frameEnd || frameEnd - frameLength < cursor->pieceStart) {
            return NO_DATA_ERROR;
        }
    }
    KSVByteStream* stream = cursor->reader->frames.get();
    byteStream_resetRead(stream, BYTE_STREAM_FORWARD, static_cast<std::int32_t>(frameEnd - cursor->pieceStart));
    const ErrorCode code = mfr_decodeMessageBackward(cursor->reader->layout, stream, message);
    if (code == NO_ERROR) {
        message->frameLength = static_cast<std::int32_t>(frameLength);
        cursor->position = frameEnd - frameLength;
    }
    return code;
}

}  // namespace tabulo::internal
