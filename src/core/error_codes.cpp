#include "core/error_codes.h"

#include <array>

namespace tabulo::internal {

namespace {

constexpr std::array<const char*, 39> errorMessages = {
    "Unknown error",
    "Out of memory",
    "Null pointer",
    "Attempting to perform read/write operations on a closed (not opened) table",
    "System file routine failed",
    "Invalid table signature. A table might be corrupted or created with previous Tabulo version (or "
    "this is not a Tabulo table)",
    "Size of a table file is less than expected",
    "Table file is unrecoverable",
    "Wrong parameter",
    "Table type mismatch: trying to open a session info table as a message table or vice versa (or "
    "table might be corrupted)",
    "Unable to open a table file. The file might not exist or process might not have permission",
    "I/O error: unable to perform file seek",
    "I/O error: unable to read from a file",
    "I/O error: unable to write to a file",
    "I/O error: unable to truncate a file",
    "Unable to open a table file created on a system with a different byte order",
    "I/O error: unable to flush a file",
    "Internal error: virtual seek position is out of range",
    "Read message failed consistency check. A table is possibly corrupted",
    "Unable to write to a table opened in read-only mode",
    "Index out of bounds",
    "JNI error",
    "Internal error: no data",
    "Unable to open a table created by different version of Tabulo",
    "Table's header is corrupted",
    "Not implemented",
    "Internal byte stream error: not enough data",
    "Internal byte stream error: extension failed",
    "Internal byte stream error: invalid read reset",
    "Internal byte stream error: invalid write reset",
    "Attempting to perform operations on a closed iterator",
    "Master file is inactive",
    "Number of configured string fields exceeds limit",
    "Number of configured numeric fields exceeds limit",
    "Number of string fields does not match number of fields stored in table's configuration",
    "Number of numeric fields does not match number of fields stored in table's configuration",
    "Names of string fields do not match names of fields stored in table's configuration",
    "Names of numeric fields do not match names of fields stored in table's configuration",
    "Unable to open a table created with different configuration",
};
static_assert(errorMessages.size() == CONFIG_MISMATCH_ERROR + 1);

}  // namespace

const char* getErrorMessage(ErrorCode code) noexcept {
    if (code < 0 || code > CONFIG_MISMATCH_ERROR) {
        return errorMessages[0];
    }
    return errorMessages[static_cast<std::size_t>(code)];
}

}  // namespace tabulo::internal
