#include "watcher/table_reader.h"

#include <limits>
#include <new>

#include "index/uniform_lookup.h"

namespace tabulo::internal {

namespace {

void emptyBuffer(TableReader* reader) {
    reader->readPointer = 0;
    reader->pending = 0;
    reader->decoded = false;
    reader->grew = false;
}

void restart(TableReader* reader) {
    emptyBuffer(reader);
    reader->fileOffset = mt_storage(reader->table)->headerSize;
    reader->ordinal = 0;
    reader->skip = BLOCK_LENGTH_SIZE;
}

ErrorCode growBuffer(TableReader* reader) {
    const std::size_t capacity = reader->buffer.size();
    if (capacity > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) / 2) {
        return OUT_OF_MEMORY_ERROR;
    }
    try {
        reader->buffer.resize(2 * capacity);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    return NO_ERROR;
}

// Reads the unconsumed bytes again, from their place in the file, and what follows them. NO_DATA_ERROR when no byte is
// there.
ErrorCode refill(TableReader* reader) {
    TableFile* file = tableStorage_master(mt_storage(reader->table));
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    // A damaged length must not make the buffer larger than the file: it grows only while bytes keep coming.
    if (reader->grew && reader->pending > static_cast<std::int32_t>(reader->buffer.size() / 2)) {
        const ErrorCode grown = growBuffer(reader);
        if (grown != NO_ERROR) {
            return grown;
        }
    }
    const std::int32_t before = reader->pending;
    reader->fileOffset -= before;
    reader->readPointer = 0;
    reader->pending = 0;
    std::int64_t count = 0;
    ErrorCode code = tableFileReadOnceAt(file, reader->fileOffset, reader->buffer.data(),
                                         static_cast<std::int64_t>(reader->buffer.size()), &count);
    if (code != NO_ERROR) {
        return code;
    }
    reader->pending = static_cast<std::int32_t>(count);
    reader->fileOffset += count;
    reader->grew = reader->pending > before;
    if (count > 0) {
        return NO_ERROR;
    }
    std::int64_t size = 0;
    code = tableFileGetSize(file, &size);
    if (code == NO_ERROR && size < reader->fileOffset) {
        restart(reader);
    }
    return code == NO_ERROR ? NO_DATA_ERROR : code;
}

// Decodes the next message from the buffer. NO_DATA_ERROR when it is not complete there.
ErrorCode parse(TableReader* reader) {
    if (reader->pending <= reader->skip) {
        return NO_DATA_ERROR;
    }
    const std::int32_t length = reader->pending - reader->skip;
    KSVByteStream stream;
    byteStream_init(&stream, reader->buffer.data() + reader->readPointer + reader->skip, length);
    byteStream_resetWrite(&stream, length);
    const ErrorCode code = mfr_decodeMessage(mt_layout(reader->table), &stream, &reader->message);
    reader->decoded = code == NO_ERROR;
    return code;
}

}  // namespace

ErrorCode tableReader_init(TableReader* reader, MessageTable* table, std::int32_t index) noexcept {
    reader->table = table;
    reader->index = index;
    try {
        reader->buffer.resize(TABLE_READER_BUFFER);
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
    return NO_ERROR;
}

ErrorCode tableReader_position(TableReader* reader, std::int32_t uniformId) noexcept {
    emptyBuffer(reader);
    UniformPlace place;
    const ErrorCode code = mt_findUniformId(reader->table, uniformId, &place);
    if (code == NO_ERROR) {
        reader->fileOffset = place.offset;
        reader->ordinal = place.ordinal;
        reader->skip = place.skip;
    }
    return code;
}

ErrorCode tableReader_peek(TableReader* reader) noexcept {
    if (reader->decoded) {
        return NO_ERROR;
    }
    ErrorCode code = parse(reader);
    while (code == NO_DATA_ERROR) {
        code = refill(reader);
        if (code != NO_ERROR) {
            return code;
        }
        // Parsed again also when no more bytes came: a recovery may have put a shorter frame in a half one's place.
        code = parse(reader);
        if (!reader->grew) {
            return code;
        }
    }
    return code;
}

void tableReader_consume(TableReader* reader) noexcept {
    const std::int32_t consumed = reader->skip + reader->message.frameLength;
    reader->readPointer += consumed;
    reader->pending -= consumed;
    reader->decoded = false;
    reader->ordinal += 1;
    const bool blockFull = reader->ordinal % mt_layout(reader->table).messagesPerBlock == 0;
    reader->skip = blockFull ? mt_storage(reader->table)->footerSize + BLOCK_LENGTH_SIZE : 0;
}

}  // namespace tabulo::internal
