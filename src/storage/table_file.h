// One open file of a table: a buffered stream with a cached size and a virtual position.
//
// Seeks move the virtual position only and check it against [rangeStart, size]; the stream moves when the next read,
// write or truncation needs it. On a read-only file a forward move below 4096 bytes is done by reading, so that the
// stream's buffer survives, and a seek behind the known end asks the system for the size again: another process may be
// appending. A file that is open for writing is locked against other writers, not against readers.
//
// One thread at a time uses a file. Every operation returns NULL_POINTER_ERROR for a null file and SYSTEM_FILE_ERROR
// for a file whose close failed. Negative lengths give WRONG_PARAMETER_ERROR.
#pragma once

#include <cstdint>
#include <string>

#include "core/error_codes.h"
#include "storage/file_stream.h"
#include "storage/open_mode.h"

namespace tabulo::internal {

inline constexpr std::int32_t SEEK_FROM_START = 0;
inline constexpr std::int32_t SEEK_FROM_CURRENT = 1;
inline constexpr std::int32_t SEEK_FROM_END = 2;

enum class TableFileOperation : std::int32_t { none = 0, write = 1, read = 2, truncate = 3 };

struct TableFile {
    FileStream stream;
    OpenMode mode = OpenMode::read;  // as opened; a created file has OpenMode::create
    std::int64_t rangeStart = 0;     // lowest allowed virtual position
    std::int64_t size = 0;           // cached file length
    std::int64_t physicalPos = 0;    // position of the stream as last set by this record
    std::int64_t pendingOffset = 0;  // virtual position minus physicalPos
    std::int32_t flushesCount = 0;   // flushes since the last physical sync
    std::int64_t lastSyncTime = 0;   // seconds since the epoch
    TableFileOperation lastOperation = TableFileOperation::none;
    bool directorySyncPending = false;  // the first physical sync of a writable file commits its name too
    bool commitFailed = false;          // the last physical sync failed, and a WARNING has said so
    std::string path;
};

// Opens a file in one of the three modes and sets *created (may be null) to whether it was created or emptied, or that
// was tried. The
// caller owns the record until a tableFileClose succeeds. WRONG_PARAMETER_ERROR: null path or unknown mode.
// OUT_OF_MEMORY_ERROR. FILE_OPEN_ERROR, with a WARNING: the system refuses, the path is a directory, or another process
// writes the file. A file is created only where none exists (mode 1) and cut only under the lock (mode 2). With another
// presence than `any`, mode 1 does not create a missing file, or refuses one that is there.
ErrorCode tableFileOpen(TableFile** file, const char* path, OpenMode mode, bool* created,
                        FilePresence presence = FilePresence::any) noexcept;
// Commits what the sync policy still owes, unlocks, closes and frees the record. SYSTEM_FILE_ERROR when the system
// could not close or write out gathered bytes: the record stays, its stream is gone, and a second close frees it.
ErrorCode tableFileClose(TableFile* file) noexcept;

// Move the virtual position. VSEEK_ERROR outside [rangeStart, size] or beyond 64 bits, position unchanged;
// SYSTEM_FILE_ERROR when the size cannot be asked.
ErrorCode tableFileSeekSet(TableFile* file, std::int64_t offset) noexcept;
ErrorCode tableFileSeekCur(TableFile* file, std::int64_t offset) noexcept;
ErrorCode tableFileSeekEnd(TableFile* file, std::int64_t offset) noexcept;
// All three in one; WRONG_PARAMETER_ERROR for an unknown whence. No caller of ours: each knows which one it wants.
ErrorCode tableFileSeek(TableFile* file, std::int64_t offset, std::int32_t whence) noexcept;
// The virtual position.
ErrorCode tableFileTell(TableFile* file, std::int64_t* position) noexcept;

// Reads up to `length` bytes at the virtual position; a short read at the file's end is no error. FILE_READ_ERROR when
// the system refuses, FILE_SEEK_ERROR when the stream cannot be moved.
ErrorCode tableFileRead(TableFile* file, void* buffer, std::int64_t length, std::int64_t* bytesRead) noexcept;
// As tableFileRead, but fewer bytes than asked, for whatever reason, is FILE_READ_ERROR.
ErrorCode tableFileReadExact(TableFile* file, void* buffer, std::int64_t length) noexcept;
// FILE_SIZE_ERROR when fewer than `length` bytes lie before the cached size (nothing is read), else tableFileReadExact.
// No caller of ours: those that know the size read what is there.
ErrorCode tableFileReadChecked(TableFile* file, void* buffer, std::int64_t length) noexcept;
// Reads the `length` bytes that end at the virtual position and leaves the position at their start.
// No caller of ours: walks backward read blocks at their offsets.
ErrorCode tableFileReadBackward(TableFile* file, void* buffer, std::int64_t length) noexcept;
// Reads up to `length` bytes at an absolute offset. Neither position moves and no buffer is
// used, so the bytes are those of this moment. A short read at the file's end is no error; FILE_READ_ERROR.
ErrorCode tableFileReadAt(TableFile* file, std::int64_t offset, void* buffer, std::int64_t length,
                          std::int64_t* bytesRead) noexcept;
// As tableFileReadAt, in exactly one call to the system: the bytes are those of one moment, never put together from two
// while another process cuts and appends. Fewer bytes than asked do not mean the file's end.
ErrorCode tableFileReadOnceAt(TableFile* file, std::int64_t offset, void* buffer, std::int64_t length,
                              std::int64_t* bytesRead) noexcept;
// FILE_SIZE_ERROR when fewer than `length` bytes lie before the cached size, else tableFileSeekCur. No caller of ours:
// ours skip inside streams.
ErrorCode tableFileSkip(TableFile* file, std::int64_t length) noexcept;

// Writes at the virtual position. READ_ONLY_ERROR on a read-only file. Up to 4096 bytes are gathered until the flush;
// more go to the system at once: FILE_WRITE_ERROR when it refuses (physicalPos is then the stream's real position, size
// unchanged). FILE_SEEK_ERROR when the stream cannot be moved.
ErrorCode tableFileWrite(TableFile* file, const void* buffer, std::int64_t length) noexcept;
// Hands gathered bytes to the system and, when the sync policy says so, commits the file to the disk. FILE_FLUSH_ERROR:
// gathered bytes are lost, position and size are taken from the system again. A commit that fails does not
// change the result; it is told as in tableFileCommit.
ErrorCode tableFileFlush(TableFile* file) noexcept;
// Commits the file, and its name if that has not been done, to the disk now, whatever the policy. FILE_FLUSH_ERROR when
// the system reports that as failed; this also gives one WARNING under `function`, with the path and the system's
// words, and the next one only after a commit of this file has succeeded.
ErrorCode tableFileCommit(TableFile* file, const char* function) noexcept;
// Cuts (or extends) the file to newSize and moves a position beyond it there. READ_ONLY_ERROR; FILE_SEEK_ERROR
// when gathered bytes cannot be written out first; FILE_TRUNCATE_ERROR. A cut that fails with the position at the
// file's end is reported as success on purpose: callers go by the size.
ErrorCode tableFileTruncate(TableFile* file, std::int64_t newSize) noexcept;

// The file's length: the cached size of a writable file, the system's answer for a read-only one.
ErrorCode tableFileGetSize(TableFile* file, std::int64_t* size) noexcept;
// Asks the system and caches the answer. SYSTEM_FILE_ERROR when it has none. `size` may be null.
ErrorCode tableFileRefreshSize(TableFile* file, std::int64_t* size) noexcept;
// The cached size, 0 for a null file; the mode, that of reading for a null file.
std::int64_t tableFileCachedSize(const TableFile* file) noexcept;
OpenMode tableFileGetMode(const TableFile* file) noexcept;
// Read-only files: drops what the stream has read ahead, keeps the virtual position. The next read sees bytes that
// another process has written since. FILE_SEEK_ERROR. Writable files: no effect.
ErrorCode tableFileFollowEnd(TableFile* file) noexcept;
// True when the file was last written before this machine was started (FilePlatform::writtenBeforeStart): ask it before
// writing. False for a null file.
bool tableFileWrittenBeforeStart(const TableFile* file) noexcept;
// True when the file's path leads to another file by now; false also when it leads to none.
bool tableFileIsReplaced(const TableFile* file) noexcept;
// Sets the lowest allowed virtual position and returns the previous one; 0 for a null file. No caller of ours: our
// tables begin where their files do.
std::int64_t tableFileSetRangeStart(TableFile* file, std::int64_t start) noexcept;

// The process-wide policy that decides when a flush also commits to the disk: off, or every syncIntervalSeconds, or
// every 2 x syncFlushCount flushes of a file, or (both 0) at every flush. Off at load. Not guarded: set it before
// tables are used.
void tableFileSetSyncPolicy(bool doSyncToDisk, std::int32_t syncIntervalSeconds, std::int32_t syncFlushCount) noexcept;

}  // namespace tabulo::internal
