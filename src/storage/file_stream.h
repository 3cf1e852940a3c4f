// A buffered stream over one file, with positions of its own: the layer between a table file and the platform seam.
//
// One buffer of 4096 bytes serves reading or writing, never both at once. Writes of up to that size are gathered until
// the next flush; larger ones go to the system at once, in one call. Reads fill the buffer; a read of its size or more
// bypasses it. A seek writes out what was gathered and drops what was read, so bytes read after a seek are fresh; and
// the end of the file is never remembered, so bytes appended meanwhile are seen.
//
// All operations return 0 or the system's error number. Interrupted and short transfers are repeated here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/system_error.h"
#include "storage/file_platform.h"

namespace tabulo::internal {

inline constexpr std::size_t FILE_STREAM_BUFFER = 4096;

struct FileStream {
    int descriptor = -1;           // -1 when closed
    const char* path = nullptr;    // for errors; borrowed, null when its owner keeps none
    std::int64_t position = 0;     // of the next byte read or written
    std::int64_t bufferStart = 0;  // file offset of the buffer's first byte
    std::size_t bufferLength = 0;  // bytes gathered, or bytes read ahead
    bool gathering = false;        // the buffer holds bytes to write
    std::array<std::uint8_t, FILE_STREAM_BUFFER> buffer;
};

// Opens a file at position 0. For writing it takes the writer's lock, and only then, with `empty`, cuts the file. A new
// file (createNew) that cannot be locked stays, empty.
SystemError fileStream_open(FileStream* stream, const char* path, FileAccess access, bool empty) noexcept;
// Makes a file that is not there yet (filePlatform_isExisting), without the lock: for a name that nobody else uses.
SystemError fileStream_create(FileStream* stream, const char* path) noexcept;
// Writes out what is gathered, unlocks and closes. The stream is closed afterwards whatever the result.
SystemError fileStream_close(FileStream* stream) noexcept;
// Reads up to `length` bytes; fewer only at the end of the file, or with an error.
SystemError fileStream_read(FileStream* stream, void* destination, std::size_t length, std::size_t* count) noexcept;
// Writes `length` bytes. On failure the position is behind the last byte that reached the file, and gathered bytes are
// discarded.
SystemError fileStream_write(FileStream* stream, const void* source, std::size_t length) noexcept;
// Hands gathered bytes to the system; failures as in fileStream_write.
SystemError fileStream_flush(FileStream* stream) noexcept;
// Moves to an absolute position.
SystemError fileStream_seek(FileStream* stream, std::int64_t position) noexcept;
// Reads at an absolute offset past the buffer and the position; gathered bytes are written out first.
SystemError fileStream_readAt(FileStream* stream, std::int64_t offset, void* destination, std::size_t length,
                              std::size_t* count) noexcept;
// The same with one call to the system, which may give fewer bytes although more are there: all of them are of one
// moment.
SystemError fileStream_readOnceAt(FileStream* stream, std::int64_t offset, void* destination, std::size_t length,
                                  std::size_t* count) noexcept;
// The file's length as the system knows it; gathered bytes are written out first.
SystemError fileStream_size(FileStream* stream, std::int64_t* size) noexcept;
// Cuts or extends the file; the position stays.
SystemError fileStream_truncate(FileStream* stream, std::int64_t length) noexcept;
// Commits the file to the disk.
SystemError fileStream_sync(FileStream* stream) noexcept;
// FilePlatform::writtenBeforeStart of the file.
bool fileStream_writtenBeforeStart(const FileStream* stream) noexcept;

}  // namespace tabulo::internal
