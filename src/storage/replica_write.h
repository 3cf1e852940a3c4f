// One write to every active file of a storage, with the rule for files that fail.
#pragma once

#include "core/error_codes.h"
#include "core/log.h"
#include "storage/table_storage.h"

namespace tabulo::internal {

// How the WARNING of a dropped file numbers it.
enum class ReplicaNumber {
    fileIndex,       // its slot among the storage's files, 0 = master
    activePosition,  // its place in the active list when it failed
};

// Calls step(file) -> ErrorCode for each active file, master first. A file whose step fails is closed, removed from the
// active list and named in a WARNING under `function`. NO_ERROR when any file took the write, else the code of the last
// failure; FILE_WRITE_ERROR without an active file.
template <typename Step>
ErrorCode replicas_write(TableStorage* storage, const char* function, ReplicaNumber numbering, Step step) noexcept {
    ErrorCode result = FILE_WRITE_ERROR;
    TableStorageFileIterator iterator;
    while (TableFile* file = tableStorage_nextFile(storage, &iterator)) {
        const ErrorCode code = step(file);
        if (code == NO_ERROR) {
            result = NO_ERROR;
            continue;
        }
        if (result != NO_ERROR) {
            result = code;
        }
        const std::int32_t number =
            numbering == ReplicaNumber::fileIndex ? tableStorage_fileIndex(storage, &iterator) : iterator.position - 1;
        (void)tableStorage_closeFile(storage, &iterator);  // it failed already; the list forgets it in any case
        log_warning(function, "Replica %d closed due to file write error: %s\n", number, getErrorMessage(code));
    }
    return result;
}

}  // namespace tabulo::internal
