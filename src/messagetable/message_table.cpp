#include "messagetable/message_table.h"

#include <algorithm>
#include <limits>
#include <new>

#include "core/log.h"
#include "messagetable/header_section.h"
#include "messagetable/recovery.h"

namespace tabulo::internal {

namespace {

MessageTable* tableOf(void* owner) {
    return static_cast<MessageTable*>(owner);
}

constexpr TableStorageOps messageTableOps{
    [](void* owner, KSVByteStream* stream) { return mtX_writeHeader(tableOf(owner), stream); },
    [](void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
        return mtX_verify(tableOf(owner), file, stream, offset);
    },
    [](void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
        return mtX_load(tableOf(owner), file, stream, offset);
    },
    [](void* owner, TableFile* file) { return mtX_recover(tableOf(owner), file); },
    [](void* owner, TableFile*, std::int64_t, std::int32_t headerSize, std::int32_t) {
        return mtX_prepareTail(tableOf(owner), headerSize);
    },
};

std::unique_ptr<MessageTable> create(TableConfigPtr config) {
    if (config == nullptr) {
        return nullptr;
    }
    std::unique_ptr<MessageTable> table(new (std::nothrow) MessageTable);
    if (table == nullptr) {
        return nullptr;
    }
    mtLayout_fromConfig(&table->header, config.get());
    table->storage.reset(tableStorage_create(messageTableOps, table.get(), config.get()));
    if (table->storage == nullptr) {
        return nullptr;
    }
    static_cast<void>(config.release());  // the storage's from here on
    table->frames.reset(mfr_create(table->storage.get(), &table->header.layout));
    if (table->frames == nullptr) {
        return nullptr;
    }
    mfr_resetAll(table->frames.get());
    return table;
}

bool isWritable(const MessageTable* table) {
    return table->storage->mode == OpenMode::write;
}

// A message's fields come from the caller: checked once, here.
ErrorCode checkFields(const MessageMetadata* metadata, const StringField* stringFields, std::int32_t stringFieldCount,
                      const NumericValue* numericFields, std::int32_t numericFieldCount) {
    if (metadata == nullptr || (stringFields == nullptr && stringFieldCount > 0) ||
        (numericFields == nullptr && numericFieldCount > 0)) {
        return NULL_POINTER_ERROR;
    }
    for (std::int32_t i = 0; i < stringFieldCount; ++i) {
        if (stringFields[i].length < 0) {
            return WRONG_PARAMETER_ERROR;
        }
        if (stringFields[i].length > 0 && stringFields[i].text == nullptr) {
            return NULL_POINTER_ERROR;
        }
    }
    for (std::int32_t i = 0; i < numericFieldCount; ++i) {
        if (!numericValue_isType(static_cast<std::uint8_t>(numericFields[i].type))) {
            return WRONG_PARAMETER_ERROR;
        }
    }
    return NO_ERROR;
}

ErrorCode saveTail(MessageTable* table) {
    const ErrorCode code = headerTail_fill(table->tail.get(), table->blockInfo, table->dataInfo, table->staticIndexes);
    return code == NO_ERROR ? tv_saveData(table->tail.get()) : code;
}

bool isOpenedReadOnly(const MessageTable* table) {
    return tableStorage_isActive(table->storage.get()) && !isWritable(table);
}

// Appends a checked message and takes it into the bookkeeping.
ErrorCode storeMessage(MessageTable* table, const MessageMetadata* metadata, const StringField* stringFields,
                       const NumericValue* numericFields) {
    std::int64_t blockEnd = 0;
    std::int64_t bytesWritten = 0;
    const ErrorCode code =
        mfr_writeMessage(table->frames.get(), metadata, stringFields, numericFields, &blockEnd, &bytesWritten);
    if (code != NO_ERROR) {
        return code;
    }
    if (blockEnd != 0) {
        table->blockInfo.lastBlockEnd = static_cast<std::uint64_t>(blockEnd);
    }
    // A negative count would never open again.
    if (table->dataInfo.messageCount < std::numeric_limits<std::int32_t>::max()) {
        table->dataInfo.messageCount += 1;
    }
    table->dataInfo.dataEnd += static_cast<std::uint64_t>(bytesWritten);
    table->staticIndexes = table->frames->summary.staticIndexes;
    return blockEnd != 0 ? saveTail(table) : NO_ERROR;
}

}  // namespace

MessageTable* mt_create(KSVTboTableConfig* config) noexcept {
    log_debug("+ mt_create", "(KSVTboTableConfig*)config=%p\n", static_cast<void*>(config));
    MessageTable* table = create(TableConfigPtr(config)).release();
    log_debug("- mt_create", "returning %p, created = %d\n", static_cast<void*>(table), table != nullptr ? 1 : 0);
    return table;
}

void mt_destroy(MessageTable* table) noexcept {
    if (table != nullptr && table->uses > 0) {
        table->destroyRequested = true;
        table->opened = false;
        tableStorage_closeAll(table->storage.get());
        return;
    }
    delete table;
}

MessageTableUse::MessageTableUse(MessageTable* table) noexcept : table_(table) {
    table_->uses += 1;
}

MessageTableUse::~MessageTableUse() {
    table_->uses -= 1;
    if (table_->destroyRequested && table_->uses == 0) {
        mt_destroy(table_);
    }
}

ErrorCode mt_open(MessageTable* table, OpenMode mode) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    table->opened = false;
    mtX_resetState(table);
    const ErrorCode code = tableStorage_init(table->storage.get(), mode);
    table->opened = code == NO_ERROR;
    return code;
}

