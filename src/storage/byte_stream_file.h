// Byte streams to and from a table file.
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// Writes the filled bytes at the file's virtual position. A stream that holds an error returns it and writes nothing;
// otherwise the code of tableFileWrite. NULL_POINTER_ERROR for a null stream or file.
ErrorCode byteStream_writeToFile(KSVByteStream* stream, TableFile* file) noexcept;

// Clears the stream's error, fills the stream with exactly n bytes from the file's virtual position and rewinds
// reading, keeping the direction. WRONG_PARAMETER_ERROR for a negative n, OUT_OF_MEMORY_ERROR when the buffer cannot
// hold n, FILE_READ_ERROR when the bytes are not there; the code is also the stream's error, and the stream is then
// empty.
ErrorCode byteStream_readFromFile(KSVByteStream* stream, TableFile* file, std::int32_t n) noexcept;

// As byteStream_readFromFile, forward, from an absolute offset and past the file's buffer and position
// (tableFileReadAt): up to n bytes, fewer at the file's end.
ErrorCode byteStream_readFromFileAt(KSVByteStream* stream, TableFile* file, std::int64_t offset,
                                    std::int32_t n) noexcept;

}  // namespace tabulo::internal
