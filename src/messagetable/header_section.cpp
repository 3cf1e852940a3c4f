#include "messagetable/header_section.h"

#include <array>
#include <utility>

#include "core/log.h"
#include "messagetable/block_cursor.h"
#include "messagetable/header_mismatch.h"
#include "storage/type_name.h"

namespace tabulo::internal {

namespace {

void writeDetail(const SectionOwner& owner, FieldKind kind, const MessageTableHeader& stored) {
    headerMismatch_writeDetail(tableConfig_getMasterPath(owner.storage->config), kind, owner.header, stored);
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

ErrorCode compareNames(const SectionOwner& owner, const MessageTableHeader& stored) {
    const MessageTableHeader& configured = owner.header;
    std::int32_t i =
        firstDifference(configured.numericFieldNames, stored.numericFieldNames, configured.layout.numericFieldCount);
    if (i >= 0) {
        log_warning("mtX_verify", "Configured numeric field %d name mismatch in ", i);
        writeDetail(owner, FieldKind::numeric, stored);
        return NUMERIC_FIELDS_NAMES_MISMATCH_ERROR;
    }
    i = firstDifference(configured.stringFieldNames, stored.stringFieldNames,
                        mtLayout_configuredStringCount(&configured.layout));
    if (i >= 0) {
        log_warning("mtX_verify", "Configured string field %d name mismatch in ", i);
        writeDetail(owner, FieldKind::string, stored);
        return STRING_FIELDS_NAMES_MISMATCH_ERROR;
    }
    return NO_ERROR;
}

ErrorCode compareWithConfiguration(const SectionOwner& owner, const MessageTableHeader& stored) {
    const MessageTableLayout& configured = owner.header.layout;
    if (stored.layout.stringFieldCount != configured.stringFieldCount) {
        log_warning("mtX_verify", "Configured string fields count mismatch in ");
        writeDetail(owner, FieldKind::string, stored);
        return STRING_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (stored.layout.numericFieldCount != configured.numericFieldCount) {
        log_warning("mtX_verify", "Configured numeric fields count mismatch in ");
        writeDetail(owner, FieldKind::numeric, stored);
        return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (stored.layout.summarisedStringFieldCount != configured.summarisedStringFieldCount ||
        stored.layout.messagesPerBlock != configured.messagesPerBlock) {
        return CONFIG_MISMATCH_ERROR;
    }
    return owner.storage->config->namesAreStored ? NO_ERROR : compareNames(owner, stored);
}

// The three records, each checked as soon as it is read.
ErrorCode readRecords(TableFile* file, KSVByteStream* stream, TailRecords* records) {
    ErrorCode code = blockInfo_read(&records->blockInfo, stream);
    if (code == NO_ERROR) {
        code = blockInfo_check(&records->blockInfo, file);
    }
    if (code == NO_ERROR) {
        code = dataInfo_read(&records->dataInfo, stream);
    }
    if (code == NO_ERROR) {
        code = dataInfo_check(&records->dataInfo, file);
    }
    if (code == NO_ERROR) {
        code = mthStaticIndexes_read(&records->staticIndexes, stream);
    }
    return code == NO_ERROR ? mthStaticIndexes_check(&records->staticIndexes) : code;
}

// Steps over the closed blocks up to lastBlockEnd by their length words and footers.
ErrorCode checkClosedBlocks(BlockReader* reader, TableFile* file, std::int64_t lastBlockEnd) {
    BlockCursor cursor = blockCursor_at(reader, reader->storage->headerSize, BlockCursor::OpenBlocks::unread,
                                        BlockCursor::ZeroWords::open);
    while (cursor.position < lastBlockEnd) {
        const ErrorCode code = blockCursor_next(&cursor, file);
        if (code != NO_ERROR) {
            return code;
        }
        if (cursor.block.state != BlockState::closed) {
            const bool isDamaged = cursor.block.state == BlockState::damaged;
            return isDamaged ? cursor.block.damage : HEADER_CORRUPTED_ERROR;
        }
    }
    return cursor.position == lastBlockEnd ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

// Reads the open block of a file that ends where its data ends.
ErrorCode loadOpenBlock(BlockReader* reader, TableFile* file, std::int64_t lastBlockEnd) {
    ErrorCode code = NO_ERROR;
    if (tableFileWrittenBeforeStart(file)) {
        // The power may have been lost when the tail and later blocks were on the disk, and an earlier block was not.
        code = checkClosedBlocks(reader, file, lastBlockEnd);
    }
    if (code == NO_ERROR) {
        code = mfr_loadPreviousFooter(reader, file, lastBlockEnd);
    }
    if (code != NO_ERROR) {
        return code;
    }
    blockSummary_reset(&reader->summary, true);
    const std::int64_t size = tableFileCachedSize(file);
    if (size == lastBlockEnd) {
        return NO_ERROR;
    }
    BlockCursor cursor =
        blockCursor_at(reader, lastBlockEnd, BlockCursor::OpenBlocks::scanned, BlockCursor::ZeroWords::open);
    code = blockCursor_next(&cursor, file);
    const Block& block = cursor.block;
    if (code != NO_ERROR || block.state == BlockState::damaged || block.state == BlockState::none) {
        return code != NO_ERROR ? code : (block.state == BlockState::none ? NO_DATA_ERROR : block.damage);
    }
    const bool usable = block.state == BlockState::open && block.messageCount > 0 &&
                        block.messageCount < reader->layout.messagesPerBlock && block.framesEnd == size;
    return usable ? NO_ERROR : FILE_SIZE_ERROR;
}

// The type name, the layout and the names, which point into the stream.
ErrorCode readLayout(KSVByteStream* stream, MessageTableHeader* stored) {
    const ErrorCode code = typeName_read(stream, TYPE_NAME);
    if (code != NO_ERROR) {
        return code;
    }
    // An impossible layout is told before names that it makes up run out of data.
    const bool hasLayout = byteStream_unread(stream) >= LAYOUT_SIZE;
    const ErrorCode read = mtLayout_read(stored, stream, true);
    const ErrorCode checked = hasLayout ? mtLayout_check(&stored->layout) : NO_ERROR;
    return checked != NO_ERROR ? checked : read;
}

}  // namespace

ErrorCode headerSection_skim(KSVByteStream* stream, std::int32_t offset, MessageTableLayout* layout,
                             TailRecords* records) noexcept {
    if (byteStream_resetRead(stream, BYTE_STREAM_FORWARD, offset + TYPE_RECORD_SIZE).failed()) {
        return byteStream_error(stream);
    }
    MessageTableHeader stored;
    const ErrorCode code = mtLayout_read(&stored, stream, false);
    *layout = stored.layout;
    return code == NO_ERROR ? headerTail_parse(stream, records) : code;
}

ErrorCode mtX_writeHeader(const MessageTableHeader& header, KSVByteStream* stream, TailRecords* records) noexcept {
    if (mtLayout_check(&header.layout) != NO_ERROR) {
        return WRONG_PARAMETER_ERROR;
    }
    *records = {};
    typeName_write(TYPE_NAME, stream);
    (void)mtLayout_write(&header, stream);  // the stream keeps its first error
    records->dataInfo.dataEnd = static_cast<std::uint64_t>(byteStream_writeMark(stream)) + HEADER_TAIL_SIZE;
    return headerTail_write(*records, stream);
}

ErrorCode mtX_verify(const SectionOwner& owner, TableFile* file, KSVByteStream* stream, std::int32_t offset,
                     TailRecords* records) noexcept {
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
    code = compareWithConfiguration(owner, stored);
    if (code != NO_ERROR) {
        return code;
    }
    TailRecords read;
    code = readRecords(file, stream, &read);
    if (code == NO_ERROR) {
        *records = read;
    }
    return code;
}

ErrorCode mtX_load(const SectionOwner& owner, TableFile* file, KSVByteStream* stream, std::int32_t offset,
                   LoadedTable* loaded) noexcept {
    MessageTableLayout layout;
    LoadedTable read;
    ErrorCode code = headerSection_skim(stream, offset, &layout, &read.records);
    if (code != NO_ERROR) {
        return code;
    }
    read.records.blockInfo.lastBlockEnd = headerTail_openBlock(read.records, owner.storage->headerSize);
    if (tableFileGetMode(file) != OpenMode::read) {
        read.openBlock.reset(blockReader_create(owner.storage, owner.header.layout));
        code = read.openBlock == nullptr
                   ? OUT_OF_MEMORY_ERROR
                   : loadOpenBlock(read.openBlock.get(), file,
                                   static_cast<std::int64_t>(read.records.blockInfo.lastBlockEnd));
        if (code != NO_ERROR) {
            return code;
        }
        read.records.staticIndexes = read.openBlock->summary.staticIndexes;
    }
    *loaded = std::move(read);
    return NO_ERROR;
}

}  // namespace tabulo::internal
