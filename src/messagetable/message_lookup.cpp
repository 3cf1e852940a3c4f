#include "messagetable/message_lookup.h"

#include <utility>

#include "core/log.h"
#include "messagetable/block_reader.h"
#include "messagetable/message_table.h"
#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

struct StoredTail {
    BlockInfo blockInfo;
    DataInfo dataInfo;
    bool plausible = false;
};

bool isDamage(ErrorCode code) {
    return code == HEADER_CORRUPTED_ERROR || code == CONSISTENCY_ERROR || code == NO_DATA_ERROR;
}

ErrorCode readTail(MessageTable* table, TableFile* file, std::int64_t* size, StoredTail* stored) {
    KSVByteStream* stream = table->tail->stream.get();
    ErrorCode code = byteStream_readFromFileAt(stream, file, table->tail->offset, table->tail->size);
    if (code == NO_ERROR) {
        code = tableFileGetSize(file, size);
    }
    if (code != NO_ERROR) {
        return code;
    }
    mthStaticIndexes indexes;
    stored->plausible = headerTail_parse(stream, &stored->blockInfo, &stored->dataInfo, &indexes) == NO_ERROR;
    byteStream_clearError(stream);
    stored->blockInfo.lastBlockEnd = mt_effectiveBlockEnd(table, stored->blockInfo.lastBlockEnd);
    const auto end = static_cast<std::uint64_t>(*size);
    stored->plausible = stored->plausible && stored->blockInfo.lastBlockEnd <= end && stored->dataInfo.dataEnd <= end &&
                        stored->dataInfo.messageCount >= 0;
    return NO_ERROR;
}

// From the block at *blockEnd on: steps over full blocks, then scans the open one into the view.
ErrorCode loadView(MessageTable* table, TableFile* file, std::int64_t* blockEnd, ErrorCode* scanEnd) {
    MessageFrames* frames = table->frames.get();
    for (;;) {
        BlockView block;
        const ErrorCode code = mfr_loadOpenBlock(frames, file, *blockEnd, &block);
        *scanEnd = block.scanEnd;
        const std::int64_t next = blockView_next(block, frames);
        // A full block whose length word is not written yet is stepped over too, once its footer is there.
        const bool full = block.closed || block.messageCount == frames->layout.messagesPerBlock;
        if (code != NO_ERROR || !full || next > tableFileCachedSize(file)) {
            return code;
        }
        *blockEnd = next;
    }
}

ErrorCode readView(MessageTable* table, TableFile* file, const StoredTail& stored, std::int64_t* blockEnd,
                   ErrorCode* scanEnd) {
    ErrorCode code = HEADER_CORRUPTED_ERROR;
    if (stored.plausible) {
        *blockEnd = static_cast<std::int64_t>(stored.blockInfo.lastBlockEnd);
        code = mfr_loadPreviousFooter(table->frames.get(), file, *blockEnd);
    }
    if (isDamage(code)) {
        // The tail does not fit the file: find the open block by the length words.
        *blockEnd = table->storage->headerSize;
        mfr_resetAll(table->frames.get());
        code = NO_ERROR;
    }
    return code == NO_ERROR ? loadView(table, file, blockEnd, scanEnd) : code;
}

// The end of what the view knows. Not the file's: a torn frame behind it may be cut and a message of its size written.
std::int64_t viewEnd(const MessageTable* table) {
    const BlockSummary& summary = table->frames->summary;
    const std::int64_t start = mt_openBlockStart(table);
    return summary.messageCount == 0 ? start
                                     : start + BLOCK_LENGTH_SIZE + static_cast<std::int64_t>(summary.frameBytes);
}

// Adds to the view what has been appended behind it. *grown is false when the view cannot be gone on with.
ErrorCode growView(MessageTable* table, TableFile* file, const StoredTail& stored, std::int64_t* blockEnd,
                   ErrorCode* scanEnd, bool* grown) {
    MessageFrames* frames = table->frames.get();
    const std::int32_t seen = frames->summary.messageCount;
    const std::int64_t size = tableFileCachedSize(file);
    *grown = false;
    const bool shrunk = size < table->viewSize || stored.dataInfo.dataEnd < table->dataInfo.dataEnd ||
                        stored.dataInfo.messageCount < table->dataInfo.messageCount;
    if (!stored.plausible || shrunk || seen == 0 || seen >= frames->layout.messagesPerBlock) {
        return NO_ERROR;
    }
    BlockView block;
    block.start = mt_openBlockStart(table);
    ErrorCode code = mfr_continueScan(frames, file, blockView_framesStart(block), size, scanEnd, grown);
    block.frameBytes = static_cast<std::int64_t>(frames->summary.frameBytes);
    *blockEnd = block.start;
    const std::int64_t next = blockView_next(block, frames);
    if (code == NO_ERROR && *grown && frames->summary.messageCount == frames->layout.messagesPerBlock && next <= size) {
        *blockEnd = next;
        code = loadView(table, file, blockEnd, scanEnd);
    }
    *grown = *grown && static_cast<std::uint64_t>(*blockEnd) >= stored.blockInfo.lastBlockEnd;
    return code;
}

