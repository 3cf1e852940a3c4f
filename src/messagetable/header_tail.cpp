#include "messagetable/header_tail.h"

#include <new>

#include "storage/byte_stream_file.h"
#include "storage/replica_write.h"

namespace tabulo::internal {

HeaderTailPtr headerTail_create(TableStorage* storage, std::int64_t offset, std::int32_t size) noexcept {
    HeaderTailPtr tail(new (std::nothrow) HeaderTail);
    if (tail == nullptr) {
        return nullptr;
    }
    tail->storage = storage;
    tail->offset = offset;
    tail->size = size;
    tail->stream.reset(byteStream_create(size));
    return tail->stream == nullptr ? nullptr : std::move(tail);
}

ErrorCode headerTail_fill(HeaderTail* tail, const BlockInfo& blockInfo, const DataInfo& dataInfo,
                          const mthStaticIndexes& indexes) noexcept {
    KSVByteStream* stream = tail->stream.get();
    byteStream_clear(stream);
    (void)blockInfo_write(&blockInfo, stream);  // the stream keeps its first error
    (void)dataInfo_write(&dataInfo, stream);  // the stream keeps its first error
    return mthStaticIndexes_write(&indexes, stream);
}

ErrorCode headerTail_parse(KSVByteStream* stream, BlockInfo* blockInfo, DataInfo* dataInfo,
                           mthStaticIndexes* indexes) noexcept {
    BlockInfo storedBlockInfo;
    DataInfo storedDataInfo;
    mthStaticIndexes storedIndexes;
    (void)blockInfo_read(&storedBlockInfo, stream);  // the stream keeps its first error
    (void)dataInfo_read(&storedDataInfo, stream);  // the stream keeps its first error
    const ErrorCode code = mthStaticIndexes_read(&storedIndexes, stream);
    if (code == NO_ERROR) {
        *blockInfo = storedBlockInfo;
        *dataInfo = storedDataInfo;
        *indexes = storedIndexes;
    }
    return code;
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
