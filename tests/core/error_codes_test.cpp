#include "core/error_codes.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace tabulo::internal::test {
namespace {

struct Expected {
    ErrorCode code;
    int number;
    const char* text;
};

constexpr std::array<Expected, 39> expectedCodes = {{
    {NO_ERROR, 0, "Unknown error"},
    {OUT_OF_MEMORY_ERROR, 1, "Out of memory"},
    {NULL_POINTER_ERROR, 2, "Null pointer"},
    {TABLE_CLOSED_ERROR, 3, "Attempting to perform read/write operations on a closed (not opened) table"},
    {SYSTEM_FILE_ERROR, 4, "System file routine failed"},
    {SIGNATURE_ERROR, 5,
     "Invalid table signature. A table might be corrupted or created with previous Tabulo version (or this is not a "
     "Tabulo table)"},
    {FILE_SIZE_ERROR, 6, "Size of a table file is less than expected"},
    {UNRECOVERABLE_ERROR, 7, "Table file is unrecoverable"},
    {WRONG_PARAMETER_ERROR, 8, "Wrong parameter"},
    {TABLE_TYPE_ERROR, 9,
     "Table type mismatch: trying to open a session info table as a message table or vice versa (or table might be "
     "corrupted)"},
    {FILE_OPEN_ERROR, 10, "Unable to open a table file. The file might not exist or process might not have permission"},
    {FILE_SEEK_ERROR, 11, "I/O error: unable to perform file seek"},
    {FILE_READ_ERROR, 12, "I/O error: unable to read from a file"},
    {FILE_WRITE_ERROR, 13, "I/O error: unable to write to a file"},
    {FILE_TRUNCATE_ERROR, 14, "I/O error: unable to truncate a file"},
    {BYTE_ORDER_ERROR, 15, "Unable to open a table file created on a system with a different byte order"},
    {FILE_FLUSH_ERROR, 16, "I/O error: unable to flush a file"},
    {VSEEK_ERROR, 17, "Internal error: virtual seek position is out of range"},
    {CONSISTENCY_ERROR, 18, "Read message failed consistency check. A table is possibly corrupted"},
    {READ_ONLY_ERROR, 19, "Unable to write to a table opened in read-only mode"},
    {INDEX_OUT_OF_BOUNDS_ERROR, 20, "Index out of bounds"},
    {JNI_ERROR, 21, "JNI error"},
    {NO_DATA_ERROR, 22, "Internal error: no data"},
    {VERSION_ERROR, 23, "Unable to open a table created by different version of Tabulo"},
    {HEADER_CORRUPTED_ERROR, 24, "Table's header is corrupted"},
    {NOT_IMPLEMENTED_ERROR, 25, "Not implemented"},
    {STREAM_NOT_ENOUGH_DATA_ERROR, 26, "Internal byte stream error: not enough data"},
    {STREAM_EXTENSION_ERROR, 27, "Internal byte stream error: extension failed"},
    {STREAM_READ_RESET_ERROR, 28, "Internal byte stream error: invalid read reset"},
    {STREAM_WRITE_RESET_ERROR, 29, "Internal byte stream error: invalid write reset"},
    {ITERATOR_CLOSED_ERROR, 30, "Attempting to perform operations on a closed iterator"},
    {MASTER_INACTIVE_ERROR, 31, "Master file is inactive"},
    {STRING_FIELDS_LIMIT_ERROR, 32, "Number of configured string fields exceeds limit"},
    {NUMERIC_FIELDS_LIMIT_ERROR, 33, "Number of configured numeric fields exceeds limit"},
    {STRING_FIELDS_COUNT_MISMATCH_ERROR, 34,
     "Number of string fields does not match number of fields stored in table's configuration"},
    {NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, 35,
     "Number of numeric fields does not match number of fields stored in table's configuration"},
    {STRING_FIELDS_NAMES_MISMATCH_ERROR, 36,
     "Names of string fields do not match names of fields stored in table's configuration"},
    {NUMERIC_FIELDS_NAMES_MISMATCH_ERROR, 37,
     "Names of numeric fields do not match names of fields stored in table's configuration"},
    {CONFIG_MISMATCH_ERROR, 38, "Unable to open a table created with different configuration"},
}};

TEST(ErrorCodes, EveryNameHasItsFixedNumber) {
    for (const Expected& expected : expectedCodes) {
        EXPECT_EQ(expected.code, expected.number) << "Java knows this code by its number: " << expected.text;
    }
}

TEST(ErrorCodes, EveryNumberHasItsFixedText) {
    for (const Expected& expected : expectedCodes) {
        EXPECT_STREQ(getErrorMessage(expected.code), expected.text) << "code " << expected.number;
    }
}

TEST(ErrorCodes, SuccessReadsUnknownError) {
    EXPECT_STREQ(getErrorMessage(NO_ERROR), "Unknown error");
}

TEST(ErrorCodes, NumbersOutsideTheTableReadUnknownError) {
    for (const std::int32_t number :
         {-1, 39, 40, 1000, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_STREQ(getErrorMessage(static_cast<ErrorCode>(number)), "Unknown error") << "code " << number;
    }
}

}  // namespace
}  // namespace tabulo::internal::test
