#include "messagetable/recovery.h"

#include <algorithm>
#include <limits>

#include "messagetable/block_reader.h"
#include "messagetable/header_section.h"
#include "messagetable/message_table.h"
#include "messagetable/recovery_write.h"
#include "messagetable/torn_tail.h"
#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

struct Recovery {
    MessageTable* table = nullptr;
    TableFile* file = nullptr;
    MessageFramesPtr frames;  // scratch
    ByteStreamPtr header;     // the file's beginning, or the header rebuilt from the configuration
    bool headerRebuilt = false;
    bool writtenBeforeStart = false;  // as the file was found
    std::int64_t headerEnd = 0;
    std::int64_t position = 0;  // start of the block at hand

    std::int64_t fileSize() const { return tableFileCachedSize(file); }
    const MessageTableLayout& layout() const { return table->header.layout; }
};

void addMessages(DataInfo* info, std::int32_t count) {
    const std::int64_t sum = std::int64_t{info->messageCount} + count;
    info->messageCount =
        static_cast<std::int32_t>(std::min<std::int64_t>(sum, std::numeric_limits<std::int32_t>::max()));
}

// The section is cut: builds a new one from the configuration behind the generic header, which gets its size.
ErrorCode rebuildHeader(Recovery* recovery) {
    TableStorage* storage = recovery->table->storage.get();
    KSVByteStream* stream = recovery->header.get();
    const std::int32_t start = storage->specificHeaderOffset;
    TableGenericHeader generic;
    byteStream_clearError(stream);
    byteStream_rewind(stream, BYTE_STREAM_FORWARD);
    ErrorCode code = tsgh_read(&generic, stream);
    if (code == NO_ERROR) {
        byteStream_resetWrite(stream, start);
        code = mtX_writeHeader(recovery->table, stream);
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
    MessageTable* table = recovery->table;
    KSVByteStream* stream = recovery->header.get();
    const std::int32_t start = table->storage->specificHeaderOffset;
    const auto length = static_cast<std::int32_t>(std::min<std::int64_t>(recovery->fileSize(), MAX_HEADER_SIZE));
    const ErrorCode code = byteStream_readFromFileAt(stream, recovery->file, 0, length);
    if (code != NO_ERROR) {
        return code;
    }
    MessageTableHeader stored;
    BlockInfo blockInfo;
    DataInfo dataInfo;
    mthStaticIndexes indexes;
    if (!byteStream_resetRead(stream, BYTE_STREAM_FORWARD, start + TYPE_RECORD_SIZE).failed() &&
        mtLayout_read(&stored, stream, false) == NO_ERROR &&
        headerTail_parse(stream, &blockInfo, &dataInfo, &indexes) == NO_ERROR) {
        recovery->headerEnd = byteStream_readMark(stream);
        // Frames of another layout cannot be told from damage.
        const bool same = stored.layout == recovery->layout() && recovery->headerEnd == table->storage->headerSize;
        return same ? NO_ERROR : HEADER_CORRUPTED_ERROR;
    }
    return rebuildHeader(recovery);
}

// The frames of a full block are all there: writes the footer that was never written, and the block's length.
ErrorCode closeBlock(Recovery* recovery) {
    MessageFrames* frames = recovery->frames.get();
    MessageTable* table = recovery->table;
    KSVByteStream* footer = frames->stream.get();
    const std::uint64_t length = mfr_closedBlockLength(frames);
    const std::int64_t next = recovery->position + static_cast<std::int64_t>(length);
    byteStream_clear(footer);
    (void)blockSummary_writeFooter(&frames->summary, frames->layout, footer);  // the stream keeps its first error
    byteStream_put(footer, length);
    ErrorCode code = byteStream_error(footer);
    if (code == NO_ERROR) {
        code = recoveryWrite_saveOverwritten(recovery->file, next - frames->footerSize, byteStream_buffer(footer),
                                             frames->footerSize);
    }
    if (code == NO_ERROR) {
        code =
            recoveryWrite_at(recovery->file, next - frames->footerSize, byteStream_buffer(footer), frames->footerSize);
    }
    if (code == NO_ERROR) {
        code = recoveryWrite_lengthWord(recovery->file, recovery->position, length);
    }
    if (code != NO_ERROR) {
        return code;
    }
    addMessages(&table->dataInfo, frames->layout.messagesPerBlock);
    table->staticIndexes = frames->summary.staticIndexes;
    recovery->position = next;
    return NO_ERROR;
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
    MessageTable* table = recovery->table;
    const BlockSummary& summary = recovery->frames->summary;
    const bool hasMessages = summary.messageCount > 0;
    std::int64_t dataEnd = recovery->position;
    if (hasMessages) {
        dataEnd += BLOCK_LENGTH_SIZE + static_cast<std::int64_t>(summary.frameBytes);
        addMessages(&table->dataInfo, summary.messageCount);
        table->staticIndexes = summary.staticIndexes;
    }
    table->blockInfo.lastBlockEnd = static_cast<std::uint64_t>(recovery->position);
    table->dataInfo.dataEnd = static_cast<std::uint64_t>(dataEnd);
    ErrorCode code = dataEnd < recovery->fileSize() ? saveTail(*recovery, dataEnd, hasMessages) : NO_ERROR;
    return code == NO_ERROR && hasMessages ? recoveryWrite_lengthWord(recovery->file, recovery->position, 0) : code;
}

ErrorCode walkBlocks(Recovery* recovery) {
    MessageTable* table = recovery->table;
    MessageFrames* frames = recovery->frames.get();
    for (;;) {
        mfr_reset(frames, true);
        BlockView block;
        ErrorCode code = mfr_readBlockFooter(frames, recovery->file, recovery->position, false, &block);
        if (code == NO_ERROR) {
            addMessages(&table->dataInfo, block.messageCount);
            table->staticIndexes = frames->summary.staticIndexes;
            if (block.tornWord) {
                code = recoveryWrite_lengthWord(recovery->file, recovery->position, mfr_closedBlockLength(frames));
                if (code != NO_ERROR) {
                    return code;
                }
            }
            recovery->position = blockView_next(block, frames);
            continue;
        }
        if (code != NO_DATA_ERROR && code != HEADER_CORRUPTED_ERROR && code != CONSISTENCY_ERROR) {
            return code;
        }
        frames->summary.staticIndexes = table->staticIndexes;
        ErrorCode scanEnd = NO_ERROR;
        code = mfr_scanFrames(frames, recovery->file, recovery->position + BLOCK_LENGTH_SIZE, recovery->fileSize(),
                              &scanEnd);
        if (code != NO_ERROR) {
            return code;
        }
        if (frames->summary.messageCount < frames->layout.messagesPerBlock) {
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
    MessageTable* table = recovery->table;
    KSVByteStream* stream = recovery->header.get();
    const auto end = static_cast<std::int32_t>(recovery->headerEnd);
    byteStream_resetWrite(stream, end - HEADER_TAIL_SIZE);
    (void)blockInfo_write(&table->blockInfo, stream);  // the stream keeps its first error
    (void)dataInfo_write(&table->dataInfo, stream);  // the stream keeps its first error
    const std::int32_t start = recovery->headerRebuilt ? 0 : table->storage->specificHeaderOffset;
    ErrorCode code = mthStaticIndexes_write(&table->staticIndexes, stream);
    if (code == NO_ERROR) {
        code = recoveryWrite_at(recovery->file, start, byteStream_buffer(stream) + start, end - start);
    }
    if (code != NO_ERROR) {
        return code;
    }
    code = tableFileTruncate(recovery->file, static_cast<std::int64_t>(table->dataInfo.dataEnd));
    if (code == NO_ERROR && recovery->writtenBeforeStart) {
        // Else what was cut could come back around what is written next, when the power is lost again. Without a loss
        // of power only torn frames are cut, and there may be much that the system has not written yet.
        tableFileCommit(recovery->file);
    }
    return code;
}

ErrorCode loadRecovered(Recovery* recovery) {
    KSVByteStream* stream = recovery->header.get();
    const auto length = static_cast<std::int32_t>(std::min<std::int64_t>(recovery->fileSize(), MAX_HEADER_SIZE));
    const ErrorCode code = byteStream_readFromFileAt(stream, recovery->file, 0, length);
    return code == NO_ERROR
               ? mtX_load(recovery->table, recovery->file, stream, recovery->table->storage->specificHeaderOffset)
               : code;
}

}  // namespace

ErrorCode mtX_recover(MessageTable* table, TableFile* file) noexcept {
    std::int64_t size = 0;
    ErrorCode code = tableFileRefreshSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    if (size - table->storage->specificHeaderOffset <= 0) {
        return FILE_SIZE_ERROR;
    }
    Recovery recovery;
    recovery.table = table;
    recovery.file = file;
    recovery.writtenBeforeStart = tableFileWrittenBeforeStart(file);
    recovery.header.reset(byteStream_create(MAX_HEADER_SIZE));
    recovery.frames.reset(mfr_create(table->storage.get(), &table->header.layout));
    if (recovery.header == nullptr || recovery.frames == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    mfr_resetAll(recovery.frames.get());
    code = loadHeader(&recovery);
    if (code != NO_ERROR) {
        return code;
    }
    mtX_resetState(table);
    recovery.position = recovery.headerEnd;
    code = walkBlocks(&recovery);
    if (code == NO_ERROR) {
        code = writeHeaderAndCut(&recovery);
    }
    return code == NO_ERROR ? loadRecovered(&recovery) : code;
}

}  // namespace tabulo::internal
