#include "messagetable/block_look.h"

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

ErrorCode blockLook_liesInside(const BlockReader& reader, TableFile* file, std::int64_t place, const BlockLook& seen,
                               bool* inside) noexcept {
    *inside = false;
    const std::int64_t headerEnd = reader.storage->headerSize;
    std::int64_t start = headerEnd;
    while (start < place) {
        std::uint64_t word = 0;
        std::uint64_t trailing = 0;
        ErrorCode code = blockReader_readWord(file, start, &word);
        if (code == NO_ERROR && word == 0) {
            // The open block reaches to the file's end; it is the open one when the tail says so.
            *inside = static_cast<std::uint64_t>(start) == headerTail_openBlock(seen.tail, headerEnd);
            return NO_ERROR;
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
