#include "sessioninfo/session_info_file.h"

#include <algorithm>

#include "core/log.h"
#include "sessioninfo/type_record.h"
#include "storage/byte_stream_file.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t VALUE_SIZE = 8;
static_assert(sizeof(std::int64_t) == VALUE_SIZE);

SessionInfoTable* tableOf(void* owner) {
    return static_cast<SessionInfoTable*>(owner);
}

std::int32_t valueAreaSize(const SessionInfoTable* table) {
    return table->fieldCount * VALUE_SIZE;
}

ErrorCode readRecordAt(KSVByteStream* stream, std::int32_t offset, SessionInfoTags* stored) {
    if (byteStream_resetRead(stream, BYTE_STREAM_FORWARD, offset).failed()) {
        return byteStream_error(stream);
    }
    const ErrorCode code = siX_readTypeRecord(stored, stream);
    if (code != NO_ERROR) {
        return code;
    }
    return byteStream_readMark(stream) == tsgh_storedHeaderSize(stream) ? NO_ERROR : HEADER_CORRUPTED_ERROR;
}

void adopt(SessionInfoTable* table, const SessionInfoTags& tags) {
    table->fieldCount = tags.count;
    table->tags = tags.tags;
}

// The value area's bytes as they are at this moment.
ErrorCode readValueArea(const SessionInfoTable* table, TableFile* file, KSVByteStream* stream) {
    ErrorCode code = tableFileFollowEnd(file);
    if (code == NO_ERROR) {
        code = tableFileSeekSet(file, table->storage->headerSize);
    }
    return code == NO_ERROR ? byteStream_readFromFile(stream, file, valueAreaSize(table)) : code;
}

}  // namespace

const TableStorageOps sessionInfoOps{
    [](void* owner, KSVByteStream* stream) { return siX_writeConfig(tableOf(owner), stream); },
    [](void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
        return siX_verify(tableOf(owner), file, stream, offset);
    },
    [](void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
        return siX_load(tableOf(owner), file, stream, offset);
    },
    [](void* owner, TableFile* file) { return siX_recover(tableOf(owner), file); },
    [](void* owner, TableFile*, std::int64_t, std::int32_t, std::int32_t) { return siX_noop(tableOf(owner)); },
};

void siX_useConfiguredTags(SessionInfoTable* table) noexcept {
    adopt(table, *tableConfig_getSessionInfoTags(table->storage->config));
}

ErrorCode siX_writeConfig(SessionInfoTable* table, KSVByteStream* stream) noexcept {
    if (table->fieldCount < 1) {
        return WRONG_PARAMETER_ERROR;  // such a file would never open again
    }
    return siX_writeTypeRecord(table->fieldCount, table->tags.data(), stream);
}

ErrorCode siX_verify(SessionInfoTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept {
    SessionInfoTags stored;
    ErrorCode code = readRecordAt(stream, offset, &stored);
    if (code != NO_ERROR) {
        return code;
    }
    const SessionInfoTags& configured = *tableConfig_getSessionInfoTags(table->storage->config);
    const auto storedEnd = stored.tags.begin() + stored.count;
    for (std::int32_t i = 0; i < configured.count; ++i) {
        const std::int32_t tag = configured.tags[static_cast<std::size_t>(i)];
        if (std::find(stored.tags.begin(), storedEnd, tag) == storedEnd) {
            log_warning("siX_verify", "Field with tag %d is missing in session info table\n", tag);
            return CONFIG_MISMATCH_ERROR;
        }
    }
    adopt(table, stored);
    std::int64_t size = 0;
    code = tableFileGetSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    return size == table->storage->headerSize + valueAreaSize(table) ? NO_ERROR : FILE_SIZE_ERROR;
}

ErrorCode siX_load(SessionInfoTable* table, TableFile* file, KSVByteStream* stream, std::int32_t offset) noexcept {
    std::int64_t size = 0;
    ErrorCode code = tableFileGetSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    if (size - offset <= 0) {
        return FILE_SIZE_ERROR;
    }
    SessionInfoTags stored;
    code = readRecordAt(stream, offset, &stored);
    return code == NO_ERROR ? siX_loadValues(table, file) : code;
}

ErrorCode siX_loadValues(SessionInfoTable* table, TableFile* file) noexcept {
    std::int64_t size = 0;
    ErrorCode code = tableFileGetSize(file, &size);
    if (code != NO_ERROR) {
        return code;
    }
    const ByteStreamPtr stream(byteStream_create(valueAreaSize(table)));
    if (stream == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    code = readValueArea(table, file, stream.get());
    if (code != NO_ERROR) {
        const ErrorCode sized = tableFileGetSize(file, &size);
        if (sized == NO_ERROR && size == table->storage->headerSize) {
            return NO_ERROR;
        }
        if (tableFileGetMode(file) == OpenMode::read) {
            code = readValueArea(table, file, stream.get());
        }
    }
    if (code != NO_ERROR) {
        return code;
    }
    auto loaded = table->values;
    for (std::int32_t i = 0; i < table->fieldCount; ++i) {
        byteStream_get(stream.get(), &loaded[static_cast<std::size_t>(i)]);
    }
    code = byteStream_error(stream.get());
    if (code == NO_ERROR) {
        table->values = loaded;
    }
    return code;
}

ErrorCode siX_serialise(const SessionInfoTable* table, KSVByteStream* stream) noexcept {
    for (std::int32_t i = 0; i < table->fieldCount; ++i) {
        byteStream_put(stream, table->values[static_cast<std::size_t>(i)]);
    }
    return byteStream_error(stream);
}

ErrorCode siX_writeValues(SessionInfoTable* table, TableFile* file, KSVByteStream* stream) noexcept {
    ErrorCode code = tableFileSeekSet(file, table->storage->headerSize);
    if (code == NO_ERROR) {
        code = byteStream_writeToFile(stream, file);
    }
    return code == NO_ERROR ? tableFileFlush(file) : code;
}

ErrorCode siX_recover(SessionInfoTable* table, TableFile* file) noexcept {
    const ByteStreamPtr stream(byteStream_create(MAX_HEADER_SIZE));
    if (stream == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    // A damaged header size must not lead the values over the tags.
    ErrorCode code = byteStream_readFromFileAt(stream.get(), file, 0, MAX_HEADER_SIZE);
    SessionInfoTags stored;
    if (code == NO_ERROR) {
        code = readRecordAt(stream.get(), table->storage->specificHeaderOffset, &stored);
    }
    if (code == NO_ERROR) {
        adopt(table, stored);
        code = tableFileSeekSet(file, table->storage->headerSize);
    }
    std::array<std::int64_t, MAX_SESSION_INFO_TAGS> present{};
    std::int64_t bytesRead = 0;
    if (code == NO_ERROR) {
        code = tableFileRead(file, present.data(), valueAreaSize(table), &bytesRead);
    }
    if (code != NO_ERROR) {
        return code;
    }
    table->values.fill(0);
    std::copy_n(present.begin(), bytesRead / VALUE_SIZE, table->values.begin());
    byteStream_reset(stream.get(), BYTE_STREAM_FORWARD);
    code = siX_serialise(table, stream.get());
    if (code == NO_ERROR) {
        code = siX_writeValues(table, file, stream.get());
    }
    return code == NO_ERROR ? tableFileTruncate(file, table->storage->headerSize + valueAreaSize(table)) : code;
}

ErrorCode siX_noop(SessionInfoTable*) noexcept {
    return NO_ERROR;
}

}  // namespace tabulo::internal
