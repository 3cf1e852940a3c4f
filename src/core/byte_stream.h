// The buffer in which every on-disk structure is assembled before it is written, and into which it is read before it is
// decoded.
//
//   0            readMark              writeMark            capacity
//   | consumed   | unread              | free               |          reading forward
//   | unread                | consumed | free               |          reading backward: consumed from the end
//
// Invariants: 0 <= readMark <= writeMark <= capacity. Values keep the machine's byte order; reading backward takes the
// last unread bytes, in their stored order. The error is sticky: once set, puts do nothing until byteStream_resetWrite
// or byteStream_clearError, so that a whole structure is encoded first and the error tested once at the end.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "core/error_codes.h"
#include "core/handle.h"

namespace tabulo::internal {

inline constexpr std::int32_t BYTE_STREAM_FORWARD = 0;
inline constexpr std::int32_t BYTE_STREAM_BACKWARD = 1;

// What a step of a stream came to: the bytes it moved (0 for a step that moves none), or less than 0 when it failed;
// the stream then holds the error. Not [[nodiscard]]: the sticky error is there so that it is asked once, at the end.
struct StreamCount {
    std::int32_t bytes = 0;

    constexpr bool failed() const noexcept { return bytes < 0; }
    friend constexpr bool operator==(StreamCount, StreamCount) noexcept = default;
};
inline constexpr StreamCount STREAM_FAILED{-1};

struct KSVByteStream {
    std::uint8_t* buffer = nullptr;  // storage: `owned` for a created stream, the caller's otherwise
    std::int32_t direction = BYTE_STREAM_FORWARD;
    std::int32_t readMark = 0;   // bytes consumed
    std::int32_t writeMark = 0;  // bytes filled
    std::int32_t capacity = 0;
    ErrorCode error = NO_ERROR;
    bool (*extend)(KSVByteStream* stream, std::int32_t extraBytes) = nullptr;  // grows the buffer, false when it cannot
    std::unique_ptr<std::uint8_t[]> owned;
};

// A stream with a buffer of its own that grows as needed. Null for a negative capacity or when memory is short. The
// caller owns it and ends it with byteStream_destroy.
KSVByteStream* byteStream_create(std::int32_t capacity) noexcept;
// Frees stream and buffer; null is accepted.
void byteStream_destroy(KSVByteStream* stream) noexcept;
// Wraps a caller's buffer, which must outlive the stream: direction forward, marks and error 0, never grows.
void byteStream_init(KSVByteStream* stream, void* buffer, std::int32_t capacity) noexcept;

using ByteStreamPtr = Handle<KSVByteStream, byteStream_destroy>;

inline std::uint8_t* byteStream_buffer(const KSVByteStream* stream) noexcept {
    return stream->buffer;
}
inline std::int32_t byteStream_capacity(const KSVByteStream* stream) noexcept {
    return stream->capacity;
}
inline std::int32_t byteStream_readMark(const KSVByteStream* stream) noexcept {
    return stream->readMark;
}
inline std::int32_t byteStream_writeMark(const KSVByteStream* stream) noexcept {
    return stream->writeMark;
}
inline std::int32_t byteStream_unread(const KSVByteStream* stream) noexcept {
    return stream->writeMark - stream->readMark;
}
inline ErrorCode byteStream_error(const KSVByteStream* stream) noexcept {
    return stream->error;
}
inline void byteStream_clearError(KSVByteStream* stream) noexcept {
    stream->error = NO_ERROR;
}
// buffer + readMark
inline std::uint8_t* byteStream_readPointer(const KSVByteStream* stream) noexcept {
    return stream->buffer + stream->readMark;
}

// Sets direction and read mark and returns 0 when 0 <= mark <= writeMark; otherwise sets STREAM_READ_RESET_ERROR and
// returns -1, marks unchanged.
StreamCount byteStream_resetRead(KSVByteStream* stream, std::int32_t direction, std::int32_t mark) noexcept;
// byteStream_resetRead with mark 0.
StreamCount byteStream_rewind(KSVByteStream* stream, std::int32_t direction) noexcept;
// Sets the write mark, clears the error and returns 0 when 0 <= mark <= capacity; a read mark beyond it comes down with
// it. Otherwise sets STREAM_WRITE_RESET_ERROR and returns -1, marks unchanged.
StreamCount byteStream_resetWrite(KSVByteStream* stream, std::int32_t mark) noexcept;
// byteStream_resetWrite(stream, 0).
StreamCount byteStream_clear(KSVByteStream* stream) noexcept;
// Rewinds reading in the given direction and clears writing.
void byteStream_reset(KSVByteStream* stream, std::int32_t direction) noexcept;

// Appends n bytes. Returns n; 0 when the stream already holds an error (nothing is written); -1 when the buffer cannot
// grow (STREAM_EXTENSION_ERROR) or n is negative (WRONG_PARAMETER_ERROR).
StreamCount byteStream_putBytes(KSVByteStream* stream, const void* source, std::int32_t n) noexcept;
// Appends n bytes that the caller fills in: the place of the first one, valid until the stream changes. Null with the
// errors of byteStream_putBytes.
std::uint8_t* byteStream_append(KSVByteStream* stream, std::int32_t n) noexcept;
// Consumes n bytes into destination, or skips them when destination is null. Does not look at the sticky error. Returns
// n; -1 when fewer than n bytes are unread or n is negative (STREAM_NOT_ENOUGH_DATA_ERROR, read mark unchanged).
StreamCount byteStream_getBytes(KSVByteStream* stream, void* destination, std::int32_t n) noexcept;
// byteStream_getBytes without destination.
StreamCount byteStream_skip(KSVByteStream* stream, std::int32_t n) noexcept;

// Replaces the buffer by a caller's buffer, which must outlive its use; the filled bytes are the caller's to copy. A
// capacity below one of the marks is refused: a line on standard output, WRONG_PARAMETER_ERROR in the stream, result 1.
// Otherwise the result is 0. Called here only: by streams that grow.
std::int32_t byteStream_setBuffer(KSVByteStream* stream, void* buffer, std::int32_t capacity) noexcept;

// Empties the stream and makes its capacity at least n, without keeping what it held: a growing stream that is too
// small gets a buffer of exactly n bytes. Returns 0; -1 with OUT_OF_MEMORY_ERROR when it cannot (the stream may then
// have no buffer, until a later call finds the memory), also for a stream over a caller's buffer that is too small.
StreamCount byteStream_makeRoom(KSVByteStream* stream, std::int32_t n) noexcept;

// Empties the stream; a growing one gives back a buffer of more than n bytes.
void byteStream_giveBack(KSVByteStream* stream, std::int32_t n) noexcept;

// One value as its native bytes, with the results of byteStream_putBytes and byteStream_getBytes.
template <typename T>
StreamCount byteStream_put(KSVByteStream* stream, T value) noexcept {
    static_assert(std::is_arithmetic_v<T> && sizeof(T) <= 8);
    constexpr auto width = static_cast<std::int32_t>(sizeof(T));
    if (stream->error == NO_ERROR && stream->capacity - stream->writeMark >= width) {
        std::memcpy(stream->buffer + stream->writeMark, &value, sizeof(T));
        stream->writeMark += width;
        return {width};
    }
    return byteStream_putBytes(stream, &value, width);
}

template <typename T>
StreamCount byteStream_get(KSVByteStream* stream, T* value) noexcept {
    static_assert(std::is_arithmetic_v<T> && sizeof(T) <= 8);
    constexpr auto width = static_cast<std::int32_t>(sizeof(T));
    if (stream->direction == BYTE_STREAM_FORWARD && byteStream_unread(stream) >= width) {
        std::memcpy(value, stream->buffer + stream->readMark, sizeof(T));
        stream->readMark += width;
        return {width};
    }
    return byteStream_getBytes(stream, value, width);
}

}  // namespace tabulo::internal
