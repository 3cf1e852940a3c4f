#include "messagetable/header_section.h"

#include <array>
#include <cstring>

#include "core/log.h"
#include "messagetable/block_reader.h"
#include "messagetable/header_mismatch.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

namespace {

// The type name's length and bytes. Running out of data is told apart from a wrong name.
ErrorCode readTypeName(KSVByteStream* stream) {
    std::uint32_t length = 0;
    if (byteStream_get(stream, &length).failed()) {
        return byteStream_error(stream);
    }
    if (length != static_cast<std::uint32_t>(TYPE_NAME_LENGTH)) {
        return TABLE_TYPE_ERROR;
    }
    std::array<char, TYPE_NAME_LENGTH> name{};
    if (byteStream_getBytes(stream, name.data(), TYPE_NAME_LENGTH).failed()) {
        return byteStream_error(stream);
    }
    return std::memcmp(name.data(), TYPE_NAME, TYPE_NAME_LENGTH) == 0 ? NO_ERROR : TABLE_TYPE_ERROR;
}

// The type name, the layout and the names. An impossible layout is told before names that it makes up run out of data.
ErrorCode readLayout(KSVByteStream* stream, MessageTableHeader* stored) {
    const ErrorCode code = readTypeName(stream);
    if (code != NO_ERROR) {
        return code;
    }
    const bool hasLayout = byteStream_unread(stream) >= LAYOUT_SIZE;
    const ErrorCode read = mtLayout_read(stored, stream, true);
    const ErrorCode checked = hasLayout ? mtLayout_check(&stored->layout) : NO_ERROR;
    return checked != NO_ERROR ? checked : read;
}

void writeDetail(const MessageTable* table, FieldKind kind, const MessageTableHeader& stored) {
    headerMismatch_writeDetail(tableConfig_getMasterPath(table->storage->config), kind, table->header, stored);
}

template <std::size_t Slots>
std::int32_t firstDifference(const std::array<FieldName, Slots>& configured, const std::array<FieldName, Slots>& stored,
                             std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        if (!fieldName_equals(configured[static_cast<std::size_t>(i)], stored[static_cast<std::size_t>(i)])) {
            return i;
        }
    }
    return -1;
}

ErrorCode compareNames(const MessageTable* table, const MessageTableHeader& stored) {
    const MessageTableHeader& configured = table->header;
    std::int32_t i =
        firstDifference(configured.numericFieldNames, stored.numericFieldNames, configured.layout.numericFieldCount);
    if (i >= 0) {
        log_warning("mtX_verify", "Configured numeric field %d name mismatch in ", i);
        writeDetail(table, FieldKind::numeric, stored);
        return NUMERIC_FIELDS_NAMES_MISMATCH_ERROR;
    }
    i = firstDifference(configured.stringFieldNames, stored.stringFieldNames,
                        mtLayout_configuredStringCount(&configured.layout));
    if (i >= 0) {
        log_warning("mtX_verify", "Configured string field %d name mismatch in ", i);
        writeDetail(table, FieldKind::string, stored);
        return STRING_FIELDS_NAMES_MISMATCH_ERROR;
    }
    return NO_ERROR;
}

