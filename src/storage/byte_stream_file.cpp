#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

ErrorCode fail(KSVByteStream* stream, ErrorCode code) {
    byteStream_clear(stream);
    stream->error = code;
    return code;
}

}  // namespace

ErrorCode byteStream_writeToFile(KSVByteStream* stream, TableFile* file) noexcept {
    if (stream == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (byteStream_error(stream) != NO_ERROR) {
        return byteStream_error(stream);
    }
    return tableFileWrite(file, byteStream_buffer(stream), byteStream_writeMark(stream));
}

ErrorCode byteStream_readFromFile(KSVByteStream* stream, TableFile* file, std::int32_t n) noexcept {
    if (stream == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (n < 0) {
        return fail(stream, WRONG_PARAMETER_ERROR);
    }
    if (byteStream_capacity(stream) < n) {
        byteStream_clear(stream);
        if (!stream->extend(stream, n)) {
            return fail(stream, OUT_OF_MEMORY_ERROR);
        }
    }
    byteStream_clearError(stream);
    const ErrorCode code = tableFileReadExact(file, byteStream_buffer(stream), n);
    if (code != NO_ERROR) {
        return fail(stream, code);
    }
    byteStream_rewind(stream, stream->direction);
    byteStream_resetWrite(stream, n);
    return NO_ERROR;
}

ErrorCode byteStream_readFromFileAt(KSVByteStream* stream, TableFile* file, std::int64_t offset,
                                    std::int32_t n) noexcept {
    if (n < 0) {
        return fail(stream, WRONG_PARAMETER_ERROR);
    }
    if (byteStream_makeRoom(stream, n).failed()) {
        return byteStream_error(stream);
    }
    std::int64_t count = 0;
    const ErrorCode code = tableFileReadAt(file, offset, byteStream_buffer(stream), n, &count);
    if (code != NO_ERROR) {
        return fail(stream, code);
    }
    byteStream_rewind(stream, BYTE_STREAM_FORWARD);
    byteStream_resetWrite(stream, static_cast<std::int32_t>(count));
    return NO_ERROR;
}

}  // namespace tabulo::internal
