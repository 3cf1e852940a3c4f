#include "messagetable/recovery.h"

#include <algorithm>
#include <limits>

#include "messagetable/block_cursor.h"
#include "messagetable/recovery_write.h"
#include "messagetable/torn_tail.h"
#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

struct Recovery {
    explicit Recovery(const SectionOwner& section) : owner(section) {}

    const SectionOwner& owner;
    TableFile* file = nullptr;
    BlockReaderPtr reader;  // scratch
    ByteStreamPtr header;   // the file's beginning, or the header rebuilt from the configuration
    TailRecords records;    // rebuilt from the blocks
    bool headerRebuilt = false;
    bool writtenBeforeStart = false;  // as the file was found
    std::int64_t headerEnd = 0;
    std::int64_t position = 0;  // start of the block at hand

    std::int64_t fileSize() const { return tableFileCachedSize(file); }
    const MessageTableLayout& layout() const { return owner.header.layout; }
};

void addMessages(DataInfo* info, std::int32_t count) {
    const std::int64_t sum = std::int64_t{info->messageCount} + count;
    info->messageCount =
        static_cast<std::int32_t>(std::min<std::int64_t>(sum, std::numeric_limits<std::int32_t>::max()));
}

// The section is cut: builds a new one from the configuration behind the generic header, which gets its size.
ErrorCode rebuildHeader(Recovery* recovery) {
    TableStorage* storage = recovery->owner.storage;
    KSVByteStream* stream = recovery->header.get();
    const std::int32_t start = storage->specificHeaderOffset;
    TableGenericHeader generic;
    byteStream_clearError(stream);
    byteStream_rewind(stream, BYTE_STREAM_FORWARD);
    ErrorCode code = tsgh_read(&generic, stream);
    if (code == NO_ERROR) {
        byteStream_resetWrite(stream, start);
        code = mtX_writeHeader(recovery->owner.header, stream, &recovery->records);
    }
    const std::int32_t end = byteStream_writeMark(stream);
    if (code == NO_ERROR && end > MAX_HEADER_SIZE) {
        code = WRONG_PARAMETER_ERROR;  // such a table would never open again
    }
    if (code != NO_ERROR) {
        return code;
    }
    generic.headerSize = end;
    byteStream_resetWrite(stream, 0);
    (void)tsgh_write(&generic, stream);  // the stream keeps its first error
    byteStream_resetWrite(stream, end);
    recovery->headerRebuilt = true;
    recovery->headerEnd = end;
    storage->headerSize = end;
    return recoveryWrite_saveOverwritten(recovery->file, start, byteStream_buffer(stream) + start, end - start);
}