ErrorCode compareWithConfiguration(const MessageTable* table, const MessageTableHeader& stored) {
    const MessageTableLayout& configured = table->header.layout;
    if (stored.layout.stringFieldCount != configured.stringFieldCount) {
        log_warning("mtX_verify", "Configured string fields count mismatch in ");
        writeDetail(table, FieldKind::string, stored);
        return STRING_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (stored.layout.numericFieldCount != configured.numericFieldCount) {
        log_warning("mtX_verify", "Configured numeric fields count mismatch in ");
        writeDetail(table, FieldKind::numeric, stored);
        return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (stored.layout.summarisedStringFieldCount != configured.summarisedStringFieldCount ||
        stored.layout.messagesPerBlock != configured.messagesPerBlock) {
        return CONFIG_MISMATCH_ERROR;
    }
    return compareNames(table, stored);
}

// The three records, each checked as soon as it is read.
ErrorCode readRecords(TableFile* file, KSVByteStream* stream, BlockInfo* blockInfo, DataInfo* dataInfo,
                      mthStaticIndexes* indexes) {
    ErrorCode code = blockInfo_read(blockInfo, stream);
    if (code == NO_ERROR) {
        code = blockInfo_check(blockInfo, file);
    }
    if (code == NO_ERROR) {
        code = dataInfo_read(dataInfo, stream);
    }
    if (code == NO_ERROR) {
        code = dataInfo_check(dataInfo, file);
    }
    if (code == NO_ERROR) {
        code = mthStaticIndexes_read(indexes, stream);
    }
    return code == NO_ERROR ? mthStaticIndexes_check(indexes) : code;
}

// Steps over the closed blocks up to lastBlockEnd by their length words and footers.
ErrorCode checkClosedBlocks(MessageFrames* frames, TableFile* file, std::int64_t lastBlockEnd) {
    std::int64_t position = frames->storage->headerSize;
    while (position < lastBlockEnd) {
        BlockView block;
        const ErrorCode code = mfr_readBlockFooter(frames, file, position, false, &block);
        if (code == NO_DATA_ERROR || block.tornWord) {
            return HEADER_CORRUPTED_ERROR;
        }
        if (code != NO_ERROR) {
            return code;
        }
        position = blockView_next(block, frames);
    }
    return position == lastBlockEnd ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

// Brings the frame writer to the state of the open block of a file that ends where its data ends.
ErrorCode loadWriter(MessageFrames* frames, TableFile* file, std::int64_t lastBlockEnd) {
    ErrorCode code = NO_ERROR;
    if (tableFileWrittenBeforeStart(file)) {
        // The power may have been lost when the tail and later blocks were on the disk, and an earlier block was not.
        code = checkClosedBlocks(frames, file, lastBlockEnd);
    }
    if (code == NO_ERROR) {
        code = mfr_loadPreviousFooter(frames, file, lastBlockEnd);
    }
    if (code != NO_ERROR) {
        return code;
    }
    mfr_reset(frames, true);
    const std::int64_t size = tableFileCachedSize(file);
    if (size == lastBlockEnd) {
        return NO_ERROR;
    }
    BlockView block;
    code = mfr_readBlockFooter(frames, file, lastBlockEnd, true, &block);
    if (code != NO_ERROR) {
        return code;
    }
    const bool usable = !block.closed && block.messageCount > 0 &&
                        block.messageCount < frames->layout.messagesPerBlock && blockView_framesEnd(block) == size;
    return usable ? NO_ERROR : FILE_SIZE_ERROR;
}

}  // namespace

void mtX_resetState(MessageTable* table) noexcept {
    blockInfo_init(&table->blockInfo);
    dataInfo_init(&table->dataInfo);
    mthStaticIndexes_init(&table->staticIndexes);
    mfr_resetAll(table->frames.get());
    table->viewLoaded = false;
}

ErrorCode mtX_writeHeader(MessageTable* table, KSVByteStream* stream) noexcept {
    if (mtLayout_check(&table->header.layout) != NO_ERROR) {
        return WRONG_PARAMETER_ERROR;
    }
    mtX_resetState(table);
    byteStream_put(stream, static_cast<std::uint32_t>(TYPE_NAME_LENGTH));
    byteStream_putBytes(stream, TYPE_NAME, TYPE_NAME_LENGTH);
    (void)mtLayout_write(&table->header, stream);  // the stream keeps its first error
    (void)blockInfo_write(&table->blockInfo, stream);  // the stream keeps its first error
    if (byteStream_error(stream) != NO_ERROR) {
        return byteStream_error(stream);
    }
    table->dataInfo.dataEnd =
        static_cast<std::uint64_t>(byteStream_writeMark(stream) + DATA_INFO_SIZE + STATIC_INDEXES_SIZE);
    (void)dataInfo_write(&table->dataInfo, stream);  // the stream keeps its first error
    return mthStaticIndexes_write(&table->staticIndexes, stream);
}

ErrorCode mtX_verify(MessageTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept {
    std::int64_t size = 0;
    ErrorCode code = tableFileGetSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    if (size - offset <= 0) {
        return FILE_SIZE_ERROR;
    }
    if (byteStream_resetRead(stream, BYTE_STREAM_FORWARD, offset).failed()) {
        return byteStream_error(stream);
    }
    MessageTableHeader stored;
    code = readLayout(stream, &stored);
    if (code != NO_ERROR) {
        return code;
    }
    if (byteStream_readMark(stream) + HEADER_TAIL_SIZE != tsgh_storedHeaderSize(stream)) {
        return HEADER_CORRUPTED_ERROR;
    }
    code = compareWithConfiguration(table, stored);
    if (code != NO_ERROR) {
        return code;
    }
    BlockInfo blockInfo;
    DataInfo dataInfo;
    mthStaticIndexes indexes;
    code = readRecords(file, stream, &blockInfo, &dataInfo, &indexes);
    if (code == NO_ERROR) {
        table->blockInfo = blockInfo;
        table->dataInfo = dataInfo;
        table->staticIndexes = indexes;
    }
    return code;
}

ErrorCode mtX_load(MessageTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept {
    if (byteStream_resetRead(stream, BYTE_STREAM_FORWARD, offset + TYPE_RECORD_SIZE).failed()) {
        return byteStream_error(stream);
    }
    MessageTableHeader stored;
    BlockInfo blockInfo;
    DataInfo dataInfo;
    mthStaticIndexes indexes;
    ErrorCode code = mtLayout_read(&stored, stream, false);
    if (code == NO_ERROR) {
        code = headerTail_parse(stream, &blockInfo, &dataInfo, &indexes);
    }
    if (code != NO_ERROR) {
        return code;
    }
    blockInfo.lastBlockEnd = mt_effectiveBlockEnd(table, blockInfo.lastBlockEnd);
    if (tableFileGetMode(file) != OpenMode::read) {
        code = loadWriter(table->frames.get(), file, static_cast<std::int64_t>(blockInfo.lastBlockEnd));
        if (code != NO_ERROR) {
            mfr_resetAll(table->frames.get());
            return code;
        }
        indexes = table->frames->summary.staticIndexes;
    }
    table->blockInfo = blockInfo;
    table->dataInfo = dataInfo;
    table->staticIndexes = indexes;
    table->viewLoaded = false;
    return NO_ERROR;
}

ErrorCode mtX_prepareTail(MessageTable* table, std::int32_t headerEnd) noexcept {
    // Counted back from the header's end: the stored names may take a byte more than ours ("" with or without its NUL).
    table->tail = headerTail_create(table->storage.get(), headerEnd - HEADER_TAIL_SIZE, HEADER_TAIL_SIZE);
    if (table->tail == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    table->blockInfo.lastBlockEnd = mt_effectiveBlockEnd(table, table->blockInfo.lastBlockEnd);
    return NO_ERROR;
}

}  // namespace tabulo::internal
