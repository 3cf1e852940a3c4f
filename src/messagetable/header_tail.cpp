#include "messagetable/header_tail.h"

#include <algorithm>
#include <array>
#include <new>

#include "storage/byte_stream_file.h"
#include "storage/replica_write.h"

namespace tabulo::internal {

ErrorCode headerTail_write(const TailRecords& records, KSVByteStream* stream) noexcept {
    (void)blockInfo_write(&records.blockInfo, stream);  // the stream keeps its first error
    (void)dataInfo_write(&records.dataInfo, stream);
    return mthStaticIndexes_write(&records.staticIndexes, stream);
}

ErrorCode headerTail_parse(KSVByteStream* stream, TailRecords* records) noexcept {
    TailRecords stored;
    (void)blockInfo_read(&stored.blockInfo, stream);  // the stream keeps its first error
    (void)dataInfo_read(&stored.dataInfo, stream);
    const ErrorCode code = mthStaticIndexes_read(&stored.staticIndexes, stream);
    if (code == NO_ERROR) {
        *records = stored;
    }
    return code;
}

ErrorCode headerTail_read(TableFile* file, std::int64_t headerEnd, TailRecords* records) noexcept {
    std::array<std::uint8_t, HEADER_TAIL_SIZE> bytes{};
    std::int64_t count = 0;
    const ErrorCode code = tableFileReadAt(file, headerEnd - HEADER_TAIL_SIZE, bytes.data(), HEADER_TAIL_SIZE, &count);
    if (code != NO_ERROR || count < HEADER_TAIL_SIZE) {
        return code != NO_ERROR ? code : NO_DATA_ERROR;
    }
    KSVByteStream stream;
    byteStream_init(&stream, bytes.data(), HEADER_TAIL_SIZE);
    byteStream_resetWrite(&stream, HEADER_TAIL_SIZE);
    return headerTail_parse(&stream, records);
}

std::uint64_t headerTail_openBlock(const TailRecords& records, std::int64_t headerEnd) noexcept {
    return std::max(records.blockInfo.lastBlockEnd, static_cast<std::uint64_t>(headerEnd));
}

HeaderTailPtr headerTail_create(TableStorage* storage, std::int64_t offset) noexcept {
    HeaderTailPtr tail(new (std::nothrow) HeaderTail);
    if (tail == nullptr) {
        return nullptr;
    }
    tail->storage = storage;
    tail->offset = offset;
    tail->stream.reset(byteStream_create(HEADER_TAIL_SIZE));
    return tail->stream == nullptr ? nullptr : std::move(tail);
}

ErrorCode headerTail_fill(HeaderTail* tail, const TailRecords& records) noexcept {
    byteStream_clear(tail->stream.get());
    return headerTail_write(records, tail->stream.get());
}

ErrorCode tv_saveData(HeaderTail* tail) noexcept {
    return replicas_write(tail->storage, "tv_saveData", ReplicaNumber::fileIndex, [tail](TableFile* file) {
        ErrorCode code = tableFileSeekSet(file, tail->offset);
        if (code == NO_ERROR) {
            code = byteStream_writeToFile(tail->stream.get(), file);
        }
        return code == NO_ERROR ? tableFileFlush(file) : code;
    });
}

}  // namespace tabulo::internal
