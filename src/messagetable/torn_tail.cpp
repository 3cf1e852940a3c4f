#include "messagetable/torn_tail.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tabulo::internal {

namespace {

constexpr std::int64_t MEANINGLESS_BELOW = 8;  // bytes; the width of a block length word

constexpr std::int64_t PIECE_SIZE = 16384;
constexpr std::int32_t LENGTHS_LOOKED_AT = 100'000;  // a fraction of a second, each with a read

ErrorCode readPiece(TableFile* file, std::int64_t position, std::uint8_t* bytes, std::int64_t length) {
    std::int64_t count = 0;
    const ErrorCode code = tableFileReadAt(file, position, bytes, length, &count);
    return code == NO_ERROR && count != length ? FILE_READ_ERROR : code;
}

// Reads one value at *position, if the file still has it, and moves behind it. False at the file's end.
template <typename T>
bool takeValue(TableFile* file, std::int64_t* position, std::int64_t end, T* value, ErrorCode* code) {
    constexpr auto width = static_cast<std::int64_t>(sizeof(T));
    if (*code != NO_ERROR || end - *position < width) {
        return false;
    }
    std::int64_t count = 0;
    *code = tableFileReadAt(file, *position, value, width, &count);
    *position += width;
    return *code == NO_ERROR && count == width;
}

std::int64_t minimumFrameSize(const MessageTableLayout& layout) {
    return mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount);
}

// True when the fields of the frame at `start`, as far as they stand before `end`, fit into its msgLen and fill it.
bool fieldsFit(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
               std::uint32_t length, ErrorCode* code) {
    // Room for what has not been looked at yet, were all of it absent.
    std::int64_t rest = minimumFrameSize(layout) - FRAME_FIXED_SIZE;
    const std::int64_t frameEnd = start + length;
    std::int64_t position = start + FRAME_FIXED_SIZE;
    for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
        std::uint8_t type = 0;
        if (!takeValue(file, &position, end, &type, code)) {
            return *code == NO_ERROR;
        }
        rest -= 1;
        if (!numericValue_isType(type)) {
            return false;
        }
        position += static_cast<NumericType>(type) == NumericType::absent ? 0 : NUMERIC_VALUE_BYTES;
        if (position + rest > frameEnd) {
            return false;
        }
    }
    for (std::int32_t i = 0; i < layout.stringFieldCount; ++i) {
        std::uint32_t textLength = 0;
        if (!takeValue(file, &position, end, &textLength, code)) {
            return *code == NO_ERROR;
        }
        rest -= STRING_LENGTH_SIZE;
        position += textLength;
        if (position + rest > frameEnd) {
            return false;
        }
    }
    return position + FRAME_LENGTH_SIZE == frameEnd;
}

// True when the frame at `start` can be one that the file's end cuts off.
bool isFrameBeginning(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                      ErrorCode* code) {
    std::int64_t position = start;
    std::uint32_t length = 0;
    return takeValue(file, &position, end, &length, code) && length >= minimumFrameSize(layout) &&
           length > end - start && fieldsFit(file, layout, start, end, length, code);
}

// True when a whole frame of this msgLen, for which there is room, stands at `start`.
bool isWholeFrame(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                  std::uint32_t length, ErrorCode* code) {
    std::int64_t position = start + length - FRAME_LENGTH_SIZE;
    std::uint32_t trailing = 0;
    return takeValue(file, &position, end, &trailing, code) && trailing == length &&
           fieldsFit(file, layout, start, end, length, code);
}

// Sets *found when a whole frame stands anywhere behind `start`, or when there is too much that could be one.
ErrorCode findWholeFrame(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                         bool* found) {
    *found = false;
    std::int32_t plausible = 0;
    std::array<std::uint8_t, PIECE_SIZE> piece;
    for (std::int64_t position = start + 1; end - position >= minimumFrameSize(layout);) {
        const auto wanted = std::min<std::int64_t>(end - position, PIECE_SIZE);
        ErrorCode code = readPiece(file, position, piece.data(), wanted);
        // The next piece begins with the bytes that no length of this one begins at.
        const std::int64_t lengths = wanted - FRAME_LENGTH_SIZE + 1;
        for (std::int64_t i = 0; i < lengths && code == NO_ERROR; ++i) {
            std::uint32_t length = 0;
            std::memcpy(&length, piece.data() + i, FRAME_LENGTH_SIZE);
            if (length < minimumFrameSize(layout) || length > end - (position + i)) {
                continue;
            }
            plausible += 1;
            if (plausible > LENGTHS_LOOKED_AT || isWholeFrame(file, layout, position + i, end, length, &code)) {
                *found = true;
                return NO_ERROR;
            }
        }
        if (code != NO_ERROR) {
            return code;
        }
        position += lengths;
    }
    return NO_ERROR;
}

}  // namespace

ErrorCode tornTail_isEmpty(TableFile* file, std::int64_t start, std::int64_t end, bool* empty) noexcept {
    *empty = end - start < MEANINGLESS_BELOW;
    if (*empty) {
        return NO_ERROR;
    }
    std::array<std::uint8_t, PIECE_SIZE> piece;
    for (std::int64_t position = start; position < end;) {
        const auto wanted = std::min<std::int64_t>(end - position, PIECE_SIZE);
        const ErrorCode code = readPiece(file, position, piece.data(), wanted);
        if (code != NO_ERROR) {
            return code;
        }
        if (std::any_of(piece.begin(), piece.begin() + wanted, [](std::uint8_t byte) { return byte != 0; })) {
            return NO_ERROR;
        }
        position += wanted;
    }
    *empty = true;
    return NO_ERROR;
}

ErrorCode tornTail_check(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                         bool* torn) noexcept {
    ErrorCode code = tornTail_isEmpty(file, start, end, torn);
    if (code == NO_ERROR && !*torn && isFrameBeginning(file, layout, start, end, &code)) {
        bool followed = false;
        code = findWholeFrame(file, layout, start, end, &followed);
        *torn = code == NO_ERROR && !followed;
    }
    return code;
}

}  // namespace tabulo::internal
