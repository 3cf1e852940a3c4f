#include "messagetable/message_frames.h"

#include <new>

#include "core/log.h"
#include "messagetable/table_header.h"
#include "storage/byte_stream_file.h"
#include "storage/replica_write.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t STREAM_BYTES_PER_FILTER = 1250;
constexpr std::int32_t STREAM_BYTES_BESIDE_FILTERS = 2048;

MessageFramesPtr create(TableStorage* storage, const MessageTableLayout* layout) {
    if (layout == nullptr || mtLayout_check(layout) != NO_ERROR) {
        return nullptr;
    }
    MessageFramesPtr mfr(new (std::nothrow) MessageFrames);
    if (mfr == nullptr) {
        return nullptr;
    }
    mfr->storage = storage;
    mfr->layout = *layout;
    mfr->stream.reset(
        byteStream_create(layout->summarisedStringFieldCount * STREAM_BYTES_PER_FILTER + STREAM_BYTES_BESIDE_FILTERS));
    if (mfr->stream == nullptr || blockSummary_init(&mfr->summary, *layout) != NO_ERROR ||
        blockSummary_init(&mfr->fallback, *layout) != NO_ERROR) {
        return nullptr;
    }
    if (storage != nullptr) {
        if (storage->footerSize == 0) {
            storage->footerSize = mfrX_footerSize(layout);
        }
        mfr->footerSize = storage->footerSize;
        if (mfr->footerSize == 0) {
            return nullptr;
        }
    }
    return mfr;
}

// One file's share of an append: the assembled bytes, and for a closed block its length word.
ErrorCode appendToFile(KSVByteStream* stream, TableFile* file, std::uint64_t blockLength, std::int64_t* end) {
    ErrorCode code = tableFileSeekEnd(file, 0);
    if (code == NO_ERROR) {
        code = byteStream_writeToFile(stream, file);
    }
    if (code == NO_ERROR) {
        code = tableFileFlush(file);
    }
    if (code != NO_ERROR || blockLength == 0) {
        return code;
    }
    code = tableFileTell(file, end);
    if (code == NO_ERROR) {
        code = tableFileSeekCur(file, -static_cast<std::int64_t>(blockLength));
    }
    if (code == NO_ERROR) {
        code = tableFileWrite(file, &blockLength, BLOCK_LENGTH_SIZE);
    }
    return code == NO_ERROR ? tableFileFlush(file) : code;
}

}  // namespace

MessageFrames* mfr_create(TableStorage* storage, const MessageTableLayout* layout) noexcept {
    log_debug("+ mfr_create", "storage=%p, config=%p.\n", static_cast<void*>(storage),
              static_cast<const void*>(layout));
    MessageFrames* mfr = create(storage, layout).release();
    log_debug("- mfr_create", "self=%p, inited=%d.\n", static_cast<void*>(mfr), mfr != nullptr ? 1 : 0);
    return mfr;
}

void mfr_destroy(MessageFrames* mfr) noexcept {
    delete mfr;
}

std::int32_t mfrX_footerSize(const MessageTableLayout* layout) noexcept {
    log_debug("+ mfrX_footerSize", "config=%p\n", static_cast<const void*>(layout));
    std::int32_t size = 0;
    const MessageFramesPtr writer(mfr_create(nullptr, layout));
    if (writer != nullptr) {
        mfr_resetAll(writer.get());
        const ByteStreamPtr scratch(byteStream_create(byteStream_capacity(writer->stream.get())));
        if (scratch != nullptr && blockSummary_writeFooter(&writer->summary, *layout, scratch.get()) == NO_ERROR) {
            size = byteStream_writeMark(scratch.get()) + BLOCK_LENGTH_SIZE;
        }
    }
    log_debug("- mfrX_footerSize", "size = %d\n", size);
    return size;
}

void mfr_reset(MessageFrames* mfr, bool keepStaticIndexes) noexcept {
    blockSummary_reset(&mfr->summary, keepStaticIndexes);
}

void mfr_resetAll(MessageFrames* mfr) noexcept {
    mfr_reset(mfr, false);
}

std::uint64_t mfr_closedBlockLength(const MessageFrames* mfr) noexcept {
    return BLOCK_LENGTH_SIZE + mfr->summary.frameBytes + static_cast<std::uint64_t>(mfr->footerSize);
}

ErrorCode mfr_writeMessage(MessageFrames* mfr, const MessageMetadata* metadata, const StringField* stringFields,
                           const NumericValue* numericFields, std::int64_t* blockEnd,
                           std::int64_t* bytesWritten) noexcept {
    const MessageTableLayout& layout = mfr->layout;
    KSVByteStream* stream = mfr->stream.get();
    *blockEnd = 0;
    *bytesWritten = 0;
    byteStream_clear(stream);
    if (mfr->summary.messageCount == 0) {
        byteStream_put(stream, std::uint64_t{0});
    }
    const std::int32_t frameStart = byteStream_writeMark(stream);
    ErrorCode code = mfr_encodeMessage(metadata, stringFields, layout.stringFieldCount, numericFields,
                                       layout.numericFieldCount, stream);
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t frameLength = byteStream_writeMark(stream) - frameStart;
    std::uint64_t blockLength = 0;
    const bool closing = mfr->summary.messageCount + 1 >= layout.messagesPerBlock;
    if (closing) {
        blockSummary_copy(&mfr->fallback, mfr->summary);
        blockSummary_add(&mfr->summary, layout, *metadata, stringFields, numericFields, frameLength);
        blockLength = mfr_closedBlockLength(mfr);
        (void)blockSummary_writeFooter(&mfr->summary, layout, stream);  // the stream keeps its first error
        byteStream_put(stream, blockLength);
        code = byteStream_error(stream);
    }
    if (code == NO_ERROR) {
        code = replicas_write(mfr->storage, "mfr_writeMessage", ReplicaNumber::fileIndex, [&](TableFile* file) {
            const std::int64_t endBefore = tableFileCachedSize(file);
            std::int64_t end = 0;
            const ErrorCode written = appendToFile(stream, file, blockLength, &end);
            if (written == NO_ERROR) {
                *blockEnd = end;
            } else {
                // The message is not acknowledged: leave no trace of it where that is still possible.
                (void)tableFileTruncate(file, endBefore);
            }
            return written;
        });
    }
    if (code != NO_ERROR) {
        if (closing) {
            blockSummary_copy(&mfr->summary, mfr->fallback);
        }
        return code;
    }
    *bytesWritten = byteStream_writeMark(stream);
    if (closing) {
        mfr_reset(mfr, true);
    } else {
        blockSummary_add(&mfr->summary, layout, *metadata, stringFields, numericFields, frameLength);
    }
    return NO_ERROR;
}

}  // namespace tabulo::internal
