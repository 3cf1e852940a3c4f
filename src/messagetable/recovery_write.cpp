#include "messagetable/recovery_write.h"

#include <cinttypes>
#include <cstring>
#include <string>

#include "core/log.h"
#include "messagetable/block_reader.h"
#include "messagetable/torn_tail.h"
#include "storage/byte_stream_file.h"
#include "storage/salvage.h"

namespace tabulo::internal {

ErrorCode recoveryWrite_save(TableFile* file, std::int64_t offset, std::int64_t length) noexcept {
    std::string savedPath;
    const ErrorCode code = salvage_save(file, offset, length, &savedPath);
    if (code == NO_ERROR) {
        log_warning("mtX_recover", "%" PRId64 " bytes at offset %" PRId64 " of %s are damaged; they were saved to %s\n",
                    length, offset, file->path.c_str(), savedPath.c_str());
    }
    return code;
}

ErrorCode recoveryWrite_saveOverwritten(TableFile* file, std::int64_t offset, const std::uint8_t* bytes,
                                        std::int64_t length) noexcept {
    const ByteStreamPtr present(byteStream_create(0));
    if (present == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    ErrorCode code = byteStream_readFromFileAt(present.get(), file, offset, static_cast<std::int32_t>(length));
    if (code != NO_ERROR) {
        return code;
    }
    const std::int32_t there = byteStream_unread(present.get());
    if (std::memcmp(byteStream_buffer(present.get()), bytes, static_cast<std::size_t>(there)) == 0) {
        return NO_ERROR;
    }
    bool empty = false;
    code = tornTail_isEmpty(file, offset, offset + there, &empty);
    return code == NO_ERROR && !empty ? recoveryWrite_save(file, offset, there) : code;
}

ErrorCode recoveryWrite_at(TableFile* file, std::int64_t offset, const void* bytes, std::int64_t length) noexcept {
    ErrorCode code = tableFileSeekSet(file, offset);
    if (code == NO_ERROR) {
        code = tableFileWrite(file, bytes, length);
    }
    return code == NO_ERROR ? tableFileFlush(file) : code;
}

ErrorCode recoveryWrite_lengthWord(TableFile* file, std::int64_t block, std::uint64_t length) noexcept {
    std::uint64_t present = 0;
    std::int64_t count = 0;
    ErrorCode code = tableFileReadAt(file, block, &present, BLOCK_LENGTH_SIZE, &count);
    if (code == NO_ERROR && present != 0 && present != length && !lengthWord_isTorn(block, present, length)) {
        code = recoveryWrite_save(file, block, count);
    }
    return code == NO_ERROR ? recoveryWrite_at(file, block, &length, BLOCK_LENGTH_SIZE) : code;
}

}  // namespace tabulo::internal
