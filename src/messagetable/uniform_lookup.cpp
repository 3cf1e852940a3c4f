#include "messagetable/uniform_lookup.h"

#include "messagetable/block_reader.h"
#include "messagetable/message_lookup.h"
#include "messagetable/message_table.h"

namespace tabulo::internal {

namespace {

// The first message of a block with a uniform id at or above `id`: its file offset, and the number of messages before
// it. Without one, both are those of the block's end.
ErrorCode findInBlock(FrameCursor cursor, std::int32_t id, std::int64_t* offset, std::int32_t* index) {
    DecodedMessage message;
    const std::int32_t messagesPerBlock = cursor.mfr->layout.messagesPerBlock;
    for (*index = 0; *index < messagesPerBlock; ++*index) {
        *offset = cursor.position;
        const ErrorCode code = frameCursor_next(&cursor, &message);
        if (code == NO_DATA_ERROR) {
            return NO_ERROR;
        }
        if (code != NO_ERROR || message.metadata.uniformId >= id) {
            return code;
        }
    }
    *offset = cursor.position;
    return NO_ERROR;
}

ErrorCode findFromStart(MessageFrames* reader, TableFile* file, std::int32_t id, std::int64_t* offset,
                        std::int64_t* ordinal, std::int32_t* skip) {
    const std::int32_t messagesPerBlock = reader->layout.messagesPerBlock;
    std::int64_t blockStart = reader->storage->headerSize;
    *ordinal = 0;
    BlockView block;
    ErrorCode code = mfr_readBlockFooter(reader, file, blockStart, false, &block);
    while (code == NO_ERROR && reader->summary.maximum.uniformId < id) {
        *ordinal += messagesPerBlock;
        blockStart = blockView_next(block, reader);
        code = mfr_readBlockFooter(reader, file, blockStart, false, &block);
    }
    if (code != NO_ERROR && code != NO_DATA_ERROR) {
        return code;
    }
    std::int64_t end = blockView_framesEnd(block);
    if (!block.closed) {
        code = tableFileGetSize(file, &end);
        if (code != NO_ERROR) {
            return code;
        }
    }
    const std::int64_t framesStart = blockView_framesStart(block);
    std::int32_t index = 0;
    std::int64_t frame = framesStart;
    code = findInBlock(frameCursor_forward(reader, file, framesStart, end, SCAN_PIECE_SIZE), id, &frame, &index);
    if (code != NO_ERROR) {
        return code;
    }
    *ordinal += index;
    *offset = index == 0 ? blockStart : frame;
    if (index == 0) {
        *skip = BLOCK_LENGTH_SIZE;
    } else {
        *skip = index == messagesPerBlock ? reader->footerSize + BLOCK_LENGTH_SIZE : 0;
    }
    return NO_ERROR;
}

}  // namespace

ErrorCode mt_findUniformId(MessageTable* table, std::int32_t id, std::int64_t* offset, std::int64_t* ordinal,
                           std::int32_t* skip) noexcept {
    if (table == nullptr || offset == nullptr || ordinal == nullptr || skip == nullptr) {
        return NULL_POINTER_ERROR;
    }
    const ErrorCode code = mt_refresh(table);
    if (code != NO_ERROR) {
        return code;
    }
    const MessageFramesPtr reader(mfr_create(table->storage.get(), &table->header.layout));
    if (reader == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    mfr_resetAll(reader.get());
    return findFromStart(reader.get(), tableStorage_master(table->storage.get()), id, offset, ordinal, skip);
}

}  // namespace tabulo::internal
