// Error codes of the library: one signed 32-bit number per failure, 0 for success.
//
// Every operation returns its outcome as such a code and hands other results out through parameters. The numbers and
// the texts are part of the interface: Java receives both in its exceptions, and log lines print the texts. They are
// never renumbered or reworded.
#pragma once

#include <cstdint>

namespace tabulo::internal {

// A result that nobody looks at hides a failure: a deliberate discard says (void) and why.
enum [[nodiscard]] ErrorCode : std::int32_t{
    NO_ERROR = 0,
    OUT_OF_MEMORY_ERROR = 1,
    NULL_POINTER_ERROR = 2,
    TABLE_CLOSED_ERROR = 3,
    SYSTEM_FILE_ERROR = 4,
    SIGNATURE_ERROR = 5,
    FILE_SIZE_ERROR = 6,
    UNRECOVERABLE_ERROR = 7,
    WRONG_PARAMETER_ERROR = 8,
    TABLE_TYPE_ERROR = 9,
    FILE_OPEN_ERROR = 10,
    FILE_SEEK_ERROR = 11,
    FILE_READ_ERROR = 12,
    FILE_WRITE_ERROR = 13,
    FILE_TRUNCATE_ERROR = 14,
    BYTE_ORDER_ERROR = 15,
    FILE_FLUSH_ERROR = 16,
    VSEEK_ERROR = 17,
    CONSISTENCY_ERROR = 18,
    READ_ONLY_ERROR = 19,
    INDEX_OUT_OF_BOUNDS_ERROR = 20,
    JNI_ERROR = 21,
    NO_DATA_ERROR = 22,
    VERSION_ERROR = 23,
    HEADER_CORRUPTED_ERROR = 24,
    NOT_IMPLEMENTED_ERROR = 25,
    STREAM_NOT_ENOUGH_DATA_ERROR = 26,
    STREAM_EXTENSION_ERROR = 27,
    STREAM_READ_RESET_ERROR = 28,
    STREAM_WRITE_RESET_ERROR = 29,
    ITERATOR_CLOSED_ERROR = 30,
    MASTER_INACTIVE_ERROR = 31,
    STRING_FIELDS_LIMIT_ERROR = 32,
    NUMERIC_FIELDS_LIMIT_ERROR = 33,
    STRING_FIELDS_COUNT_MISMATCH_ERROR = 34,
    NUMERIC_FIELDS_COUNT_MISMATCH_ERROR = 35,
    STRING_FIELDS_NAMES_MISMATCH_ERROR = 36,
    NUMERIC_FIELDS_NAMES_MISMATCH_ERROR = 37,
    CONFIG_MISMATCH_ERROR = 38,
};

// The constant text of a code; never null. Codes outside 0..38 read "Unknown error", and so does NO_ERROR: slot 0 of
// the table serves for every number that names no failure.
const char* getErrorMessage(ErrorCode code) noexcept;

}  // namespace tabulo::internal
