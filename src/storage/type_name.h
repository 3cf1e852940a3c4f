// The name of a table's type, with which the table-specific part of every header begins.
//
//   offset  width  field
//        0      4  length N of the name with its NUL
//        4      N  the name and a NUL
#pragma once

#include <string_view>

#include "core/byte_stream.h"
#include "core/error_codes.h"

namespace tabulo::internal {

// Appends the name of a type (without its NUL); errors stay in the stream.
void typeName_write(std::string_view name, KSVByteStream* stream) noexcept;
// Takes a name, which must be this one. STREAM_NOT_ENOUGH_DATA_ERROR when it is cut, told apart from a wrong name:
// TABLE_TYPE_ERROR.
ErrorCode typeName_read(KSVByteStream* stream, std::string_view name) noexcept;

}  // namespace tabulo::internal
