#include "storage/table_storage.h"

#include <new>

#include "core/log.h"

namespace tabulo::internal {

namespace {

bool isInitialised(const TableStorage* storage) {
    return !storage->files.empty();
}

// The slot in `files` of the active file at a position of the active list, or -1.
std::int32_t activeFileIndex(const TableStorage* storage, std::int32_t position) {
    const bool isActive = position >= 0 && position < storage->activeCount;
    return isActive ? storage->activeIndexes[static_cast<std::size_t>(position)] : -1;
}

TableFile* activeFile(const TableStorage* storage, std::int32_t position) {
    const std::int32_t index = activeFileIndex(storage, position);
    return index < 0 ? nullptr : storage->files[static_cast<std::size_t>(index)];
}

}  // namespace

TableStorage* tableStorage_create(const TableStorageOps& ops, void* owner, KSVTboTableConfig* config) noexcept {
    log_note("+ tableStorage_create", "owner=%p, (KSVTboTableConfig*)config=%p.\n", owner, static_cast<void*>(config));
    auto* storage = new (std::nothrow) TableStorage;
    if (storage != nullptr) {
        storage->ops = ops;
        storage->owner = owner;
        storage->config = config;
    }
    log_note("- tableStorage_create", "self=%p, self->config=%p\n", static_cast<void*>(storage),
             static_cast<void*>(storage == nullptr ? nullptr : storage->config));
    return storage;
}

void tableStorage_destroy(TableStorage* storage) noexcept {
    if (storage == nullptr) {
        return;
    }
    log_note("+ tableStorage_destroy", "self=%p, config=%p\n", static_cast<void*>(storage),
             static_cast<void*>(storage->config));
    // The configuration goes last: a close that fails prints the file's path.
    tableStorage_closeAll(storage);
    tableConfig_destroy(storage->config);
    const std::unique_ptr<TableStorage> ended(storage);  // freed behind the line that names it
    log_note("- tableStorage_destroy", "self=%p\n", static_cast<void*>(storage));
}

ErrorCode tableStorage_init(TableStorage* storage, OpenMode mode) noexcept {
    if (storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    log_note("+ tableStorage_init", "self=%p, config=%p\n", static_cast<void*>(storage),
             static_cast<void*>(storage->config));
    ErrorCode code = NO_ERROR;
    if (isInitialised(storage)) {
        code = tableStorage_uninit(storage);
    }
    if (code == NO_ERROR) {
        storage->mode = mode == OpenMode::create ? OpenMode::write : mode;
        try {
            const auto count = static_cast<std::size_t>(tableConfig_getFileCount(storage->config));
            storage->activeIndexes.resize(count);
            storage->files.assign(count, nullptr);
        } catch (const std::bad_alloc&) {
            code = OUT_OF_MEMORY_ERROR;
        }
        if (code == NO_ERROR) {
            code = tsX_open(storage, mode);
        }
        if (code != NO_ERROR) {
            tableStorage_closeAll(storage);
        }
    }
    log_note("- tableStorage_init", "self=%p, result=%d\n", static_cast<void*>(storage), code);
    return code;
}

ErrorCode tableStorage_uninit(TableStorage* storage) noexcept {
    if (storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    log_note("+ tableStorage_uninit", "self=%p, config=%p\n", static_cast<void*>(storage),
             static_cast<void*>(storage->config));
    const ErrorCode code = tsX_close(storage);
    if (code == NO_ERROR) {
        storage->activeIndexes.clear();
        storage->files.clear();
    }
    log_note("- tableStorage_uninit", "self=%p, config=%p\n", static_cast<void*>(storage),
             static_cast<void*>(storage->config));
    return code;
}

void tableStorage_closeAll(TableStorage* storage) noexcept {
    (void)tableStorage_uninit(storage);
    // A close that failed has taken its stream along; the next one frees the record and goes on.
    while (storage->activeCount > 0) {
        (void)tsX_close(storage);
    }
}

ErrorCode tableStorage_ensureMode(TableStorage* storage, OpenMode mode) noexcept {
    if (storage == nullptr || !isInitialised(storage)) {
        return NULL_POINTER_ERROR;
    }
    if (mode == storage->mode) {
        return NO_ERROR;
    }
    log_debug("tableStorage_ensureMode", "reopening table: old mode=%ld, new mode=%ld.\n",
              static_cast<long>(openMode_number(storage->mode)), static_cast<long>(openMode_number(mode)));
    ErrorCode code = tsX_close(storage);
    if (code == NO_ERROR) {
        code = tsX_open(storage, mode);
    }
    log_debug("tableReopen", "(mode=%ld) returned %ld.\n", static_cast<long>(openMode_number(mode)),
              static_cast<long>(code));
    if (code != NO_ERROR) {
        while (storage->activeCount > 0) {
            (void)tsX_close(storage);  // as in tableStorage_closeAll
        }
        (void)tsX_open(storage, storage->mode);  // the refused reopen is what the caller hears of
    }
    return code;
}

KSVTboTableConfig* tableStorage_getConfig(const TableStorage* storage) noexcept {
    return storage == nullptr ? nullptr : storage->config;
}

bool tableStorage_isActive(const TableStorage* storage) noexcept {
    return storage != nullptr && storage->activeCount > 0;
}

TableFile* tableStorage_master(const TableStorage* storage) noexcept {
    return storage == nullptr ? nullptr : activeFile(storage, 0);
}

void tableStorage_fileIteratorInit(TableStorageFileIterator* iterator) noexcept {
    if (iterator != nullptr) {
        iterator->position = 0;
    }
}

TableFile* tableStorage_nextFile(const TableStorage* storage, TableStorageFileIterator* iterator) noexcept {
    if (storage == nullptr || iterator == nullptr) {
        return nullptr;
    }
    TableFile* file = activeFile(storage, iterator->position);
    if (file != nullptr) {
        iterator->position += 1;
    }
    return file;
}

std::int32_t tableStorage_fileIndex(const TableStorage* storage, const TableStorageFileIterator* iterator) noexcept {
    return storage == nullptr || iterator == nullptr ? -1 : activeFileIndex(storage, iterator->position - 1);
}

ErrorCode tableStorage_closeFile(TableStorage* storage, TableStorageFileIterator* iterator) noexcept {
    if (storage == nullptr || iterator == nullptr) {
        return NULL_POINTER_ERROR;
    }
    const std::int32_t index = tableStorage_fileIndex(storage, iterator);
    if (index < 0) {
        return NO_ERROR;
    }
    TableFile*& file = storage->files[static_cast<std::size_t>(index)];
    const ErrorCode code = tableFileClose(file);
    if (code != NO_ERROR) {
        (void)tableFileClose(file);  // the second close frees the record whatever comes of it
    }
    file = nullptr;
    const auto removed = storage->activeIndexes.begin() + (iterator->position - 1);
    storage->activeIndexes.erase(removed);
    storage->activeIndexes.push_back(-1);
    storage->activeCount -= 1;
    iterator->position -= 1;
    return code;
}

ErrorCode tableStorage_truncate(TableStorage* storage) noexcept {
    if (storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    TableStorageFileIterator iterator;
    while (TableFile* file = tableStorage_nextFile(storage, &iterator)) {
        const ErrorCode code = tableFileTruncate(file, storage->headerSize);
        if (code != NO_ERROR) {
            return code;
        }
    }
    return NO_ERROR;
}

ErrorCode tsX_close(TableStorage* storage) noexcept {
    while (storage->activeCount > 0) {
        const std::int32_t position = storage->activeCount - 1;
        const std::int32_t index = activeFileIndex(storage, position);
        if (index >= 0 && storage->files[static_cast<std::size_t>(index)] != nullptr) {
            TableFile*& file = storage->files[static_cast<std::size_t>(index)];
            const ErrorCode code = tableFileClose(file);
            if (code != NO_ERROR) {
                const char* path = tableConfig_getPath(storage->config, index);
                log_warning("tsX_close", "tableFileClose(%s) failed: %s.\n", path == nullptr ? "(null)" : path,
                            getErrorMessage(code));
                return code;
            }
            file = nullptr;
        }
        storage->activeIndexes[static_cast<std::size_t>(position)] = -1;
        storage->activeCount = position;
    }
    return NO_ERROR;
}

}  // namespace tabulo::internal
