#include "messagetable/torn_tail.h"

#include <algorithm>
#include <array>

namespace tabulo {

namespace {

constexpr std::int64_t MEANINGLESS_BELOW = 8;  // bytes; the width of a block length word

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

// True when the frame at `start` can be one that the file's end cuts off.
bool isFrameBeginning(TableFile* file, const MessageTableLayout& layout, std::int64_t start, std::int64_t end,
                      ErrorCode* code) {
    std::int64_t position = start;
    std::uint32_t length = 0;
    std::int64_t rest = mfr_minimumFrameSize(layout.stringFieldCount, layout.numericFieldCount) - FRAME_FIXED_SIZE;
    if (!takeValue(file, &position, end, &length, code) || length < FRAME_FIXED_SIZE + rest || length <= end - start) {
        return false;
    }
    // Room for what has not been looked at yet, were all of it absent.
    const std::int64_t frameEnd = start + length;
    position = start + FRAME_FIXED_SIZE;
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
    // All fields are there: only the trailing length may be missing, and it must end where the frame does.
    return position + FRAME_LENGTH_SIZE == frameEnd;
}

}  // namespace

ErrorCode tornTail_isEmpty(TableFile* file, std::int64_t start, std::int64_t end, bool* empty) noexcept {
    *empty = end - start < MEANINGLESS_BELOW;
    if (*empty) {
        return NO_ERROR;
    }
    std::array<std::uint8_t, 16384> piece;
    for (std::int64_t position = start; position < end;) {
        const auto wanted = std::min<std::int64_t>(end - position, static_cast<std::int64_t>(piece.size()));
        std::int64_t count = 0;
        const ErrorCode code = tableFileReadAt(file, position, piece.data(), wanted, &count);
        if (code != NO_ERROR || count != wanted) {
            return code != NO_ERROR ? code : FILE_READ_ERROR;
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
    if (code == NO_ERROR && !*torn) {
        *torn = isFrameBeginning(file, layout, start, end, &code);
    }
    return code;
}

}  // namespace tabulo
