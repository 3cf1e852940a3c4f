#include "storage/file_stream.h"

#include <algorithm>
#include <cstring>
#include <system_error>

namespace tabulo::internal {

namespace {

SystemError readFully(const FileStream* stream, std::int64_t offset, void* destination, std::size_t length,
                      std::size_t* count) {
    *count = 0;
    while (*count < length) {
        std::size_t transferred = 0;
        const SystemError error = filePlatform_repeat("read", stream->path, [&] {
            return filePlatform().readAt(stream->descriptor, static_cast<std::uint8_t*>(destination) + *count,
                                         length - *count, offset + static_cast<std::int64_t>(*count), &transferred);
        });
        if (error.failed()) {
            return error;
        }
        if (transferred == 0) {
            break;
        }
        *count += transferred;
    }
    return 0;
}

SystemError writeFully(const FileStream* stream, std::int64_t offset, const void* source, std::size_t length,
                       std::size_t* count) {
    *count = 0;
    while (*count < length) {
        std::size_t transferred = 0;
        const SystemError error = filePlatform_repeat("write", stream->path, [&] {
            return filePlatform().writeAt(stream->descriptor, static_cast<const std::uint8_t*>(source) + *count,
                                          length - *count, offset + static_cast<std::int64_t>(*count), &transferred);
        });
        if (error.failed()) {
            return error;
        }
        if (transferred == 0) {
            constexpr SystemError nothingTaken = static_cast<int>(std::errc::io_error);
            systemError_keep(nothingTaken, "write", stream->path);
            return nothingTaken;
        }
        *count += transferred;
    }
    return 0;
}

void dropReadAhead(FileStream* stream) {
    if (!stream->gathering) {
        stream->bufferLength = 0;
    }
}

void start(FileStream* stream, int descriptor) {
    stream->descriptor = descriptor;
    stream->position = 0;
    stream->bufferLength = 0;
    stream->gathering = false;
}

}  // namespace

SystemError fileStream_open(FileStream* stream, const char* path, FileAccess access, bool empty) noexcept {
    int descriptor = -1;
    SystemError error =
        filePlatform_repeat("open", path, [&] { return filePlatform().open(path, access, &descriptor); });
    if (error.failed()) {
        return error;
    }
    if (access != FileAccess::read) {
        error = filePlatform_repeat("lock", path, [&] { return filePlatform().lock(descriptor); });
    }
    if (!error.failed() && empty) {
        error = filePlatform_repeat("cut", path, [&] { return filePlatform().truncate(descriptor, 0); });
    }
    if (error.failed()) {
        // Also a new file stays where it is: without the lock it may be another writer's by now.
        (void)filePlatform().close(descriptor);  // the failure before it is what counts
        return error;
    }
    start(stream, descriptor);
    return 0;
}

SystemError fileStream_create(FileStream* stream, const char* path) noexcept {
    int descriptor = -1;
    const SystemError error = filePlatform_repeat(
        "open", path, [&] { return filePlatform().open(path, FileAccess::createNew, &descriptor); });
    if (!error.failed()) {
        start(stream, descriptor);
    }
    return error;
}

SystemError fileStream_close(FileStream* stream) noexcept {
    SystemError error = fileStream_flush(stream);
    // A child that was forked meanwhile shares the lock: closing alone would leave it in the child's hands.
    (void)filePlatform_repeat("unlock", stream->path,
                              [&] { return filePlatform().unlock(stream->descriptor); });  // closing ends it anyway
    const SystemError closeError = filePlatform().close(stream->descriptor);
    systemError_keep(closeError, "close", stream->path);
    stream->descriptor = -1;
    return error.failed() ? error : closeError;
}

SystemError fileStream_read(FileStream* stream, void* destination, std::size_t length, std::size_t* count) noexcept {
    *count = 0;
    SystemError error = fileStream_flush(stream);
    auto* out = static_cast<std::uint8_t*>(destination);
    while (!error.failed() && *count < length) {
        const std::int64_t ahead = stream->bufferStart + static_cast<std::int64_t>(stream->bufferLength);
        if (stream->position >= stream->bufferStart && stream->position < ahead) {
            const std::size_t part = std::min(length - *count, static_cast<std::size_t>(ahead - stream->position));
            std::memcpy(out + *count, stream->buffer.data() + (stream->position - stream->bufferStart), part);
            stream->position += static_cast<std::int64_t>(part);
            *count += part;
            continue;
        }
        stream->bufferLength = 0;
        const std::size_t wanted = length - *count;
        const bool direct = wanted >= FILE_STREAM_BUFFER;
        std::size_t transferred = 0;
        error = direct ? readFully(stream, stream->position, out + *count, wanted, &transferred)
                       : filePlatform_repeat("read", stream->path, [&] {
                             return filePlatform().readAt(stream->descriptor, stream->buffer.data(), FILE_STREAM_BUFFER,
                                                          stream->position, &transferred);
                         });
        if (direct) {
            stream->position += static_cast<std::int64_t>(transferred);
            *count += transferred;
            break;
        }
        if (!error.failed() && transferred == 0) {
            break;
        }
        stream->bufferStart = stream->position;
        stream->bufferLength = !error.failed() ? transferred : 0;
    }
    return error;
}

SystemError fileStream_flush(FileStream* stream) noexcept {
    if (!stream->gathering) {
        return 0;
    }
    stream->gathering = false;
    const std::size_t length = stream->bufferLength;
    stream->bufferLength = 0;
    std::size_t written = 0;
    const SystemError error = writeFully(stream, stream->bufferStart, stream->buffer.data(), length, &written);
    if (error.failed()) {
        stream->position = stream->bufferStart + static_cast<std::int64_t>(written);
    }
    return error;
}

SystemError fileStream_write(FileStream* stream, const void* source, std::size_t length) noexcept {
    dropReadAhead(stream);
    if (stream->bufferLength + length > FILE_STREAM_BUFFER) {
        const SystemError error = fileStream_flush(stream);
        if (error.failed()) {
            return error;
        }
    }
    if (length > FILE_STREAM_BUFFER) {
        std::size_t written = 0;
        const SystemError error = writeFully(stream, stream->position, source, length, &written);
        stream->position += static_cast<std::int64_t>(written);
        return error;
    }
    if (length == 0) {
        return 0;
    }
    if (!stream->gathering) {
        stream->gathering = true;
        stream->bufferStart = stream->position;
        stream->bufferLength = 0;
    }
    std::memcpy(stream->buffer.data() + stream->bufferLength, source, length);
    stream->bufferLength += length;
    stream->position += static_cast<std::int64_t>(length);
    return 0;
}

SystemError fileStream_seek(FileStream* stream, std::int64_t position) noexcept {
    const SystemError error = fileStream_flush(stream);
    if (error.failed()) {
        return error;
    }
    dropReadAhead(stream);
    stream->position = position;
    return 0;
}

SystemError fileStream_readAt(FileStream* stream, std::int64_t offset, void* destination, std::size_t length,
                              std::size_t* count) noexcept {
    *count = 0;
    const SystemError error = fileStream_flush(stream);
    return error.failed() ? error : readFully(stream, offset, destination, length, count);
}

SystemError fileStream_readOnceAt(FileStream* stream, std::int64_t offset, void* destination, std::size_t length,
                                  std::size_t* count) noexcept {
    *count = 0;
    const SystemError error = fileStream_flush(stream);
    return error.failed() ? error : filePlatform_repeat("read", stream->path, [&] {
        return filePlatform().readAt(stream->descriptor, destination, length, offset, count);
    });
}

SystemError fileStream_size(FileStream* stream, std::int64_t* size) noexcept {
    const SystemError error = fileStream_flush(stream);
    return error.failed() ? error : filePlatform_repeat("size", stream->path, [&] {
        return filePlatform().size(stream->descriptor, size);
    });
}

SystemError fileStream_truncate(FileStream* stream, std::int64_t length) noexcept {
    dropReadAhead(stream);
    return filePlatform_repeat("cut", stream->path,
                               [&] { return filePlatform().truncate(stream->descriptor, length); });
}

SystemError fileStream_sync(FileStream* stream) noexcept {
    return filePlatform_repeat("commit", stream->path, [&] { return filePlatform().sync(stream->descriptor); });
}

bool fileStream_writtenBeforeStart(const FileStream* stream) noexcept {
    return filePlatform().writtenBeforeStart(stream->descriptor);
}

}  // namespace tabulo::internal