ErrorCode lookup(MessageTable* table, const void* result) {
    return result == nullptr ? NULL_POINTER_ERROR : mt_refresh(table);
}

SeqNumIndex indexSince(const MessageTable* table, SeqNumKind kind, std::int64_t sinceTimestamp) {
    const SeqNumIndex& index = table->staticIndexes.seqNums[static_cast<std::size_t>(kind)];
    return index.timestamp >= sinceTimestamp ? index : SeqNumIndex{};
}

}  // namespace

ErrorCode mt_refresh(MessageTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    TableFile* file = tableStorage_master(table->storage.get());
    if (file == nullptr || table->tail == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    if (table->storage->mode != OpenMode::read) {
        return NO_ERROR;
    }
    std::int64_t size = 0;
    StoredTail stored;
    ErrorCode code = readTail(table, file, &size, &stored);
    if (code == NO_ERROR && !stored.plausible) {
        code = readTail(table, file, &size, &stored);  // the writer may have been at it
    }
    if (code != NO_ERROR) {
        return code;
    }
    const std::uint64_t storedEnd = stored.blockInfo.lastBlockEnd;
    if (table->viewLoaded && table->viewSize == size && table->viewLastBlockEnd == storedEnd) {
        return NO_ERROR;
    }
    std::int64_t blockEnd = 0;
    ErrorCode scanEnd = NO_ERROR;
    bool grown = false;
    if (std::exchange(table->viewLoaded, false)) {
        code = growView(table, file, stored, &blockEnd, &scanEnd, &grown);
    }
    if (code == NO_ERROR && !grown) {
        code = readView(table, file, stored, &blockEnd, &scanEnd);
    }
    if (code != NO_ERROR) {
        return code;
    }
    if (stored.plausible) {
        table->blockInfo.reserved = stored.blockInfo.reserved;
        table->dataInfo = stored.dataInfo;
    }
    table->blockInfo.lastBlockEnd = static_cast<std::uint64_t>(blockEnd);
    table->staticIndexes = table->frames->summary.staticIndexes;
    if (scanEnd == CONSISTENCY_ERROR) {
        return CONSISTENCY_ERROR;
    }
    table->viewSize = viewEnd(table);
    table->viewLastBlockEnd = storedEnd;
    table->viewLoaded = true;
    return NO_ERROR;
}

ErrorCode mt_getLastMessageId(MessageTable* table, std::int32_t classBaseId, std::int32_t* id) noexcept {
    const ErrorCode code = lookup(table, id);
    if (code != NO_ERROR) {
        return code;
    }
    const MessageClass messageClass = classifyConnMsgId(classBaseId);
    if (messageClass == NO_MESSAGE_CLASS) {
        log_warning("mt_getLastMessageId", "Connection message id offset (%d) out of bounds\n", classBaseId);
        return INDEX_OUT_OF_BOUNDS_ERROR;
    }
    const std::int32_t highest = table->staticIndexes.connMsgIds[static_cast<std::size_t>(messageClass)];
    *id = highest < 0 ? classBaseId : highest;
    return NO_ERROR;
}

ErrorCode mt_getLastGoodMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum,
                                  std::int64_t* timestamp) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code != NO_ERROR) {
        return code;
    }
    const SeqNumIndex found = indexSince(table, LAST_GOOD, sinceTimestamp);
    *seqNum = found.seqNum;
    if (timestamp != nullptr) {
        *timestamp = found.timestamp;
    }
    return NO_ERROR;
}

ErrorCode mt_getFirstPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code == NO_ERROR) {
        // The arithmetic wraps: a stored number of -2^31 is the caller's own.
        const auto found = static_cast<std::uint32_t>(indexSince(table, FIRST_PEND, sinceTimestamp).seqNum);
        *seqNum = static_cast<std::int32_t>(found - 1);
    }
    return code;
}

ErrorCode mt_getLastPendingMsgSeqNum(MessageTable* table, std::int64_t sinceTimestamp, std::int32_t* seqNum) noexcept {
    const ErrorCode code = lookup(table, seqNum);
    if (code == NO_ERROR) {
        *seqNum = indexSince(table, LAST_PEND, sinceTimestamp).seqNum;
    }
    return code;
}

ErrorCode mt_getLastUniformMessageId(MessageTable* table, std::int32_t* uniformId) noexcept {
    const ErrorCode code = lookup(table, uniformId);
    if (code == NO_ERROR) {
        *uniformId = table->staticIndexes.lastUniform;
    }
    return code;
}

}  // namespace tabulo::internal
