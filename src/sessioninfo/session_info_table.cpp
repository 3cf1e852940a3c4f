#include "sessioninfo/session_info_table.h"

#include <algorithm>
#include <new>
#include <vector>

#include "sessioninfo/session_info_file.h"
#include "storage/replica_write.h"

namespace tabulo::internal {

namespace {

constexpr std::int32_t VALUES_STREAM_SIZE = 1024;

// The slot of a tag, or -1.
std::int32_t slotOf(const SessionInfoTable* table, std::int32_t tag) {
    const auto end = table->tags.begin() + table->fieldCount;
    const auto found = std::find(table->tags.begin(), end, tag);
    return found == end ? -1 : static_cast<std::int32_t>(found - table->tags.begin());
}

ErrorCode checkArguments(const SessionInfoTable* table, std::int32_t count, const void* tags, const void* values) {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (count < 0) {
        return WRONG_PARAMETER_ERROR;
    }
    return count > 0 && (tags == nullptr || values == nullptr) ? NULL_POINTER_ERROR : NO_ERROR;
}

// All or nothing: one unknown tag leaves every value as it was.
ErrorCode setValues(SessionInfoTable* table, std::int32_t count, const std::int32_t* tags, const std::int64_t* values) {
    auto changed = table->values;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t slot = slotOf(table, tags[i]);
        if (slot < 0) {
            return WRONG_PARAMETER_ERROR;
        }
        changed[static_cast<std::size_t>(slot)] = values[i];
    }
    table->values = changed;
    return NO_ERROR;
}

// Makes a table that was opened for reading a writer.
ErrorCode ensureWritable(SessionInfoTable* table) {
    const ErrorCode code = tableStorage_ensureMode(table->storage.get(), OpenMode::write);
    if (code != NO_ERROR && !tableStorage_isActive(table->storage.get())) {
        siX_useConfiguredTags(table);
    }
    return code;
}

// Writes all values to every active file.
ErrorCode storeValues(SessionInfoTable* table) {
    KSVByteStream stream;
    std::array<std::uint8_t, VALUES_STREAM_SIZE> buffer;
    byteStream_init(&stream, buffer.data(), VALUES_STREAM_SIZE);
    if (siX_serialise(table, &stream) != NO_ERROR) {
        return WRONG_PARAMETER_ERROR;  // deliberately not the stream's own code
    }
    return replicas_write(table->storage.get(), "si_write", ReplicaNumber::activePosition,
                          [&](TableFile* file) { return siX_writeValues(table, file, &stream); });
}

}  // namespace

SessionInfoTable* si_create(KSVTboTableConfig* config) noexcept {
    TableConfigPtr owned(config);
    if (owned == nullptr) {
        return nullptr;
    }
    std::unique_ptr<SessionInfoTable> table(new (std::nothrow) SessionInfoTable);
    if (table == nullptr) {
        return nullptr;
    }
    table->storage.reset(tableStorage_create(sessionInfoOps, table.get(), owned.get()));
    if (table->storage == nullptr) {
        return nullptr;
    }
    static_cast<void>(owned.release());  // the storage's from here on
    siX_useConfiguredTags(table.get());
    return table.release();
}

void si_destroy(SessionInfoTable* table) noexcept {
    delete table;
}

ErrorCode si_init(SessionInfoTable* table, OpenMode mode) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    siX_useConfiguredTags(table);
    table->values.fill(0);
    const ErrorCode code = tableStorage_init(table->storage.get(), mode);
    if (code != NO_ERROR) {
        siX_useConfiguredTags(table);
    }
    return code;
}

ErrorCode si_uninit(SessionInfoTable* table) noexcept {
    return table == nullptr ? NULL_POINTER_ERROR : tableStorage_uninit(table->storage.get());
}

ErrorCode si_read(SessionInfoTable* table, std::int32_t count, const std::int32_t* tags,
                  std::int64_t* values) noexcept {
    ErrorCode code = checkArguments(table, count, tags, values);
    if (code != NO_ERROR) {
        return code;
    }
    if (table->storage->mode == OpenMode::read) {
        TableFile* master = tableStorage_master(table->storage.get());
        code = master == nullptr ? MASTER_INACTIVE_ERROR : siX_loadValues(table, master);
        if (code != NO_ERROR) {
            return code;
        }
    }
    const bool allKnown =
        std::all_of(tags, tags + count, [table](std::int32_t tag) { return slotOf(table, tag) >= 0; });
    if (!allKnown) {
        return NO_DATA_ERROR;
    }
    for (std::int32_t i = 0; i < count; ++i) {
        values[i] = table->values[static_cast<std::size_t>(slotOf(table, tags[i]))];
    }
    return NO_ERROR;
}

ErrorCode si_write(SessionInfoTable* table, std::int32_t count, const std::int32_t* tags,
                   const std::int64_t* values) noexcept {
    ErrorCode code = checkArguments(table, count, tags, values);
    if (code != NO_ERROR) {
        return code;
    }
    code = ensureWritable(table);
    if (code == NO_ERROR) {
        code = setValues(table, count, tags, values);
    }
    return code == NO_ERROR ? storeValues(table) : code;
}

ErrorCode si_drop(SessionInfoTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    const ErrorCode code = ensureWritable(table);
    if (code != NO_ERROR) {
        return code;
    }
    table->values.fill(0);  // by slot, not by tag: a tag may stand twice
    return storeValues(table);
}

}  // namespace tabulo::internal
