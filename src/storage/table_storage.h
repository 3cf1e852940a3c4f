// The file side of one table: its configuration, its open files, and the generic header with which every file begins.
//
// A storage calls back into its owner, the table, for everything behind the generic header. It decides what a short or
// damaged file means: opened as it stands (read-only), recovered (for writing), or refused. Only the configuration's
// first path, the master, is opened, whatever replica roots there are; the loops are written for any count, and a file
// that fails in a write is dropped from the active list.
//
// Created -> initialised (files open) -> possibly reopened in another mode -> uninitialised -> destroyed. One thread at
// a time uses a storage.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "core/handle.h"
#include "storage/generic_header.h"
#include "storage/table_config.h"
#include "storage/table_file.h"

namespace tabulo::internal {

// What a table does for its storage. Each operation takes the owner first and returns an error code.
struct TableStorageOps {
    // Appends the table-specific header of a new file.
    ErrorCode (*writeHeader)(void* owner, KSVByteStream* stream);
    // Checks the table-specific header, which begins at `offset` of the stream that holds the file's first bytes.
    // FILE_SIZE_ERROR says that the file is shorter or longer than its header says.
    ErrorCode (*verifyHeader)(void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset);
    // Takes over what the header holds.
    ErrorCode (*loadHeader)(void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset);
    // Repairs a file whose tail is damaged or cut.
    ErrorCode (*recover)(void* owner, TableFile* file);
    // Called once after the files are open, with the first active one.
    ErrorCode (*opened)(void* owner, TableFile* file, std::int64_t fileSize, std::int32_t headerSize,
                        std::int32_t specificOffset);
};

struct TableStorage {
    TableStorageOps ops{};
    void* owner = nullptr;
    KSVTboTableConfig* config = nullptr;      // owned
    OpenMode mode = OpenMode::read;           // of tableStorage_init; OpenMode::create is kept as OpenMode::write
    std::vector<std::int32_t> activeIndexes;  // file numbers of the active files, -1 in unused slots
    std::int32_t activeCount = 0;
    std::vector<TableFile*> files;  // owned, null when closed
    std::int32_t specificHeaderOffset = 0;
    std::int32_t headerSize = 0;  // whole header of the master
    std::int32_t footerSize = 0;  // of a message table's blocks, 0 until its frame writer has recorded it
    std::int64_t openings = 0;    // times that the files were opened: tells iterators that theirs are gone
};

struct TableStorageFileIterator {
    std::int32_t position = 0;
};

// A storage without files, owned by the caller; it owns the configuration. Null when memory is short (the configuration
// then stays the caller's).
TableStorage* tableStorage_create(const TableStorageOps& ops, void* owner, KSVTboTableConfig* config) noexcept;
// Closes what is open and frees storage and configuration; null is accepted.
void tableStorage_destroy(TableStorage* storage) noexcept;

using TableStoragePtr = Handle<TableStorage, tableStorage_destroy>;

// Opens the files in a mode of tableFileOpen; an initialised storage is uninitialised first. On failure nothing stays
// open. NULL_POINTER_ERROR, OUT_OF_MEMORY_ERROR, and everything that opening a file can give: FILE_OPEN_ERROR,
// FILE_READ_ERROR, FILE_SIZE_ERROR, SIGNATURE_ERROR, BYTE_ORDER_ERROR, VERSION_ERROR, HEADER_CORRUPTED_ERROR,
// WRONG_PARAMETER_ERROR (a header beyond 8096 bytes; nothing is written), UNRECOVERABLE_ERROR, the owner's codes.
ErrorCode tableStorage_init(TableStorage* storage, OpenMode mode) noexcept;
// Closes the files. NULL_POINTER_ERROR; SYSTEM_FILE_ERROR at the first failed close: a further call goes on behind it.
ErrorCode tableStorage_uninit(TableStorage* storage) noexcept;
// As tableStorage_uninit, but goes on behind failed closes until nothing is open.
void tableStorage_closeAll(TableStorage* storage) noexcept;
// Reopens the files when `mode` differs from the storage's mode, which keeps its value: each such call reopens.
// NULL_POINTER_ERROR, also for a storage that is not initialised. When the reopen fails, the files are opened once more
// in the storage's own mode and the code of the failed reopen is returned.
ErrorCode tableStorage_ensureMode(TableStorage* storage, OpenMode mode) noexcept;

// No caller of ours: tables read the member.
KSVTboTableConfig* tableStorage_getConfig(const TableStorage* storage) noexcept;
// True while a file is open and usable.
bool tableStorage_isActive(const TableStorage* storage) noexcept;
// The first active file, or null.
TableFile* tableStorage_master(const TableStorage* storage) noexcept;

// To the beginning. No caller of ours: new iterators are there.
void tableStorage_fileIteratorInit(TableStorageFileIterator* iterator) noexcept;
// The next active file, or null behind the last one.
TableFile* tableStorage_nextFile(const TableStorage* storage, TableStorageFileIterator* iterator) noexcept;
// The number of the file that the iterator returned last: its slot in `files`, 0 = master; -1 before the first.
std::int32_t tableStorage_fileIndex(const TableStorage* storage, const TableStorageFileIterator* iterator) noexcept;
// Closes the file that the iterator returned last and removes it from the active list, also when closing fails; the
// iterator then goes on with the file that followed. NULL_POINTER_ERROR; SYSTEM_FILE_ERROR from the close.
ErrorCode tableStorage_closeFile(TableStorage* storage, TableStorageFileIterator* iterator) noexcept;
// Cuts every active file to its header. NULL_POINTER_ERROR, or the first code of tableFileTruncate.
ErrorCode tableStorage_truncate(TableStorage* storage) noexcept;

// Steps of the operations above, named in the log.
ErrorCode tsX_open(TableStorage* storage, OpenMode mode) noexcept;
// Opens, or creates, one file. *masterSize is 0 for the master and is then set to its size; other files are measured
// against it. Called here only: by tsX_open.
ErrorCode tsX_openReplica(TableStorage* storage, TableFile** file, const char* path, OpenMode mode,
                          std::int64_t* masterSize) noexcept;
// Closes from the last active file on, up to the first close that fails. Called here only: by tableStorage_uninit and
// the operations that go on behind a failure.
ErrorCode tsX_close(TableStorage* storage) noexcept;

}  // namespace tabulo::internal
