// Error codes of the library: one signed 32-bit number per failure, 0 for success.
//
// Every operation returns its outcome as such a code and hands other results out through parameters. The numbers and
// the texts are part of the interface: Java receives both in its exceptions, and log lines print the texts. They are
// never renumbered or reworded.
#pragma once

#include <cstdint>

namespace tabulo {

using ErrorCode = std::int32_t;

inline constexpr ErrorCode NO_ERROR = 0;
inline constexpr ErrorCode OUT_OF_MEMORY_ERROR = 1;
inline constexpr ErrorCode NULL_POINTER_ERROR = 2;
inline constexpr ErrorCode TABLE_CLOSED_ERROR = 3;
inline constexpr ErrorCode SYSTEM_FILE_ERROR = 4;
inline constexpr ErrorCode SIGNATURE_ERROR = 5;
inline constexpr ErrorCode FILE_SIZE_ERROR = 6;
inline constexpr ErrorCode UNRECOVERABLE_ERROR = 7;
inline constexpr ErrorCode WRONG_PARAMETER_ERROR = 8;
inline constexpr ErrorCode TABLE_TYPE_ERROR = 9;
inline constexpr ErrorCode FILE_OPEN_ERROR = 10;
inline constexpr ErrorCode FILE_SEEK_ERROR = 11;
inline constexpr ErrorCode FILE_READ_ERROR = 12;
inline constexpr ErrorCode FILE_WRITE_ERROR = 13;
inline constexpr ErrorCode FILE_TRUNCATE_ERROR = 14;
inline constexpr ErrorCode BYTE_ORDER_ERROR = 15;
inline constexpr ErrorCode FILE_FLUSH_ERROR = 16;
inline constexpr ErrorCode VSEEK_ERROR = 17;
inline constexpr ErrorCode CONSISTENCY_ERROR = 18;
inline constexpr ErrorCode READ_ONLY_ERROR = 19;
inline constexpr ErrorCode INDEX_OUT_OF_BOUNDS_ERROR = 20;
inline constexpr ErrorCode JNI_ERROR = 21;
inline constexpr ErrorCode NO_DATA_ERROR = 22;
inline constexpr ErrorCode VERSION_ERROR = 23;
inline constexpr ErrorCode HEADER_CORRUPTED_ERROR = 24;
inline constexpr ErrorCode NOT_IMPLEMENTED_ERROR = 25;
inline constexpr ErrorCode STREAM_NOT_ENOUGH_DATA_ERROR = 26;
inline constexpr ErrorCode STREAM_EXTENSION_ERROR = 27;
inline constexpr ErrorCode STREAM_READ_RESET_ERROR = 28;
inline constexpr ErrorCode STREAM_WRITE_RESET_ERROR = 29;
inline constexpr ErrorCode ITERATOR_CLOSED_ERROR = 30;
inline constexpr ErrorCode MASTER_INACTIVE_ERROR = 31;
inline constexpr ErrorCode STRING_FIELDS_LIMIT_ERROR = 32;
inline constexpr ErrorCode NUMERIC_FIELDS_LIMIT_ERROR = 33;
inline constexpr ErrorCode STRING_FIELDS_COUNT_MISMATCH_ERROR = 34;
inline constexpr ErrorCode NUMERIC_FIELDS_COUNT_MISMATCH_ERROR = 35;
inline constexpr ErrorCode STRING_FIELDS_NAMES_MISMATCH_ERROR = 36;
inline constexpr ErrorCode NUMERIC_FIELDS_NAMES_MISMATCH_ERROR = 37;
inline constexpr ErrorCode CONFIG_MISMATCH_ERROR = 38;

// The constant text of a code; never null. Codes outside 0..38 read "Unknown error", and so does NO_ERROR: slot 0 of
// the table serves for every number that names no failure.
const char* getErrorMessage(ErrorCode code) noexcept;

}  // namespace tabulo
