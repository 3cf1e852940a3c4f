#include "messagetable/block_writer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/log.h"
#include "messagetable/frame.h"
#include "messagetable/table_header.h"
#include "storage/byte_stream_file.h"
#include "storage/replica_write.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t STREAM_BYTES_PER_FILTER = 1250;
constexpr std::int32_t STREAM_BYTES_BESIDE_FILTERS = 2048;

BlockWriterPtr create(TableStorage* storage, const MessageTableLayout* layout) {
    if (layout == nullptr || mtLayout_check(layout) != NO_ERROR) {
        return nullptr;
    }
    BlockWriterPtr writer(new (std::nothrow) BlockWriter);
    if (writer == nullptr) {
        return nullptr;
    }
    writer->storage = storage;
    writer->layout = *layout;
    writer->stream.reset(
        byteStream_create(layout->summarisedStringFieldCount * STREAM_BYTES_PER_FILTER + STREAM_BYTES_BESIDE_FILTERS));
    if (writer->stream == nullptr || blockSummary_init(&writer->summary, *layout) != NO_ERROR ||
        blockSummary_init(&writer->fallback, *layout) != NO_ERROR) {
        return nullptr;
    }
    if (storage != nullptr) {
        writer->footerSize = blockWriter_footerSize(storage, *layout);
        if (writer->footerSize == 0) {
            return nullptr;
        }
    }
    return writer;
}

// The assembled bytes, with the large frame that stands among them.
ErrorCode writeBytes(const BlockWriter& writer, TableFile* file) {
    if (writer.large.empty()) {
        return byteStream_writeToFile(writer.stream.get(), file);
    }
    const std::uint8_t* bytes = byteStream_buffer(writer.stream.get());
    const std::int32_t before = writer.bytesBeforeLarge;
    ErrorCode code = tableFileWrite(file, bytes, before);
    if (code == NO_ERROR) {
        code = tableFileWrite(file, writer.large.data(), static_cast<std::int64_t>(writer.large.size()));
    }
    if (code == NO_ERROR) {
        code = tableFileWrite(file, bytes + before, byteStream_writeMark(writer.stream.get()) - before);
    }
    return code;
}

