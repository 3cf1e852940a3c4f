// The record behind the generic header of a session info table file: type name and tags (session_info_table.h has the
// byte map).
#pragma once

#include <cstdint>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "storage/table_config.h"

namespace tabulo::internal {

// Appends the record; the result is the stream's error (STREAM_EXTENSION_ERROR).
ErrorCode siX_writeTypeRecord(std::int32_t fieldCount, const std::int32_t* tags, KSVByteStream* stream) noexcept;

// Takes the record from the stream. STREAM_NOT_ENOUGH_DATA_ERROR when it is cut, whatever it says so far;
// TABLE_TYPE_ERROR for another type name; HEADER_CORRUPTED_ERROR for a field count outside 1..32.
ErrorCode siX_readTypeRecord(SessionInfoTags* stored, KSVByteStream* stream) noexcept;

}  // namespace tabulo::internal
