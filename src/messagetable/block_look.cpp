#include "messagetable/block_look.h"

#include "messagetable/frame_cursor.h"

namespace tabulo::internal {

ErrorCode blockLook_readTail(const BlockReader& reader, TableFile* file, TailRecords* tail) noexcept {
    *tail = {};
    const ErrorCode code = headerTail_read(file, reader.storage->headerSize, tail);
    return code == NO_DATA_ERROR ? NO_ERROR : code;
}

ErrorCode blockLook_read(const BlockReader& reader, TableFile* file, std::int64_t start, BlockLook* seen) noexcept {
    ErrorCode code = blockLook_readTail(reader, file, &seen->tail);
    if (code == NO_ERROR) {
        code = blockReader_readWord(file, start, &seen->word);
        code = code == NO_DATA_ERROR ? NO_ERROR : code;  // the size tells
    }
    return code == NO_ERROR ? tableFileGetSize(file, &seen->size) : code;
}

ErrorCode blockLook_isClosed(const BlockReader& reader, TableFile* file, std::int64_t start, const BlockLook& seen,
                             bool* closed) noexcept {
    const std::int64_t headerEnd = reader.storage->headerSize;
    const auto end = static_cast<std::int64_t>(headerTail_openBlock(seen.tail, headerEnd));
    *closed = false;
    if (end <= start || end > seen.size) {
        return NO_ERROR;
    }
    std::uint64_t trailing = 0;
    const ErrorCode code = blockReader_readWord(file, end - BLOCK_LENGTH_SIZE, &trailing);
    *closed = code == NO_ERROR && blockReader_isLength(reader, trailing, end - headerEnd);
    return code == NO_DATA_ERROR ? NO_ERROR : code;
}

namespace {

// Sets *inside when the tail says that the block at `start` is the open one and its frames reach over `place`.
ErrorCode liesInsideOpenBlock(BlockReader& reader, TableFile* file, std::int64_t start, std::int64_t place,
                              const BlockLook& seen, bool* inside) {
    if (static_cast<std::uint64_t>(start) != headerTail_openBlock(seen.tail, reader.storage->headerSize)) {
        return NO_ERROR;
    }
    FrameCursor frames = frameCursor_forward(&reader, file, start + BLOCK_LENGTH_SIZE, seen.size, SCAN_PIECE_SIZE);
    DecodedMessage message;
    ErrorCode code = NO_ERROR;
    for (std::int32_t i = 0; i < reader.layout.messagesPerBlock && code == NO_ERROR; ++i) {
        code = frameCursor_next(&frames, &message);
    }
    *inside = frames.position > place;
    return code == NO_DATA_ERROR || code == CONSISTENCY_ERROR ? NO_ERROR : code;
}

}  // namespace

ErrorCode blockLook_liesInside(BlockReader& reader, TableFile* file, std::int64_t place, const BlockLook& seen,
                               bool* inside) noexcept {
    *inside = false;
    const std::int64_t headerEnd = reader.storage->headerSize;
    std::int64_t start = headerEnd;
    while (start < place) {
        std::uint64_t word = 0;
        std::uint64_t trailing = 0;
        ErrorCode code = blockReader_readWord(file, start, &word);
        if (code == NO_ERROR && word == 0) {
            return liesInsideOpenBlock(reader, file, start, place, seen, inside);
        }
        if (code == NO_ERROR && blockReader_isLength(reader, word, seen.size - start)) {
            code = blockReader_readWord(file, start + static_cast<std::int64_t>(word) - BLOCK_LENGTH_SIZE, &trailing);
        }
        if (code != NO_ERROR || trailing != word) {
            return code == NO_DATA_ERROR ? NO_ERROR : code;
        }
        start += static_cast<std::int64_t>(word);
    }
    *inside = start > place;
    return NO_ERROR;
}

}  // namespace tabulo::internal
