// Opening the files of a table storage: header checks, recovery, creation.
#include <algorithm>
#include <cinttypes>

#include "core/log.h"
#include "storage/byte_stream_file.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

namespace {

const char* printable(const char* path) {
    return path == nullptr ? "(null)" : path;
}

// Refusals that no recovery may touch: the file is of another kind, version or configuration.
bool isFinal(ErrorCode code) {
    switch (code) {
        case VERSION_ERROR:
        case HEADER_CORRUPTED_ERROR:
        case TABLE_TYPE_ERROR:
        case CONFIG_MISMATCH_ERROR:
        case STRING_FIELDS_COUNT_MISMATCH_ERROR:
        case NUMERIC_FIELDS_COUNT_MISMATCH_ERROR:
        case STRING_FIELDS_NAMES_MISMATCH_ERROR:
        case NUMERIC_FIELDS_NAMES_MISMATCH_ERROR:
            return true;
        default:
            return false;
    }
}

// Reads the file's beginning and checks the generic header; the stream is then behind it.
ErrorCode readGenericHeader(TableStorage* storage, TableFile* file, std::int64_t size, KSVByteStream* stream,
                            TableGenericHeader* header) {
    ErrorCode code =
        byteStream_readFromFile(stream, file, static_cast<std::int32_t>(std::min<std::int64_t>(size, MAX_HEADER_SIZE)));
    if (code != NO_ERROR) {
        return code;
    }
    if (tsgh_read(header, stream) != NO_ERROR) {
        return FILE_SIZE_ERROR;
    }
    storage->specificHeaderOffset = byteStream_readMark(stream);
    return tsgh_verify(header);
}

// A replica takes the master's length: a longer one is cut, which *code then tells, so that it is recovered; a shorter
// one cannot be repaired.
ErrorCode alignReplica(TableFile* file, const char* path, std::int64_t masterSize, std::int64_t* size,
                       ErrorCode* code) {
    if (*size > masterSize) {
        const ErrorCode cut = tableFileTruncate(file, masterSize);
        if (cut != NO_ERROR) {
            return cut;
        }
        *code = FILE_SIZE_ERROR;
        log_warning("tsX_openReplica", "Replica %s was truncated, old size: %" PRId64 ", new size: %" PRId64 "\n",
                    printable(path), *size, masterSize);
        *size = masterSize;
    } else if (*size < masterSize) {
        return UNRECOVERABLE_ERROR;
    }
    return NO_ERROR;
}

ErrorCode recoverFile(TableStorage* storage, TableFile* file, const char* path, std::int64_t* size) {
    const ErrorCode code = storage->ops.recover(storage->owner, file);
    if (code != NO_ERROR) {
        log_warning("tsX_openReplica", "Table %s recovery failed!\n", printable(path));
        return code;
    }
    const std::int64_t oldSize = *size;
    const ErrorCode sized = tableFileRefreshSize(file, size);
    if (sized == NO_ERROR) {
        log_warning("tsX_openReplica", "Table %s was recovered, old size: %" PRId64 ", new size: %" PRId64 "\n",
                    printable(path), oldSize, *size);
    }
    return sized;
}

ErrorCode openExisting(TableStorage* storage, TableFile* file, const char* path, KSVByteStream* stream,
                       std::int64_t* masterSize) {
    const bool writable = storage->mode == OpenMode::write;
    std::int64_t size = 0;
    ErrorCode code = tableFileRefreshSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    TableGenericHeader header;
    code = readGenericHeader(storage, file, size, stream, &header);
    if (code != NO_ERROR) {
        return code;
    }
    if (*masterSize == 0) {
        storage->headerSize = header.headerSize;
    }
    const std::int32_t offset = storage->specificHeaderOffset;
    code = storage->ops.verifyHeader(storage->owner, file, stream, offset);
    if (code == FILE_SIZE_ERROR && storage->mode == OpenMode::read) {
        code = NO_ERROR;
    }
    if (isFinal(code)) {
        return code;
    }
    if (code == NO_ERROR) {
        code = storage->ops.loadHeader(storage->owner, file, stream, offset);
    }
    if (*masterSize != 0 && writable) {
        const ErrorCode aligned = alignReplica(file, path, *masterSize, &size, &code);
        if (aligned != NO_ERROR) {
            return aligned;
        }
    }
    if (code != NO_ERROR && writable) {
        code = recoverFile(storage, file, path, &size);
    }
    if (code == NO_ERROR && *masterSize == 0) {
        *masterSize = writable ? tableFileCachedSize(file) : size;
    }
    return code;
}

ErrorCode createNew(TableStorage* storage, TableFile* file, KSVByteStream* stream, std::int64_t* masterSize) {
    TableGenericHeader header;
    tsgh_init(&header, 0);
    byteStream_reset(stream, BYTE_STREAM_FORWARD);
    (void)tsgh_write(&header, stream);  // the stream keeps its error
    storage->specificHeaderOffset = byteStream_writeMark(stream);
    ErrorCode code = storage->ops.writeHeader(storage->owner, stream);
    if (code == NO_ERROR) {
        code = byteStream_error(stream);
    }
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t headerSize = byteStream_writeMark(stream);
    if (headerSize > MAX_HEADER_SIZE) {
        return WRONG_PARAMETER_ERROR;
    }
    storage->headerSize = headerSize;
    header.headerSize = headerSize;
    byteStream_resetWrite(stream, 0);
    (void)tsgh_write(&header, stream);  // the stream keeps its error
    byteStream_resetWrite(stream, headerSize);
    code = byteStream_writeToFile(stream, file);
    if (code == NO_ERROR) {
        code = tableFileFlush(file);
    }
    if (code != NO_ERROR) {
        (void)tableFileTruncate(file, 0);  // the beginning of a header could not be opened again
        return code;
    }
    if (*masterSize == 0) {
        *masterSize = headerSize;
    } else if (*masterSize != headerSize) {
        return UNRECOVERABLE_ERROR;
    }
    return NO_ERROR;
}

}  // namespace