ErrorCode mt_close(MessageTable* table) noexcept {
    if (table == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (!table->opened || table->tail == nullptr || !isWritable(table) ||
        !tableStorage_isActive(table->storage.get())) {
        return NO_ERROR;
    }
    return saveTail(table);
}

ErrorCode mt_truncateStorage(MessageTable* table) noexcept {
    return table == nullptr || table->storage == nullptr ? NULL_POINTER_ERROR
                                                         : tableStorage_truncate(table->storage.get());
}

ErrorCode mt_drop(MessageTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (!isWritable(table)) {
        return READ_ONLY_ERROR;
    }
    if (!tableStorage_isActive(table->storage.get())) {
        return MASTER_INACTIVE_ERROR;
    }
    ErrorCode code = mt_truncateStorage(table);
    if (code != NO_ERROR) {
        return code;
    }
    table->opened = false;
    mtX_resetState(table);
    code = tableStorage_uninit(table->storage.get());
    return code == NO_ERROR ? mt_open(table, OpenMode::create) : code;
}

ErrorCode mt_writeMessage(MessageTable* table, const MessageMetadata* metadata, const StringField* stringFields,
                          std::int32_t stringFieldCount, const NumericValue* numericFields,
                          std::int32_t numericFieldCount) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (stringFieldCount != table->header.layout.stringFieldCount) {
        return STRING_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (numericFieldCount != table->header.layout.numericFieldCount) {
        return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (isOpenedReadOnly(table)) {
        return READ_ONLY_ERROR;
    }
    const ErrorCode code = checkFields(metadata, stringFields, stringFieldCount, numericFields, numericFieldCount);
    return code == NO_ERROR ? storeMessage(table, metadata, stringFields, numericFields) : code;
}

ErrorCode mt_writeRawMessage(MessageTable* table, const void* buffer, std::int32_t length) noexcept {
    if (table == nullptr || table->storage == nullptr || buffer == nullptr) {
        return NULL_POINTER_ERROR;
    }
    KSVByteStream stream;
    // The stream only reads from the buffer.
    byteStream_init(&stream, const_cast<void*>(buffer), length);
    if (byteStream_resetWrite(&stream, length).failed()) {
        return byteStream_error(&stream);
    }
    const MessageTableLayout& layout = table->header.layout;
    DecodedMessage message;
    const ErrorCode code = mfr_decodeMessage(&message.metadata, message.stringFields.data(), layout.stringFieldCount,
                                             message.numericFields.data(), layout.numericFieldCount, &stream);
    if (code != NO_ERROR) {
        return code;
    }
    if (isOpenedReadOnly(table)) {
        return READ_ONLY_ERROR;
    }
    return storeMessage(table, &message.metadata, message.stringFields.data(), message.numericFields.data());
}

std::uint64_t mt_effectiveBlockEnd(const MessageTable* table, std::uint64_t stored) noexcept {
    return std::max(stored, static_cast<std::uint64_t>(table->storage->headerSize));
}

std::int64_t mt_openBlockStart(const MessageTable* table) noexcept {
    return static_cast<std::int64_t>(mt_effectiveBlockEnd(table, table->blockInfo.lastBlockEnd));
}

}  // namespace tabulo::internal
