#include "storage/table_file.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <new>

#include "core/compiler.h"
#include "core/log.h"
#include "storage/table_file_internal.h"

namespace tabulo::internal {

namespace {

constexpr std::array<const char*, 3> streamModes = {"rb", "r+b", "w+b"};

// Opens the stream in one mode without falling back to another.
SystemError stream_open(FileStream* stream, const char* path, OpenMode mode, bool onlyNew) {
    switch (mode) {
        case OpenMode::read:
            return fileStream_open(stream, path, FileAccess::read, false);
        case OpenMode::write:
            return fileStream_open(stream, path, FileAccess::readWrite, false);
        default:
            return fileStream_open(stream, path, onlyNew ? FileAccess::createNew : FileAccess::createOrOpen, !onlyNew);
    }
}

void logOpening(const char* path, OpenMode mode) {
    log_debug("FileOpen", "opening file '%s' in mode %d (%s)\n", path, openMode_number(mode),
              streamModes[static_cast<std::size_t>(mode)]);
}

// Reads and discards the bytes up to the virtual position, so that the stream's buffer survives a short move.
ErrorCode discardToVirtualPosition(TableFile* file) {
    std::array<std::uint8_t, FILE_STREAM_BUFFER> scratch;
    const std::int64_t target = file->physicalPos + file->pendingOffset;
    std::size_t count = 0;
    const auto wanted = static_cast<std::size_t>(file->pendingOffset);
    const SystemError error = fileStream_read(&file->stream, scratch.data(), wanted, &count);
    if (error.failed() || count != wanted) {
        log_debug("FileRead", "fread in seek failed with code %d. Returning FILE_SEEK_ERROR\n", error.number);
        file->physicalPos = file->stream.position;
        file->pendingOffset = target - file->physicalPos;
        return FILE_SEEK_ERROR;
    }
    file->physicalPos = target;
    file->pendingOffset = 0;
    return NO_ERROR;
}

ErrorCode readAt(TableFile* file, std::int64_t offset, void* buffer, std::int64_t length, std::int64_t* bytesRead,
                 SystemError (*read)(FileStream*, std::int64_t, void*, std::size_t, std::size_t*)) {
    *bytesRead = 0;
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    if (length < 0 || offset < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    std::size_t count = 0;
    const SystemError error = read(&file->stream, offset, buffer, static_cast<std::size_t>(length), &count);
    *bytesRead = static_cast<std::int64_t>(count);
    return !error.failed() ? NO_ERROR : FILE_READ_ERROR;
}

bool withinCachedSize(const TableFile* file, std::int64_t length) {
    return length <= file->size - (file->physicalPos + file->pendingOffset);
}

}  // namespace

ErrorCode tableFile_check(const TableFile* file) noexcept {
    if (file == nullptr) {
        return NULL_POINTER_ERROR;
    }
    return file->stream.descriptor < 0 ? SYSTEM_FILE_ERROR : NO_ERROR;
}

void tableFile_resetPosition(TableFile* file) noexcept {
    const std::int64_t virtualPos = file->physicalPos + file->pendingOffset;
    file->physicalPos = file->stream.position;
    file->pendingOffset = virtualPos - file->physicalPos;
    (void)tableFileRefreshSize(file, nullptr);  // without an answer the cached size stays
}

ErrorCode tableFileOpen(TableFile** file, const char* path, OpenMode mode, bool* created,
                        FilePresence presence) noexcept {
    if (file == nullptr) {
        return NULL_POINTER_ERROR;
    }
    *file = nullptr;
    if (created != nullptr) {
        *created = mode == OpenMode::create;
    }
    if (path == nullptr || !openMode_isKnown(mode)) {
        return WRONG_PARAMETER_ERROR;
    }
    std::unique_ptr<TableFile> opened;
    try {
        opened = std::make_unique<TableFile>();
        opened->path = path;
        opened->stream.path = opened->path.c_str();
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    opened->mode = mode;
    const bool mustBeNew = mode == OpenMode::write && presence == FilePresence::missing;
    SystemError error;
    if (!mustBeNew) {
        logOpening(path, mode);
        error = stream_open(&opened->stream, path, mode, false);
    }
    const bool mayCreate = mode == OpenMode::write && presence == FilePresence::any && filePlatform_isMissing(error);
    if (mustBeNew || mayCreate) {
        opened->mode = OpenMode::create;
        if (created != nullptr) {
            *created = true;  // also when this fails
        }
        systemError_clear();  // that the file was missing is no failure
        logOpening(path, opened->mode);
        error = stream_open(&opened->stream, path, opened->mode, true);
    }
    if (!error.failed()) {
        error = fileStream_size(&opened->stream, &opened->size);
        if (error.failed()) {
            (void)fileStream_close(&opened->stream);  // the size is what could not be had
        }
    }
    if (error.failed()) {
        log_warning("tableFileOpen", "fopen() failed: %s\n", filePlatform_errorText(error));
        return FILE_OPEN_ERROR;
    }
    // Also of an existing file: whoever made it may not have committed its name.
    opened->directorySyncPending = opened->mode != OpenMode::read;
    if (created != nullptr) {
        *created = opened->mode == OpenMode::create;
    }
    log_debug("FileOpen", "returning OK (fd=%d)\n", opened->stream.descriptor);
    *file = opened.release();
    return NO_ERROR;
}

ErrorCode tableFileClose(TableFile* file) noexcept {
    if (file == nullptr) {
        return NULL_POINTER_ERROR;
    }
    log_debug("tableFileClose", "closing file (fd=%d)\n", file->stream.descriptor);
    if (file->stream.descriptor >= 0) {
        tableFile_syncBeforeClose(file);
        const SystemError error = fileStream_close(&file->stream);
        if (error.failed()) {
            log_debug("tableFileClose", "fclose() failed: %s.\n", filePlatform_errorText(error));
            return SYSTEM_FILE_ERROR;
        }
    }
    delete file;
    log_debug("tableFileClose", "returning OK\n");
    return NO_ERROR;
}

ErrorCode tableFileRealSeek(TableFile* file, std::int64_t offset, std::int32_t whence) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    std::int64_t base = 0;
    if (whence == SEEK_FROM_CURRENT) {
        base = file->stream.position;
    } else if (whence == SEEK_FROM_END) {
        if (fileStream_size(&file->stream, &base).failed()) {
            return FILE_SEEK_ERROR;
        }
    } else if (whence != SEEK_FROM_START) {
        return WRONG_PARAMETER_ERROR;
    }
    std::int64_t target = 0;
    if (addOverflows(base, offset, &target) || target < 0) {
        return FILE_SEEK_ERROR;
    }
    return fileStream_seek(&file->stream, target).failed() ? FILE_SEEK_ERROR : NO_ERROR;
}

ErrorCode tableFileSeekSync(TableFile* file, bool force) noexcept {
    if (file->pendingOffset == 0 && !force) {
        return NO_ERROR;
    }
    if (file->mode == OpenMode::read && file->pendingOffset > 0 &&
        file->pendingOffset < static_cast<std::int64_t>(FILE_STREAM_BUFFER)) {
        return discardToVirtualPosition(file);
    }
    const ErrorCode code = tableFileRealSeek(file, file->pendingOffset, SEEK_FROM_CURRENT);
    if (code != NO_ERROR) {
        log_debug("tableFileSeekSync", "tableFileRealSeek() failed. Returning %d\n", FILE_SEEK_ERROR);
        log_perror("tableFileRealSeek()");
        tableFile_resetPosition(file);
        return FILE_SEEK_ERROR;
    }
    file->physicalPos += file->pendingOffset;
    file->pendingOffset = 0;
    return NO_ERROR;
}

ErrorCode tableFileRead(TableFile* file, void* buffer, std::int64_t length, std::int64_t* bytesRead) noexcept {
    if (bytesRead != nullptr) {
        *bytesRead = 0;
    }
    ErrorCode code = tableFile_check(file);
    if (code != NO_ERROR) {
        return code;
    }
    if (length < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    code = tableFileSeekSync(file, file->lastOperation != TableFileOperation::read);
    if (code != NO_ERROR) {
        log_debug("tableFileRead", "syncing position failed\n");
        return code;
    }
    file->lastOperation = TableFileOperation::read;
    std::size_t count = 0;
    const SystemError error = fileStream_read(&file->stream, buffer, static_cast<std::size_t>(length), &count);
    file->physicalPos += static_cast<std::int64_t>(count);
    if (bytesRead != nullptr) {
        *bytesRead = static_cast<std::int64_t>(count);
    }
    return !error.failed() ? NO_ERROR : FILE_READ_ERROR;
}

ErrorCode tableFileReadExact(TableFile* file, void* buffer, std::int64_t length) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    if (length < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    const std::int64_t start = file->physicalPos + file->pendingOffset;
    std::int64_t count = 0;
    const ErrorCode code = tableFileRead(file, buffer, length, &count);
    if (code != NO_ERROR || count != length) {
        log_debug("FileRead",
                  "fread %" PRId64 " bytes from pos %" PRId64 " failed: only %" PRId64
                  " bytes read. Returning FILE_READ_ERROR.\n",
                  length, start, count);
        return FILE_READ_ERROR;
    }
    return NO_ERROR;
}

ErrorCode tableFileReadChecked(TableFile* file, void* buffer, std::int64_t length) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    if (length >= 0 && !withinCachedSize(file, length)) {
        return FILE_SIZE_ERROR;
    }
    return tableFileReadExact(file, buffer, length);
}

ErrorCode tableFileReadBackward(TableFile* file, void* buffer, std::int64_t length) noexcept {
    if (length < 0) {
        const ErrorCode checked = tableFile_check(file);
        return checked != NO_ERROR ? checked : WRONG_PARAMETER_ERROR;
    }
    ErrorCode code = tableFileSeekCur(file, -length);
    if (code == NO_ERROR) {
        code = tableFileReadExact(file, buffer, length);
    }
    return code == NO_ERROR ? tableFileSeekCur(file, -length) : code;
}

ErrorCode tableFileReadAt(TableFile* file, std::int64_t offset, void* buffer, std::int64_t length,
                          std::int64_t* bytesRead) noexcept {
    return readAt(file, offset, buffer, length, bytesRead, fileStream_readAt);
}

ErrorCode tableFileReadOnceAt(TableFile* file, std::int64_t offset, void* buffer, std::int64_t length,
                              std::int64_t* bytesRead) noexcept {
    return readAt(file, offset, buffer, length, bytesRead, fileStream_readOnceAt);
}

ErrorCode tableFileSkip(TableFile* file, std::int64_t length) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    if (length < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    return withinCachedSize(file, length) ? tableFileSeekCur(file, length) : FILE_SIZE_ERROR;
}

ErrorCode tableFileWrite(TableFile* file, const void* buffer, std::int64_t length) noexcept {
    ErrorCode code = tableFile_check(file);
    if (code != NO_ERROR) {
        return code;
    }
    if (file->mode == OpenMode::read) {
        return READ_ONLY_ERROR;
    }
    if (length < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    code = tableFileSeekSync(file, file->lastOperation != TableFileOperation::write);
    if (code != NO_ERROR) {
        log_debug("tableFileWrite", "syncing position failed\n");
        return code;
    }
    file->lastOperation = TableFileOperation::write;
    if (fileStream_write(&file->stream, buffer, static_cast<std::size_t>(length)).failed()) {
        file->physicalPos = file->stream.position;
        return FILE_WRITE_ERROR;
    }
    file->physicalPos += length;
    file->size = std::max(file->size, file->physicalPos);
    return NO_ERROR;
}

ErrorCode tableFileGetSize(TableFile* file, std::int64_t* size) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    if (file->mode == OpenMode::read) {
        return tableFileRefreshSize(file, size);
    }
    *size = file->size;
    return NO_ERROR;
}

ErrorCode tableFileRefreshSize(TableFile* file, std::int64_t* size) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    std::int64_t current = 0;
    if (fileStream_size(&file->stream, &current).failed()) {
        return SYSTEM_FILE_ERROR;
    }
    file->size = current;
    if (size != nullptr) {
        *size = current;
    }
    return NO_ERROR;
}

std::int64_t tableFileCachedSize(const TableFile* file) noexcept {
    return file == nullptr ? 0 : file->size;
}

OpenMode tableFileGetMode(const TableFile* file) noexcept {
    return file == nullptr ? OpenMode::read : file->mode;
}

ErrorCode tableFileFollowEnd(TableFile* file) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR || file->mode != OpenMode::read) {
        return checked;
    }
    const std::int64_t before = file->physicalPos;
    const ErrorCode code = tableFileRealSeek(file, 0, SEEK_FROM_END);
    file->physicalPos = file->stream.position;
    file->pendingOffset += before - file->physicalPos;
    return code;
}

bool tableFileWrittenBeforeStart(const TableFile* file) noexcept {
    return file != nullptr && fileStream_writtenBeforeStart(&file->stream);
}

bool tableFileIsReplaced(const TableFile* file) noexcept {
    bool same = true;
    return file != nullptr && !filePlatform().isAt(file->stream.descriptor, file->path.c_str(), &same).failed() &&
           !same;
}

std::int64_t tableFileSetRangeStart(TableFile* file, std::int64_t start) noexcept {
    if (file == nullptr) {
        return 0;
    }
    const std::int64_t previous = file->rangeStart;
    file->rangeStart = start;
    return previous;
}

}  // namespace tabulo::internal