// Reads the header, or builds a new one when the section is cut.
ErrorCode loadHeader(Recovery* recovery) {
    const TableStorage* storage = recovery->owner.storage;
    KSVByteStream* stream = recovery->header.get();
    const auto length = static_cast<std::int32_t>(std::min<std::int64_t>(recovery->fileSize(), MAX_HEADER_SIZE));
    const ErrorCode code = byteStream_readFromFileAt(stream, recovery->file, 0, length);
    if (code != NO_ERROR) {
        return code;
    }
    MessageTableLayout stored;
    TailRecords records;
    if (headerSection_skim(stream, storage->specificHeaderOffset, &stored, &records) != NO_ERROR) {
        return rebuildHeader(recovery);
    }
    recovery->headerEnd = byteStream_readMark(stream);
    // Frames of another layout cannot be told from damage.
    const bool same = stored == recovery->layout() && recovery->headerEnd == storage->headerSize;
    return same ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

// The frames of a full block are all there: writes the footer that was never written, and the block's length.
ErrorCode closeBlock(Recovery* recovery) {
    const BlockReader& reader = *recovery->reader;
    KSVByteStream* footer = reader.footer.get();
    const std::uint64_t length = blockSummary_closedLength(reader.summary, reader.footerSize);
    const std::int64_t next = recovery->position + static_cast<std::int64_t>(length);
    const std::int64_t start = next - reader.footerSize;
    byteStream_clear(footer);
    (void)blockSummary_writeFooter(&reader.summary, reader.layout, footer);  // the stream keeps its first error
    byteStream_put(footer, length);
    ErrorCode code = byteStream_error(footer);
    if (code == NO_ERROR) {
        code = recoveryWrite_saveOverwritten(recovery->file, start, byteStream_buffer(footer), reader.footerSize);
    }
    if (code == NO_ERROR) {
        code = recoveryWrite_at(recovery->file, start, byteStream_buffer(footer), reader.footerSize);
    }
    if (code == NO_ERROR) {
        code = recoveryWrite_lengthWord(recovery->file, recovery->position, length);
    }
    if (code == NO_ERROR) {
        addMessages(&recovery->records.dataInfo, reader.layout.messagesPerBlock);
        recovery->records.staticIndexes = reader.summary.staticIndexes;
        recovery->position = next;
    }
    return code;
}

// Saves what stands behind the last complete frame, unless a crash can have left it there.
ErrorCode saveTail(const Recovery& recovery, std::int64_t dataEnd, bool hasMessages) {
    const std::int64_t size = recovery.fileSize();
    bool torn = false;
    ErrorCode code = NO_ERROR;
    if (hasMessages || size - dataEnd < BLOCK_LENGTH_SIZE) {
        code = tornTail_check(recovery.file, recovery.layout(), dataEnd, size, &torn);
    } else {
        // The block's first frame was being appended, behind the block's length word.
        std::uint64_t word = 0;
        std::int64_t count = 0;
        code = tableFileReadAt(recovery.file, dataEnd, &word, BLOCK_LENGTH_SIZE, &count);
        if (code == NO_ERROR && word == 0) {
            code = tornTail_check(recovery.file, recovery.layout(), dataEnd + BLOCK_LENGTH_SIZE, size, &torn);
        }
    }
    return code == NO_ERROR && !torn ? recoveryWrite_save(recovery.file, dataEnd, size - dataEnd) : code;
}

// The block at hand is the open one: the walk ends here.
ErrorCode endAtOpenBlock(Recovery* recovery) {
    TailRecords& records = recovery->records;
    const BlockSummary& summary = recovery->reader->summary;
    const bool hasMessages = summary.messageCount > 0;
    std::int64_t dataEnd = recovery->position;
    if (hasMessages) {
        dataEnd += BLOCK_LENGTH_SIZE + static_cast<std::int64_t>(summary.frameBytes);
        addMessages(&records.dataInfo, summary.messageCount);
        records.staticIndexes = summary.staticIndexes;
    }
    records.blockInfo.lastBlockEnd = static_cast<std::uint64_t>(recovery->position);
    records.dataInfo.dataEnd = static_cast<std::uint64_t>(dataEnd);
    ErrorCode code = dataEnd < recovery->fileSize() ? saveTail(*recovery, dataEnd, hasMessages) : NO_ERROR;
    return code == NO_ERROR && hasMessages ? recoveryWrite_lengthWord(recovery->file, recovery->position, 0) : code;
}

// A block that its length word or its footer tells: takes its footer's word, and mends a torn length word.
ErrorCode passClosedBlock(Recovery* recovery, const BlockCursor& cursor) {
    const BlockReader& reader = *recovery->reader;
    addMessages(&recovery->records.dataInfo, cursor.block.messageCount);
    recovery->records.staticIndexes = reader.summary.staticIndexes;
    const std::uint64_t length = blockSummary_closedLength(reader.summary, reader.footerSize);
    const ErrorCode code = cursor.block.state == BlockState::torn
                               ? recoveryWrite_lengthWord(recovery->file, recovery->position, length)
                               : NO_ERROR;
    recovery->position = cursor.position;
    return code;
}

ErrorCode walkBlocks(Recovery* recovery) {
    BlockReader* reader = recovery->reader.get();
    for (;;) {
        blockSummary_reset(&reader->summary, true);
        BlockCursor cursor =
            blockCursor_at(reader, recovery->position, BlockCursor::OpenBlocks::unread, BlockCursor::ZeroWords::open);
        ErrorCode code = blockCursor_next(&cursor, recovery->file);
        if (code == NO_ERROR && block_isClosed(cursor.block)) {
            code = passClosedBlock(recovery, cursor);
            if (code != NO_ERROR) {
                return code;
            }
            continue;
        }
        reader->summary.staticIndexes = recovery->records.staticIndexes;
        ErrorCode scanEnd = NO_ERROR;
        if (code == NO_ERROR) {
            code = blockReader_scan(reader, recovery->file, block_framesStart(cursor.block), recovery->fileSize(),
                                    &scanEnd);
        }
        if (code != NO_ERROR) {
            return code;
        }
        if (reader->summary.messageCount < reader->layout.messagesPerBlock) {
            return endAtOpenBlock(recovery);
        }
        code = closeBlock(recovery);
        if (code != NO_ERROR) {
            return code;
        }
    }
}

// Writes the rebuilt records (and what stands before them, when that was rebuilt too), then cuts the file.
ErrorCode writeHeaderAndCut(Recovery* recovery) {
    KSVByteStream* stream = recovery->header.get();
    const auto end = static_cast<std::int32_t>(recovery->headerEnd);
    byteStream_resetWrite(stream, end - HEADER_TAIL_SIZE);
    const std::int32_t start = recovery->headerRebuilt ? 0 : recovery->owner.storage->specificHeaderOffset;
    ErrorCode code = headerTail_write(recovery->records, stream);
    if (code == NO_ERROR) {
        code = recoveryWrite_at(recovery->file, start, byteStream_buffer(stream) + start, end - start);
    }
    if (code != NO_ERROR) {
        return code;
    }
    code = tableFileTruncate(recovery->file, static_cast<std::int64_t>(recovery->records.dataInfo.dataEnd));
    if (code == NO_ERROR && recovery->writtenBeforeStart) {
        // Else what was cut could come back around what is written next, when the power is lost again. Without a loss
        // of power only torn frames are cut, and there may be much that the system has not written yet.
        (void)tableFileCommit(recovery->file, "mtX_recover");  // a WARNING tells
    }
    return code;
}

ErrorCode loadRecovered(Recovery* recovery, LoadedTable* loaded) {
    KSVByteStream* stream = recovery->header.get();
    const auto length = static_cast<std::int32_t>(std::min<std::int64_t>(recovery->fileSize(), MAX_HEADER_SIZE));
    const ErrorCode code = byteStream_readFromFileAt(stream, recovery->file, 0, length);
    return code == NO_ERROR ? mtX_load(recovery->owner, recovery->file, stream,
                                       recovery->owner.storage->specificHeaderOffset, loaded)
                            : code;
}

}  // namespace

ErrorCode mtX_recover(const SectionOwner& owner, TableFile* file, LoadedTable* loaded) noexcept {
    std::int64_t size = 0;
    ErrorCode code = tableFileRefreshSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    if (size - owner.storage->specificHeaderOffset <= 0) {
        return FILE_SIZE_ERROR;
    }
    Recovery recovery(owner);
    recovery.file = file;
    recovery.writtenBeforeStart = tableFileWrittenBeforeStart(file);
    recovery.header.reset(byteStream_create(MAX_HEADER_SIZE));
    recovery.reader.reset(mfr_createReader(owner.storage, owner.header.layout));
    if (recovery.header == nullptr || recovery.reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    code = loadHeader(&recovery);
    if (code != NO_ERROR) {
        return code;
    }
    recovery.records = {};
    recovery.position = recovery.headerEnd;
    code = walkBlocks(&recovery);
    if (code == NO_ERROR) {
        code = writeHeaderAndCut(&recovery);
    }
    return code == NO_ERROR ? loadRecovered(&recovery, loaded) : code;
}

}  // namespace tabulo::internal
