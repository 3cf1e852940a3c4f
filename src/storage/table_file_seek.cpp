// The virtual seeks of a table file: they check and remember a position, and never touch the stream.
#include <cinttypes>

#include "core/compiler.h"
#include "core/log.h"
#include "storage/table_file.h"
#include "storage/table_file_internal.h"

namespace tabulo::internal {

namespace {

ErrorCode virtualSeek(TableFile* file, std::int64_t offset, std::int64_t base, const char* function) {
    std::int64_t newPos = 0;
    if (addOverflows(base, offset, &newPos)) {
        log_debug(function,
                  "offset=%" PRId64 ": can't seek to newPos=%" PRId64 " when ranges are [%" PRId64 "..%" PRId64
                  "]. Returning VSEEK_ERROR.\n",
                  offset, newPos, file->rangeStart, file->size);
        return VSEEK_ERROR;
    }
    if (file->mode == OpenMode::read && newPos > file->size) {
        const std::int64_t oldSize = file->size;
        const ErrorCode code = tableFileRefreshSize(file, nullptr);
        if (code != NO_ERROR) {
            return code;
        }
        if (file->size != oldSize) {
            log_debug(function, "file size change was detected: old size=%" PRId64 ", new size=%" PRId64 ".\n", oldSize,
                      file->size);
        }
    }
    if (newPos < file->rangeStart || newPos > file->size) {
        log_debug(function,
                  "offset=%" PRId64 ": can't seek to newPos=%" PRId64 " when ranges are [%" PRId64 "..%" PRId64
                  "]. Returning VSEEK_ERROR.\n",
                  offset, newPos, file->rangeStart, file->size);
        return VSEEK_ERROR;
    }
    file->pendingOffset = newPos - file->physicalPos;
    return NO_ERROR;
}

}  // namespace

ErrorCode tableFileSeek(TableFile* file, std::int64_t offset, std::int32_t whence) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    switch (whence) {
        case SEEK_FROM_START:
            return tableFileSeekSet(file, offset);
        case SEEK_FROM_CURRENT:
            return tableFileSeekCur(file, offset);
        case SEEK_FROM_END:
            return tableFileSeekEnd(file, offset);
        default:
            return WRONG_PARAMETER_ERROR;
    }
}

ErrorCode tableFileSeekSet(TableFile* file, std::int64_t offset) noexcept {
    const ErrorCode checked = tableFile_check(file);
    return checked != NO_ERROR ? checked : virtualSeek(file, offset, 0, "tableFileSeekSet");
}

ErrorCode tableFileSeekCur(TableFile* file, std::int64_t offset) noexcept {
    const ErrorCode checked = tableFile_check(file);
    return checked != NO_ERROR ? checked
                               : virtualSeek(file, offset, file->physicalPos + file->pendingOffset, "tableFileSeekCur");
}

ErrorCode tableFileSeekEnd(TableFile* file, std::int64_t offset) noexcept {
    const ErrorCode checked = tableFile_check(file);
    return checked != NO_ERROR ? checked : virtualSeek(file, offset, file->size, "tableFileSeekEnd");
}

ErrorCode tableFileTell(TableFile* file, std::int64_t* position) noexcept {
    const ErrorCode checked = tableFile_check(file);
    if (checked != NO_ERROR) {
        return checked;
    }
    *position = file->physicalPos + file->pendingOffset;
    return NO_ERROR;
}

}  // namespace tabulo::internal