ErrorCode tsX_openReplica(TableStorage* storage, TableFile** file, const char* path, OpenMode mode,
                          std::int64_t* masterSize) noexcept {
    const ByteStreamPtr stream(byteStream_create(MAX_HEADER_SIZE));
    if (stream == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    bool created = false;
    ErrorCode code = tableFileOpen(file, path, mode, &created, storage->config->presence);
    if (code != NO_ERROR) {
        log_warning("tsX_openReplica", "Unable to open a file %s in mode %d.\n", printable(path),
                    openMode_number(mode));
        return code;
    }
    const bool isNew = created || (storage->mode == OpenMode::write && tableFileCachedSize(*file) == 0);
    code = isNew ? createNew(storage, *file, stream.get(), masterSize)
                 : openExisting(storage, *file, path, stream.get(), masterSize);
    if (code != NO_ERROR) {
        if (tableFileClose(*file) != NO_ERROR) {
            (void)tableFileClose(*file);  // the second close frees the record whatever comes of it
        }
        *file = nullptr;
    }
    return code;
}

ErrorCode tsX_open(TableStorage* storage, OpenMode mode) noexcept {
    storage->openings += 1;
    std::int64_t masterSize = 0;
    ErrorCode code = NO_ERROR;
    const std::int32_t fileCount = tableConfig_getFileCount(storage->config);
    for (std::int32_t i = 0; i < fileCount; ++i) {
        const char* path = tableConfig_getPath(storage->config, i);
        code = tsX_openReplica(storage, &storage->files[static_cast<std::size_t>(i)], path, mode, &masterSize);
        if (code == NO_ERROR) {
            storage->activeIndexes[static_cast<std::size_t>(storage->activeCount)] = i;
            storage->activeCount += 1;
        } else if (storage->activeCount > 0) {
            log_warning("tsX_open", "Unable to open a replica %s, reason: %s\n", printable(path),
                        getErrorMessage(code));
        }
    }
    for (auto i = static_cast<std::size_t>(storage->activeCount); i < storage->activeIndexes.size(); ++i) {
        storage->activeIndexes[i] = -1;
    }
    TableFile* master = tableStorage_master(storage);
    if (master == nullptr) {
        return code;
    }
    return storage->ops.opened(storage->owner, master, tableFileCachedSize(master), storage->headerSize,
                               storage->specificHeaderOffset);
}

}  // namespace tabulo::internal