// One file's share of an append: the assembled bytes, and for a closed block its length word.
ErrorCode appendToFile(const BlockWriter& writer, TableFile* file, std::uint64_t blockLength, std::int64_t* end) {
    ErrorCode code = tableFileSeekEnd(file, 0);
    if (code == NO_ERROR) {
        code = writeBytes(writer, file);
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

// Appends what the stream holds to every active file; *end becomes the offset behind the footer when a block is closed.
ErrorCode appendToFiles(BlockWriter* writer, std::uint64_t blockLength, std::int64_t* blockEnd) {
    return replicas_write(writer->storage, "mfr_writeMessage", ReplicaNumber::fileIndex, [&](TableFile* file) {
        const std::int64_t endBefore = tableFileCachedSize(file);
        std::int64_t end = 0;
        const ErrorCode written = appendToFile(*writer, file, blockLength, &end);
        if (written == NO_ERROR) {
            *blockEnd = end;
        } else {
            // The message is not acknowledged: leave no trace of it where that is still possible.
            (void)tableFileTruncate(file, endBefore);
        }
        return written;
    });
}

// Puts the footer of the block in the summary behind its frames, and its length behind that.
ErrorCode putFooter(BlockWriter* writer, std::uint64_t* blockLength) {
    *blockLength = blockSummary_closedLength(writer->summary, writer->footerSize);
    (void)blockSummary_writeFooter(&writer->summary, writer->layout,
                                   writer->stream.get());  // the stream keeps its error
    byteStream_put(writer->stream.get(), *blockLength);
    return byteStream_error(writer->stream.get());
}

// Puts frames into the stream and the summary until the block is full or the write is large enough.
ErrorCode putFrames(BlockWriter* writer, std::span<const std::uint8_t> frames, std::int32_t* count,
                    std::size_t* taken) {
    const MessageTableLayout& layout = writer->layout;
    while (*taken < frames.size() && writer->summary.messageCount < layout.messagesPerBlock) {
        const std::span<const std::uint8_t> rest = frames.subspan(*taken);
        DecodedMessage decoded;
        ErrorCode code = mfr_decodeFrame(rest.data(), static_cast<std::int64_t>(rest.size()), layout, &decoded);
        const bool isLarge = decoded.frameLength >= LARGE_FRAME;
        if (code == NO_ERROR && *count > 0 &&
            (isLarge || !writer->large.empty() ||
             byteStream_writeMark(writer->stream.get()) + std::int64_t{decoded.frameLength} > LARGEST_BATCH)) {
            return NO_ERROR;
        }
        if (code == NO_ERROR && isLarge) {
            writer->large = rest.first(static_cast<std::size_t>(decoded.frameLength));
            writer->bytesBeforeLarge = byteStream_writeMark(writer->stream.get());
        } else if (code == NO_ERROR) {
            // As it is given: what a reader takes for the same, a flag that is neither 0 nor 1, is evidence, too.
            byteStream_putBytes(writer->stream.get(), rest.data(), decoded.frameLength);
            code = byteStream_error(writer->stream.get());
        }
        if (code != NO_ERROR) {
            return code;
        }
        blockSummary_add(&writer->summary, layout, message_view(decoded, layout), decoded.frameLength);
        *count += 1;
        *taken += static_cast<std::size_t>(decoded.frameLength);
    }
    return NO_ERROR;
}

}  // namespace

BlockWriter* mfr_create(TableStorage* storage, const MessageTableLayout* layout) noexcept {
    log_debug("+ mfr_create", "storage=%p, config=%p.\n", static_cast<void*>(storage),
              static_cast<const void*>(layout));
    BlockWriter* writer = create(storage, layout).release();
    log_debug("- mfr_create", "self=%p, inited=%d.\n", static_cast<void*>(writer), writer != nullptr ? 1 : 0);
    return writer;
}

void mfr_destroy(BlockWriter* writer) noexcept {
    delete writer;
}

std::int32_t mfrX_footerSize(const MessageTableLayout* layout) noexcept {
    log_debug("+ mfrX_footerSize", "config=%p\n", static_cast<const void*>(layout));
    std::int32_t size = 0;
    const BlockWriterPtr writer(mfr_create(nullptr, layout));
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

std::int32_t blockWriter_footerSize(TableStorage* storage, const MessageTableLayout& layout) noexcept {
    if (storage->footerSize == 0) {
        storage->footerSize = mfrX_footerSize(&layout);
    }
    return storage->footerSize;
}

void mfr_reset(BlockWriter* writer, bool keepStaticIndexes) noexcept {
    blockSummary_reset(&writer->summary, keepStaticIndexes);
}

void mfr_resetAll(BlockWriter* writer) noexcept {
    mfr_reset(writer, false);
}

ErrorCode mfr_writeMessage(BlockWriter* writer, const MessageView& message, Appended* appended) noexcept {
    const MessageTableLayout& layout = writer->layout;
    KSVByteStream* stream = writer->stream.get();
    BlockSummary* summary = &writer->summary;
    *appended = {};
    byteStream_clear(stream);
    if (summary->messageCount == 0) {
        byteStream_put(stream, std::uint64_t{0});
    }
    const std::int32_t frameStart = byteStream_writeMark(stream);
    ErrorCode code = mfr_encodeMessage(message, stream);
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t frameLength = byteStream_writeMark(stream) - frameStart;
    std::uint64_t blockLength = 0;
    const bool closing = summary->messageCount + 1 >= layout.messagesPerBlock;
    if (closing) {
        blockSummary_copy(&writer->fallback, *summary);
        blockSummary_add(summary, layout, message, frameLength);
        code = putFooter(writer, &blockLength);
    }
    if (code == NO_ERROR) {
        code = appendToFiles(writer, blockLength, &appended->blockEnd);
    }
    if (code != NO_ERROR) {
        if (closing) {
            blockSummary_copy(summary, writer->fallback);
        }
        return code;
    }
    appended->bytes = byteStream_writeMark(stream);
    if (closing) {
        mfr_reset(writer, true);
    } else {
        blockSummary_add(summary, layout, message, frameLength);
    }
    return NO_ERROR;
}

ErrorCode blockWriter_writeFrames(BlockWriter* writer, std::span<const std::uint8_t> frames, std::int32_t* count,
                                  std::size_t* taken, Appended* appended) noexcept {
    *count = 0;
    *taken = 0;
    *appended = {};
    byteStream_clear(writer->stream.get());
    if (writer->summary.messageCount == 0) {
        byteStream_put(writer->stream.get(), std::uint64_t{0});
    }
    blockSummary_copy(&writer->fallback, writer->summary);
    ErrorCode code = putFrames(writer, frames, count, taken);
    std::uint64_t blockLength = 0;
    const bool closing = writer->summary.messageCount >= writer->layout.messagesPerBlock;
    if (code == NO_ERROR && closing) {
        code = putFooter(writer, &blockLength);
    }
    if (code == NO_ERROR) {
        code = appendToFiles(writer, blockLength, &appended->blockEnd);
    }
    const auto large = static_cast<std::int64_t>(writer->large.size());
    writer->large = {};
    if (code != NO_ERROR) {
        blockSummary_copy(&writer->summary, writer->fallback);
        *count = 0;
        *taken = 0;
        return code;
    }
    appended->bytes = byteStream_writeMark(writer->stream.get()) + large;
    if (closing) {
        mfr_reset(writer, true);
    }
    return NO_ERROR;
}

ErrorCode blockWriter_checkFrames(const MessageTableLayout& layout, std::span<const std::uint8_t> frames,
                                  std::size_t* offset) noexcept {
    *offset = 0;
    while (*offset < frames.size()) {
        const std::span<const std::uint8_t> rest = frames.subspan(*offset);
        DecodedMessage decoded;
        const ErrorCode code = mfr_decodeFrame(rest.data(), static_cast<std::int64_t>(rest.size()), layout, &decoded);
        if (code != NO_ERROR) {
            return code;
        }
        *offset += static_cast<std::size_t>(decoded.frameLength);
    }
    return NO_ERROR;
}

ErrorCode blockWriter_makeRoom(BlockWriter* writer, std::span<const std::uint8_t> frames) noexcept {
    std::int64_t largest = 0;
    std::int64_t bytes = 0;  // of one block's frames that go through the stream
    std::int32_t messages = writer->summary.messageCount;
    while (!frames.empty()) {
        std::uint32_t length = 0;
        std::memcpy(&length, frames.data(), sizeof(length));
        bytes += length >= static_cast<std::uint32_t>(LARGE_FRAME) ? 0 : std::int64_t{length};
        largest = std::max(largest, bytes);
        messages += 1;
        if (messages >= writer->layout.messagesPerBlock) {
            messages = 0;
            bytes = 0;
        }
        frames = frames.subspan(length);
    }
    const std::int64_t room = BLOCK_LENGTH_SIZE + std::min(largest, LARGEST_BATCH) + writer->footerSize;
    (void)byteStream_makeRoom(writer->stream.get(), static_cast<std::int32_t>(room));  // the stream keeps its error
    return byteStream_error(writer->stream.get());
}

}  // namespace tabulo::internal
