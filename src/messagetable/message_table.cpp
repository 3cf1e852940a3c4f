#include "messagetable/message_table.h"

#include <algorithm>
#include <limits>
#include <new>

#include "core/log.h"
#include "messagetable/frame.h"
#include "messagetable/header_section.h"
#include "messagetable/recovery.h"

namespace tabulo::internal {

namespace {

MessageTable* tableOf(void* owner) {
    return static_cast<MessageTable*>(owner);
}

SectionOwner sectionOf(MessageTable* table) {
    return {table->header, table->storage.get()};
}

// Brings records, writer and view to those of a table without messages.
void resetState(MessageTable* table) {
    table->records = {};
    mfr_resetAll(table->writer.get());
    table->view.loaded = false;
}

ErrorCode writeHeader(void* owner, KSVByteStream* stream) {
    MessageTable* table = tableOf(owner);
    const ErrorCode code = mtX_writeHeader(table->header, stream, &table->records);
    mfr_resetAll(table->writer.get());
    return code;
}

// Takes over what a file was found to hold.
ErrorCode assign(MessageTable* table, ErrorCode code, const LoadedTable& loaded) {
    if (code != NO_ERROR) {
        return code;
    }
    table->records = loaded.records;
    if (loaded.openBlock != nullptr) {
        blockSummary_copy(&table->writer->summary, loaded.openBlock->summary);
    }
    return NO_ERROR;
}

ErrorCode loadHeader(void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
    LoadedTable loaded;
    const ErrorCode code = mtX_load(sectionOf(tableOf(owner)), file, stream, offset, &loaded);
    return assign(tableOf(owner), code, loaded);
}

ErrorCode recover(void* owner, TableFile* file) {
    LoadedTable loaded;
    const ErrorCode code = mtX_recover(sectionOf(tableOf(owner)), file, &loaded);
    return assign(tableOf(owner), code, loaded);
}

ErrorCode prepareTail(void* owner, std::int32_t headerEnd) {
    MessageTable* table = tableOf(owner);
    // Counted back from the header's end: the stored names may take a byte more than ours ("" with or without its NUL).
    table->tail = headerTail_create(table->storage.get(), headerEnd - HEADER_TAIL_SIZE);
    if (table->tail == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    table->records.blockInfo.lastBlockEnd = headerTail_openBlock(table->records, headerEnd);
    return NO_ERROR;
}

constexpr TableStorageOps messageTableOps{
    writeHeader,
    [](void* owner, TableFile* file, KSVByteStream* stream, std::int32_t offset) {
        return mtX_verify(sectionOf(tableOf(owner)), file, stream, offset, &tableOf(owner)->records);
    },
    loadHeader,
    recover,
    [](void* owner, TableFile*, std::int64_t, std::int32_t headerSize, std::int32_t) {
        return prepareTail(owner, headerSize);
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
    table->writer.reset(mfr_create(table->storage.get(), &table->header.layout));
    if (table->writer == nullptr) {
        return nullptr;
    }
    mfr_resetAll(table->writer.get());
    return table;
}

bool isWritable(const MessageTable* table) {
    return table->storage->mode == OpenMode::write;
}

// A message's fields come from the caller: checked once, here.
ErrorCode checkFields(const MessageView& message) {
    for (const StringField& text : message.texts) {
        if (text.length < 0) {
            return WRONG_PARAMETER_ERROR;
        }
        if (text.length > 0 && text.text == nullptr) {
            return NULL_POINTER_ERROR;
        }
    }
    for (const NumericValue& number : message.numbers) {
        if (!numericValue_isType(static_cast<std::uint8_t>(number.type))) {
            return WRONG_PARAMETER_ERROR;
        }
    }
    return NO_ERROR;
}

ErrorCode saveTail(MessageTable* table) {
    const ErrorCode code = headerTail_fill(table->tail.get(), table->records);
    return code == NO_ERROR ? tv_saveData(table->tail.get()) : code;
}

bool isOpenedReadOnly(const MessageTable* table) {
    return tableStorage_isActive(table->storage.get()) && !isWritable(table);
}

// Takes an append of some messages into the bookkeeping.
ErrorCode account(MessageTable* table, const Appended& appended, std::int32_t messages) {
    TailRecords& records = table->records;
    if (appended.blockEnd != 0) {
        records.blockInfo.lastBlockEnd = static_cast<std::uint64_t>(appended.blockEnd);
    }
    // A negative count would never open again.
    const std::int32_t room = std::numeric_limits<std::int32_t>::max() - records.dataInfo.messageCount;
    records.dataInfo.messageCount += std::min(messages, room);
    records.dataInfo.dataEnd += static_cast<std::uint64_t>(appended.bytes);
    records.staticIndexes = table->writer->summary.staticIndexes;
    return appended.blockEnd != 0 ? saveTail(table) : NO_ERROR;
}

// Appends a checked message.
ErrorCode storeMessage(MessageTable* table, const MessageView& message) {
    Appended appended;
    const ErrorCode code = mfr_writeMessage(table->writer.get(), message, &appended);
    return code == NO_ERROR ? account(table, appended, 1) : code;
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
    resetState(table);
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
    resetState(table);
    code = tableStorage_uninit(table->storage.get());
    return code == NO_ERROR ? mt_open(table, OpenMode::create) : code;
}

ErrorCode mt_writeMessage(MessageTable* table, const MessageView& message) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    if (message.texts.size() != static_cast<std::size_t>(table->header.layout.stringFieldCount)) {
        return STRING_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (message.numbers.size() != static_cast<std::size_t>(table->header.layout.numericFieldCount)) {
        return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
    }
    if (isOpenedReadOnly(table)) {
        return READ_ONLY_ERROR;
    }
    const ErrorCode code = checkFields(message);
    return code == NO_ERROR ? storeMessage(table, message) : code;
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
    const ErrorCode code = mfr_decodeMessage(layout, &stream, &message);
    if (code != NO_ERROR) {
        return code;
    }
    return isOpenedReadOnly(table) ? READ_ONLY_ERROR : storeMessage(table, message_view(message, layout));
}

ErrorCode mt_writeRawMessages(MessageTable* table, std::span<const std::uint8_t> frames, std::size_t* offset,
                              std::int64_t* stored) noexcept {
    if (table == nullptr || table->storage == nullptr || offset == nullptr || stored == nullptr) {
        return NULL_POINTER_ERROR;
    }
    *stored = 0;
    ErrorCode code = blockWriter_checkFrames(table->header.layout, frames, offset);
    if (code == NO_ERROR && isOpenedReadOnly(table)) {
        code = READ_ONLY_ERROR;
    }
    if (code == NO_ERROR) {
        code = blockWriter_makeRoom(table->writer.get(), frames);
    }
    while (code == NO_ERROR && !frames.empty()) {
        std::int32_t count = 0;
        std::size_t taken = 0;
        Appended appended;
        code = blockWriter_writeFrames(table->writer.get(), frames, &count, &taken, &appended);
        if (code == NO_ERROR) {
            frames = frames.subspan(taken);
            *stored += count;
            code = account(table, appended, count);
        }
    }
    return code;
}

ErrorCode mt_commit(MessageTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    TableFile* file = tableStorage_master(table->storage.get());
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    return isWritable(table) ? tableFileCommit(file, "mt_commit") : READ_ONLY_ERROR;
}

ErrorCode mt_closeFiles(MessageTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    table->opened = false;
    table->sideIndex.reset();  // its file is closed, too, when no iterator uses it
    const ErrorCode code = tableStorage_uninit(table->storage.get());
    if (code != NO_ERROR) {
        tableStorage_closeAll(table->storage.get());
    }
    return code;
}

ErrorCode mt_refresh(MessageTable* table) noexcept {
    if (table == nullptr || table->storage == nullptr) {
        return NULL_POINTER_ERROR;
    }
    TableFile* file = tableStorage_master(table->storage.get());
    if (file == nullptr || table->tail == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    if (table->storage->mode != OpenMode::read) {
        return NO_ERROR;
    }
    return tableView_refresh(&table->view, table->storage.get(), table->header.layout, file, &table->records);
}

TableStorage* mt_storage(const MessageTable* table) noexcept {
    return table->storage.get();
}

const MessageTableLayout& mt_layout(const MessageTable* table) noexcept {
    return table->header.layout;
}

const mthStaticIndexes& mt_staticIndexes(const MessageTable* table) noexcept {
    return table->records.staticIndexes;
}

std::int64_t mt_dataEnd(const MessageTable* table) noexcept {
    return static_cast<std::int64_t>(table->records.dataInfo.dataEnd);
}

FramePlace mt_nextPlace(const MessageTable* table) noexcept {
    if (table->storage->mode != OpenMode::read || table->view.reader == nullptr) {
        const std::int64_t block = mt_openBlockStart(table);
        const std::int64_t end = mt_dataEnd(table);
        return end <= block ? framePlace_first(block) : FramePlace{block, end};
    }
    const Block& block = table->view.cursor.block;
    return framePlace_behind(block.start, block.framesEnd, block.messageCount, table->header.layout,
                             table->view.reader->footerSize);
}

std::int64_t mt_openBlockStart(const MessageTable* table) noexcept {
    return static_cast<std::int64_t>(headerTail_openBlock(table->records, table->storage->headerSize));
}

std::shared_ptr<void>& mt_sideIndex(MessageTable* table) noexcept {
    return table->sideIndex;
}

void mt_useSideIndex(MessageTable* table, bool use) noexcept {
    table->usesSideIndex = use;
}

bool mt_usesSideIndex(const MessageTable* table) noexcept {
    return table->usesSideIndex;
}

KnownBlocks& mt_knownBlocks(MessageTable* table) noexcept {
    table->known.follow(*table->storage);
    return table->known;
}

bool mt_isDestroyed(const MessageTable* table) noexcept {
    return table->destroyRequested;
}

}  // namespace tabulo::internal
