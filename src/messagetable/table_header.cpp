#include "messagetable/table_header.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tabulo::internal {

namespace {

FieldName nameOf(const char* text) {
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    return length == 0 ? FieldName{} : FieldName{text, static_cast<std::int32_t>(length) + 1};
}

void writeName(const FieldName& name, KSVByteStream* stream) {
    byteStream_put(stream, static_cast<std::uint32_t>(name.length));
    if (name.length > 0) {
        byteStream_putBytes(stream, name.text, name.length);
    }
}

void readName(FieldName* name, KSVByteStream* stream, bool keep) {
    std::uint32_t length = 0;
    byteStream_get(stream, &length);
    if (length > static_cast<std::uint32_t>(byteStream_unread(stream))) {
        stream->error = STREAM_NOT_ENOUGH_DATA_ERROR;
        return;
    }
    const auto* text = reinterpret_cast<const char*>(byteStream_readPointer(stream));
    if (!byteStream_skip(stream, static_cast<std::int32_t>(length)).failed() && keep) {
        *name = {text, static_cast<std::int32_t>(length)};
    }
}

std::int32_t numericNameCount(const MessageTableLayout& layout) {
    return std::clamp(layout.numericFieldCount, 0, MAX_NUMERIC_FIELDS);
}

// The stored bytes, their NUL included; none for an absent name and for one that is a NUL alone.
std::string_view textOf(const FieldName& name) {
    const std::string_view text(name.text, static_cast<std::size_t>(name.length));
    return text == std::string_view("\0", 1) ? std::string_view() : text;
}

ErrorCode sizeOf(TableFile* file, std::uint64_t* size) {
    std::int64_t current = 0;
    const ErrorCode code = tableFileGetSize(file, &current);
    *size = static_cast<std::uint64_t>(current);
    return code;
}

}  // namespace

std::int32_t mtLayout_configuredStringCount(const MessageTableLayout* layout) noexcept {
    if (layout->stringFieldCount <= BUILT_IN_STRING_FIELDS) {
        return 0;
    }
    return std::min(layout->stringFieldCount - BUILT_IN_STRING_FIELDS, MAX_CONFIGURED_STRING_FIELDS);
}

void mtLayout_fromConfig(MessageTableHeader* header, const KSVTboTableConfig* config) noexcept {
    header->layout = *tableConfig_getLayout(config);
    for (std::int32_t i = 0; i < MAX_CONFIGURED_STRING_FIELDS; ++i) {
        header->stringFieldNames[static_cast<std::size_t>(i)] = nameOf(tableConfig_getStringFieldName(config, i));
    }
    for (std::int32_t i = 0; i < MAX_NUMERIC_FIELDS; ++i) {
        header->numericFieldNames[static_cast<std::size_t>(i)] = nameOf(tableConfig_getNumericFieldName(config, i));
    }
}

ErrorCode mtLayout_write(const MessageTableHeader* header, KSVByteStream* stream) noexcept {
    const MessageTableLayout& layout = header->layout;
    byteStream_put(stream, layout.messagesPerBlock);
    byteStream_put(stream, layout.stringFieldCount);
    byteStream_put(stream, layout.summarisedStringFieldCount);
    byteStream_put(stream, layout.numericFieldCount);
    for (std::int32_t i = 0; i < mtLayout_configuredStringCount(&layout); ++i) {
        writeName(header->stringFieldNames[static_cast<std::size_t>(i)], stream);
    }
    for (std::int32_t i = 0; i < numericNameCount(layout); ++i) {
        writeName(header->numericFieldNames[static_cast<std::size_t>(i)], stream);
    }
    return byteStream_error(stream);
}

ErrorCode mtLayout_read(MessageTableHeader* header, KSVByteStream* stream, bool keepNames) noexcept {
    MessageTableLayout& layout = header->layout;
    byteStream_get(stream, &layout.messagesPerBlock);
    byteStream_get(stream, &layout.stringFieldCount);
    byteStream_get(stream, &layout.summarisedStringFieldCount);
    byteStream_get(stream, &layout.numericFieldCount);
    if (byteStream_error(stream) != NO_ERROR) {
        return byteStream_error(stream);
    }
    for (std::int32_t i = 0; i < mtLayout_configuredStringCount(&layout); ++i) {
        readName(&header->stringFieldNames[static_cast<std::size_t>(i)], stream, keepNames);
    }
    for (std::int32_t i = 0; i < numericNameCount(layout); ++i) {
        readName(&header->numericFieldNames[static_cast<std::size_t>(i)], stream, keepNames);
    }
    return byteStream_error(stream);
}

ErrorCode mtLayout_check(const MessageTableLayout* layout) noexcept {
    const bool possible =
        layout->messagesPerBlock > 0 && layout->stringFieldCount >= 2 &&
        layout->stringFieldCount <= MAX_STRING_FIELDS && layout->summarisedStringFieldCount >= 0 &&
        layout->summarisedStringFieldCount <= LEADING_BUILT_IN_STRING_FIELDS + MAX_CONFIGURED_STRING_FIELDS &&
        layout->numericFieldCount >= 0 && layout->numericFieldCount <= MAX_NUMERIC_FIELDS;
    return possible ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

bool fieldName_equals(const FieldName& left, const FieldName& right) noexcept {
    return textOf(left) == textOf(right);
}

void blockInfo_init(BlockInfo* info) noexcept {
    *info = BlockInfo{};
}

ErrorCode blockInfo_write(const BlockInfo* info, KSVByteStream* stream) noexcept {
    byteStream_put(stream, info->reserved);
    byteStream_put(stream, info->lastBlockEnd);
    return byteStream_error(stream);
}

ErrorCode blockInfo_read(BlockInfo* info, KSVByteStream* stream) noexcept {
    BlockInfo stored;
    byteStream_get(stream, &stored.reserved);
    byteStream_get(stream, &stored.lastBlockEnd);
    if (byteStream_error(stream) == NO_ERROR) {
        *info = stored;
    }
    return byteStream_error(stream);
}

ErrorCode blockInfo_check(const BlockInfo* info, TableFile* file) noexcept {
    std::uint64_t size = 0;
    const ErrorCode code = sizeOf(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    return info->lastBlockEnd > size ? FILE_SIZE_ERROR : NO_ERROR;
}

void dataInfo_init(DataInfo* info) noexcept {
    *info = DataInfo{};
}

ErrorCode dataInfo_write(const DataInfo* info, KSVByteStream* stream) noexcept {
    byteStream_put(stream, info->dataEnd);
    byteStream_put(stream, info->messageCount);
    return byteStream_error(stream);
}

ErrorCode dataInfo_read(DataInfo* info, KSVByteStream* stream) noexcept {
    DataInfo stored;
    byteStream_get(stream, &stored.dataEnd);
    byteStream_get(stream, &stored.messageCount);
    if (byteStream_error(stream) == NO_ERROR) {
        *info = stored;
    }
    return byteStream_error(stream);
}

ErrorCode dataInfo_check(const DataInfo* info, TableFile* file) noexcept {
    std::uint64_t size = 0;
    const ErrorCode code = sizeOf(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    if (info->dataEnd != size) {
        return FILE_SIZE_ERROR;
    }
    return info->messageCount < 0 ? HEADER_CORRUPTED_ERROR : NO_ERROR;
}

}  // namespace tabulo::internal
