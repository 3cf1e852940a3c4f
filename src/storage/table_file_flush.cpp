// Flushing with the sync policy, and cutting, of a table file.
#include <cinttypes>
#include <limits>

#include "core/log.h"
#include "storage/table_file.h"
#include "storage/table_file_internal.h"

namespace tabulo::internal {

namespace {

struct SyncPolicy {
    bool doSyncToDisk = false;
    std::int32_t syncIntervalSeconds = 0;
    std::int32_t syncFlushCount = 0;
};

SyncPolicy syncPolicy;

// The flush count is doubled on purpose: hosts configure it in messages and count two flushes for each.
bool isSyncDue(const TableFile* file, std::int64_t elapsed) {
    const std::int64_t interval = syncPolicy.syncIntervalSeconds;
    const std::int64_t flushes = 2 * std::int64_t{syncPolicy.syncFlushCount};
    if (interval == 0 && flushes == 0) {
        return true;
    }
    // A clock that was set back must not suspend syncing.
    if (interval != 0 && (elapsed >= interval || elapsed < 0)) {
        return true;
    }
    return flushes != 0 && file->flushesCount >= flushes;
}

}  // namespace

ErrorCode sys_ftruncate(FileStream* stream, std::int64_t length) noexcept {
    if (stream->descriptor < 0) {
        log_debug("sys_ftruncate", "getUnderlyingDescriptor() failed.\n");
        return SYSTEM_FILE_ERROR;
    }
    if (fileStream_flush(stream).failed()) {
        return FILE_FLUSH_ERROR;
    }
    // The system takes milliseconds for a cut of a large file that was just written, even where nothing is to be cut.
    std::int64_t size = 0;
    const bool needed = fileStream_size(stream, &size).failed() || size != length;
    const SystemError error = needed ? fileStream_truncate(stream, length) : SystemError();
    if (error.failed()) {
        log_debug("sys_ftruncate", "truncating failed. Windows error code: %d.\n", error.number);
        return FILE_TRUNCATE_ERROR;
    }
    if (stream->position >= length) {
        stream->position = length;
    }
    return NO_ERROR;
}

void tableFileSetSyncPolicy(bool doSyncToDisk, std::int32_t syncIntervalSeconds, std::int32_t syncFlushCount) noexcept {
    syncPolicy = {doSyncToDisk, syncIntervalSeconds, syncFlushCount};
}

ErrorCode tableFileCommit(TableFile* file, const char* function) noexcept {
    SystemError error = fileStream_sync(&file->stream);
    if (file->directorySyncPending) {
        const SystemError named = filePlatform_repeat("commit", file->path.c_str(),
                                                      [&] { return filePlatform().syncDirectory(file->path.c_str()); });
        error = error.failed() ? error : named;
        file->directorySyncPending = named.failed();
    }
    file->flushesCount = 0;
    if (error.failed() && !file->commitFailed) {
        log_warning(function, "commit of %s to the disk failed: %s\n", file->path.c_str(),
                    filePlatform_errorText(error));
    }
    file->commitFailed = error.failed();
    return error.failed() ? FILE_FLUSH_ERROR : NO_ERROR;
}

void tableFile_syncBeforeClose(TableFile* file) noexcept {
    if (syncPolicy.doSyncToDisk && file->mode != OpenMode::read && file->flushesCount > 0) {
        (void)tableFileCommit(file, "tableFileClose");  // a WARNING tells
    }
}

ErrorCode tableFileFlush(TableFile* file) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    ErrorCode result = NO_ERROR;
    if (fileStream_flush(&file->stream).failed()) {
        result = FILE_FLUSH_ERROR;
        const bool moved = file->pendingOffset != 0;
        tableFile_resetPosition(file);
        if (!moved) {
            file->pendingOffset = 0;
        }
    }
    if (file->flushesCount < std::numeric_limits<std::int32_t>::max()) {
        file->flushesCount += 1;
    }
    if (!syncPolicy.doSyncToDisk) {
        return result;
    }
    const std::int64_t now = filePlatform().now();
    const std::int64_t elapsed = now - file->lastSyncTime;
    if (isSyncDue(file, elapsed)) {
        const std::int32_t flushes = file->flushesCount;
        (void)tableFileCommit(file, "tableFileFlush");  // a WARNING tells
        log_debug("tableFileFlush", "physical sync performed: timeSinceFlush = %ld, flushesCount = %d\n",
                  static_cast<long>(elapsed), flushes);
        file->lastSyncTime = now;
    }
    return result;
}

ErrorCode tableFileTruncate(TableFile* file, std::int64_t newSize) noexcept {
    ErrorCode code = tableFile_check(file);
    if (code != NO_ERROR) {
        return code;
    }
    if (file->mode == OpenMode::read) {
        return READ_ONLY_ERROR;
    }
    if (newSize < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    if (file->physicalPos + file->pendingOffset >= newSize) {
        (void)tableFileSeekSet(file, newSize);  // a size that cannot be sought to is cut to all the same
    }
    code = tableFileSeekSync(file, true);
    if (code != NO_ERROR) {
        return code;
    }
    const std::int64_t position = file->physicalPos;
    file->lastOperation = TableFileOperation::truncate;
    const ErrorCode cut = sys_ftruncate(&file->stream, newSize);
    file->physicalPos = file->stream.position;
    (void)tableFileRefreshSize(file, nullptr);  // without an answer the cached size stays
    if (cut != NO_ERROR && position < file->size) {
        // The failed cut is what the caller hears of.
        (void)tableFileSeekSet(file, position);
        (void)tableFileSeekSync(file, true);
        return cut;
    }
    code = tableFileRefreshSize(file, nullptr);
    log_debug("tableFileTruncate", "requested file size = %" PRId64 ", actual file size = %" PRId64 ".\n", newSize,
              file->size);
    return code;
}

}  // namespace tabulo::internal
