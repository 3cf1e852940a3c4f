// The message-table section of a table file's header, directly behind the generic header.
//
//   offset   width  field (machine byte order, no padding; N, M: sizes of the stored names)
//        0       4  type name length, always 13
//        4      13  "MessageTable" and a NUL
//       17       4  messagesPerBlock
//       21       4  stringFieldCount
//       25       4  summarisedStringFieldCount
//       29       4  numericFieldCount
//       33       N  configured string field names: uint32 length with the NUL, or 0 for none, and that many bytes
//     33+N       M  numeric field names, in the same form
//   33+N+M      88  the tail:
//       +0       8    BlockInfo.reserved
//       +8       8    BlockInfo.lastBlockEnd     0 in a new file: the first block begins at the header's end
//      +16       8    DataInfo.dataEnd           equals the file's size after a clean close
//      +24       4    DataInfo.messageCount
//      +28      60    static indexes
//
// The tail is rewritten in place when a block is closed and when the table is closed; in between it is stale. This file
// holds the records and their forms; header_section.h writes and checks the section as a whole.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "messagetable/static_indexes.h"
#include "storage/table_config.h"
#include "storage/table_file.h"

namespace tabulo::internal {

inline constexpr std::string_view TYPE_NAME = "MessageTable";
inline constexpr std::int32_t TYPE_RECORD_SIZE = 4 + 12 + 1;  // the layout begins here
static_assert(TYPE_NAME.size() == 12);
inline constexpr std::int32_t LAYOUT_SIZE = 16;  // without the names
inline constexpr std::int32_t BLOCK_INFO_SIZE = 16;
inline constexpr std::int32_t DATA_INFO_SIZE = 12;
inline constexpr std::int32_t HEADER_TAIL_SIZE = BLOCK_INFO_SIZE + DATA_INFO_SIZE + STATIC_INDEXES_SIZE;
static_assert(HEADER_TAIL_SIZE == 88);

// A field name as stored: its length counts the NUL; 0 for an absent or empty name. The text is borrowed.
struct FieldName {
    const char* text = nullptr;
    std::int32_t length = 0;
};

// The layout and the names of a configuration, or of a stored section.
struct MessageTableHeader {
    MessageTableLayout layout;
    std::array<FieldName, MAX_CONFIGURED_STRING_FIELDS> stringFieldNames{};
    std::array<FieldName, MAX_NUMERIC_FIELDS> numericFieldNames{};
};

// How far the data reached when the tail was saved.
struct BlockInfo {
    std::uint64_t reserved = 0;      // kept as read
    std::uint64_t lastBlockEnd = 0;  // file offset behind the last closed block: where the open block begins

    bool operator==(const BlockInfo&) const = default;
};

struct DataInfo {
    std::uint64_t dataEnd = 0;      // file offset behind the last complete message
    std::int32_t messageCount = 0;  // stops at the largest int32

    bool operator==(const DataInfo&) const = default;
};

// Configured string fields of a layout: 0 to 12.
std::int32_t mtLayout_configuredStringCount(const MessageTableLayout* layout) noexcept;
// Takes layout and names from a configuration, whose texts must outlive the header.
void mtLayout_fromConfig(MessageTableHeader* header, const KSVTboTableConfig* config) noexcept;
// Appends layout and names; the result is the stream's error (STREAM_EXTENSION_ERROR).
ErrorCode mtLayout_write(const MessageTableHeader* header, KSVByteStream* stream) noexcept;
// Reads layout and names. With keepNames each name points into the stream's buffer, which must outlive its use;
// without, names are skipped. The result is the stream's error: STREAM_NOT_ENOUGH_DATA_ERROR also for a name longer
// than what is unread.
ErrorCode mtLayout_read(MessageTableHeader* header, KSVByteStream* stream, bool keepNames) noexcept;
// HEADER_CORRUPTED_ERROR unless messagesPerBlock > 0, 2 <= stringFieldCount < 17, 0 <= summarisedStringFieldCount < 15
// and 0 <= numericFieldCount < 17. (The lower bound 2, and not 4, is the format's rule.)
ErrorCode mtLayout_check(const MessageTableLayout* layout) noexcept;
// True when two names are the same: equal length and bytes, where "" and an absent name are one.
bool fieldName_equals(const FieldName& left, const FieldName& right) noexcept;

// All zeros. No caller of ours: new records are so from the start.
void blockInfo_init(BlockInfo* info) noexcept;
// The result is the stream's error; a read that fails leaves the record unchanged.
ErrorCode blockInfo_write(const BlockInfo* info, KSVByteStream* stream) noexcept;
ErrorCode blockInfo_read(BlockInfo* info, KSVByteStream* stream) noexcept;
// FILE_SIZE_ERROR when lastBlockEnd lies behind the file's end, or the code of tableFileGetSize.
ErrorCode blockInfo_check(const BlockInfo* info, TableFile* file) noexcept;

// All zeros. No caller of ours: as blockInfo_init.
void dataInfo_init(DataInfo* info) noexcept;
// As blockInfo_write and blockInfo_read.
ErrorCode dataInfo_write(const DataInfo* info, KSVByteStream* stream) noexcept;
ErrorCode dataInfo_read(DataInfo* info, KSVByteStream* stream) noexcept;
// FILE_SIZE_ERROR unless dataEnd equals the file's size; HEADER_CORRUPTED_ERROR for a negative messageCount; or the
// code of tableFileGetSize.
ErrorCode dataInfo_check(const DataInfo* info, TableFile* file) noexcept;

}  // namespace tabulo::internal
