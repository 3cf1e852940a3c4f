#include "core/byte_stream.h"

#include <cstdio>
#include <limits>
#include <new>
#include <utility>

namespace tabulo::internal {

namespace {

bool fixedStream_extend(KSVByteStream*, std::int32_t) {
    return false;
}

// Half as much again and what is needed: repeated small puts stay cheap, one large put allocates once.
bool growingStream_extend(KSVByteStream* stream, std::int32_t extraBytes) {
    const std::int64_t grown = std::int64_t{stream->capacity} * 3 / 2 + extraBytes;
    if (extraBytes < 0 || grown > std::numeric_limits<std::int32_t>::max()) {
        return false;
    }
    std::unique_ptr<std::uint8_t[]> larger(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(grown)]);
    if (larger == nullptr) {
        stream->error = OUT_OF_MEMORY_ERROR;
        return false;
    }
    if (stream->writeMark > 0) {
        std::memcpy(larger.get(), stream->buffer, static_cast<std::size_t>(stream->writeMark));
    }
    byteStream_setBuffer(stream, larger.get(), static_cast<std::int32_t>(grown));
    stream->owned = std::move(larger);
    return true;
}

}  // namespace

KSVByteStream* byteStream_create(std::int32_t capacity) noexcept {
    if (capacity < 0) {
        return nullptr;
    }
    std::unique_ptr<KSVByteStream> stream(new (std::nothrow) KSVByteStream);
    if (stream == nullptr) {
        return nullptr;
    }
    stream->owned.reset(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(capacity)]);
    if (stream->owned == nullptr) {
        return nullptr;
    }
    stream->buffer = stream->owned.get();
    stream->capacity = capacity;
    stream->extend = growingStream_extend;
    return stream.release();
}

void byteStream_destroy(KSVByteStream* stream) noexcept {
    delete stream;
}

void byteStream_init(KSVByteStream* stream, void* buffer, std::int32_t capacity) noexcept {
    *stream = KSVByteStream{};
    stream->buffer = static_cast<std::uint8_t*>(buffer);
    stream->capacity = capacity;
    stream->extend = fixedStream_extend;
}

StreamCount byteStream_resetRead(KSVByteStream* stream, std::int32_t direction, std::int32_t mark) noexcept {
    if (mark < 0 || mark > stream->writeMark) {
        stream->error = STREAM_READ_RESET_ERROR;
        return STREAM_FAILED;
    }
    stream->direction = direction;
    stream->readMark = mark;
    return {};
}

StreamCount byteStream_rewind(KSVByteStream* stream, std::int32_t direction) noexcept {
    return byteStream_resetRead(stream, direction, 0);
}

StreamCount byteStream_resetWrite(KSVByteStream* stream, std::int32_t mark) noexcept {
    if (mark < 0 || mark > stream->capacity) {
        stream->error = STREAM_WRITE_RESET_ERROR;
        return STREAM_FAILED;
    }
    stream->writeMark = mark;
    if (stream->readMark > mark) {
        stream->readMark = mark;
    }
    stream->error = NO_ERROR;
    return {};
}

StreamCount byteStream_clear(KSVByteStream* stream) noexcept {
    return byteStream_resetWrite(stream, 0);
}

void byteStream_reset(KSVByteStream* stream, std::int32_t direction) noexcept {
    byteStream_rewind(stream, direction);
    byteStream_clear(stream);
}

std::uint8_t* byteStream_append(KSVByteStream* stream, std::int32_t n) noexcept {
    if (stream->error != NO_ERROR) {
        return nullptr;
    }
    if (n < 0) {
        stream->error = WRONG_PARAMETER_ERROR;
        return nullptr;
    }
    const std::int32_t available = stream->capacity - stream->writeMark;
    if (available < n && !stream->extend(stream, n - available)) {
        stream->error = STREAM_EXTENSION_ERROR;
        return nullptr;
    }
    std::uint8_t* place = stream->buffer + stream->writeMark;
    stream->writeMark += n;
    return place;
}

StreamCount byteStream_putBytes(KSVByteStream* stream, const void* source, std::int32_t n) noexcept {
    if (stream->error != NO_ERROR) {
        return {};
    }
    std::uint8_t* place = byteStream_append(stream, n);
    if (stream->error != NO_ERROR) {
        return STREAM_FAILED;
    }
    if (n > 0) {
        std::memcpy(place, source, static_cast<std::size_t>(n));
    }
    return {n};
}

StreamCount byteStream_getBytes(KSVByteStream* stream, void* destination, std::int32_t n) noexcept {
    const std::int32_t available = byteStream_unread(stream);
    if (n < 0 || available < n) {
        stream->error = STREAM_NOT_ENOUGH_DATA_ERROR;
        return STREAM_FAILED;
    }
    if (destination != nullptr && n > 0) {
        const std::int32_t start = stream->direction == BYTE_STREAM_FORWARD ? stream->readMark : available - n;
        std::memcpy(destination, stream->buffer + start, static_cast<std::size_t>(n));
    }
    stream->readMark += n;
    return {n};
}

StreamCount byteStream_skip(KSVByteStream* stream, std::int32_t n) noexcept {
    return byteStream_getBytes(stream, nullptr, n);
}

std::int32_t byteStream_setBuffer(KSVByteStream* stream, void* buffer, std::int32_t capacity) noexcept {
    if (capacity < stream->readMark || capacity < stream->writeMark) {
        std::printf(
            "internal error: attempt to shrink KSVByteStream's buffer beyond read/write marks range. Details: "
            "(capacity = "
            "%d, new capacity = %d, read mark = %d, write mark = %d)\n",
            stream->capacity, capacity, stream->readMark, stream->writeMark);
        std::fflush(stdout);
        stream->error = WRONG_PARAMETER_ERROR;
        return 1;
    }
    stream->buffer = static_cast<std::uint8_t*>(buffer);
    stream->capacity = capacity;
    return 0;
}

void byteStream_giveBack(KSVByteStream* stream, std::int32_t n) noexcept {
    byteStream_clear(stream);
    if (stream->capacity > n && stream->extend == growingStream_extend) {
        stream->owned.reset();
        stream->buffer = nullptr;
        stream->capacity = 0;
    }
}

StreamCount byteStream_makeRoom(KSVByteStream* stream, std::int32_t n) noexcept {
    byteStream_clear(stream);
    if (stream->capacity >= n) {
        return {};
    }
    if (stream->extend != growingStream_extend) {
        stream->error = OUT_OF_MEMORY_ERROR;
        return STREAM_FAILED;
    }
    // The old buffer goes first: two of them may be more than there is.
    stream->owned.reset();
    stream->owned.reset(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(n)]);
    stream->buffer = stream->owned.get();
    stream->capacity = stream->owned == nullptr ? 0 : n;
    if (stream->owned == nullptr) {
        stream->error = OUT_OF_MEMORY_ERROR;
        return STREAM_FAILED;
    }
    return {};
}

}  // namespace tabulo::internal
