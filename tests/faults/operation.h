// The operations of scenarios, and the codes that each may answer when the machine refuses something.
#pragma once

#include <vector>

#include "core/error_codes.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {

struct Operation {
    const char* name;
    // What it may answer when a call of its own fails ...
    std::vector<ErrorCode> refusals;
    // ... and when an operation before it has failed.
    std::vector<ErrorCode> consequences = {};
    bool commits = false;  // on demand: then it is FILE_FLUSH_ERROR that the disk has refused
};

// Message tables. Opening for writing recovers a table, which writes to it and saves what it cuts.
inline const Operation CREATE{"create", {FILE_OPEN_ERROR, FILE_FLUSH_ERROR}};
inline const Operation OPEN_FOR_READING{"open for reading", {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR}};
inline const Operation OPEN_FOR_WRITING{
    "open for writing",
    {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR, FILE_WRITE_ERROR, FILE_FLUSH_ERROR, FILE_TRUNCATE_ERROR}};
inline const Operation WRITE{"write", {FILE_FLUSH_ERROR, FILE_WRITE_ERROR}, {FILE_WRITE_ERROR}};
inline const Operation SAVE_TAIL{"close", {FILE_FLUSH_ERROR}};
inline const Operation DROP{
    "drop",
    {FILE_TRUNCATE_ERROR, SYSTEM_FILE_ERROR, FILE_OPEN_ERROR, FILE_FLUSH_ERROR},
};
inline const Operation WALK{"walk", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};
inline const Operation LOOKUP{"lookup", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};
inline const Operation READ_MESSAGES{"readMessages", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};
// An iterator that cannot be made is null, for which hosts see NULL_POINTER_ERROR.
inline const Operation OPEN_ITERATOR{"open iterator", {NULL_POINTER_ERROR}, {NULL_POINTER_ERROR}};
inline const Operation NEXT{"next", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};
inline const Operation WATCH{"watch", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};

// A file below the tables: what is read must be there.
inline const Operation OPEN_FILE{"open a table file", {FILE_OPEN_ERROR}};
inline const Operation READ_FILE{"read a table file", {FILE_READ_ERROR, SYSTEM_FILE_ERROR}};

// Session info tables: a write to a table that is open for reading opens it anew.
inline const Operation SESSION_CREATE{"create a session table", {FILE_OPEN_ERROR, FILE_FLUSH_ERROR}};
inline const Operation SESSION_OPEN{
    "open a session table",
    {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_SEEK_ERROR, FILE_READ_ERROR, FILE_FLUSH_ERROR, FILE_TRUNCATE_ERROR}};
inline const Operation SESSION_READ{
    "read values", {FILE_READ_ERROR, FILE_SEEK_ERROR, SYSTEM_FILE_ERROR}, {MASTER_INACTIVE_ERROR}};
inline const Operation SESSION_WRITE{
    "write values", {FILE_FLUSH_ERROR, FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_READ_ERROR}, {FILE_WRITE_ERROR}};

// What the first operation that a failed call reaches may make of it; of a copy that cannot be written or committed,
// FILE_WRITE_ERROR. An operation that hides its cause says NULL_POINTER_ERROR.
inline std::vector<ErrorCode> refusalsOf(FileCall call, const Operation& operation) {
    if (operation.commits && (call == FileCall::sync || call == FileCall::syncDirectory)) {
        return {FILE_FLUSH_ERROR};
    }
    switch (call) {
        case FileCall::open:
        case FileCall::lock:
            return {FILE_OPEN_ERROR};
        case FileCall::readAt:
            return {FILE_READ_ERROR, NULL_POINTER_ERROR};
        case FileCall::writeAt:
            return {FILE_FLUSH_ERROR, FILE_WRITE_ERROR};
        case FileCall::sync:
            return {FILE_WRITE_ERROR};
        case FileCall::truncate:
            return {FILE_OPEN_ERROR, FILE_TRUNCATE_ERROR};
        case FileCall::size:
            return {FILE_OPEN_ERROR, SYSTEM_FILE_ERROR, FILE_SEEK_ERROR, NULL_POINTER_ERROR};
        case FileCall::close:
            return {SYSTEM_FILE_ERROR, FILE_WRITE_ERROR};
        case FileCall::unlock:
        case FileCall::syncDirectory:
        case FileCall::remove:
        case FileCall::rename:
            return {};
    }
    return {};
}

}  // namespace tabulo::internal::test
