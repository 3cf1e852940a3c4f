#include "messagetable/table_view.h"

#include <utility>

namespace tabulo::internal {

namespace {

// What the header's tail says now.
struct StoredTail {
    TailRecords records;
    std::uint64_t openBlock = 0;
    bool plausible = false;
};

bool isDamage(ErrorCode code) {
    return code == HEADER_CORRUPTED_ERROR || code == CONSISTENCY_ERROR;
}

ErrorCode readTail(TableFile* file, std::int64_t headerEnd, std::int64_t* size, StoredTail* stored) {
    ErrorCode code = headerTail_read(file, headerEnd, &stored->records);
    const bool isWhole = code == NO_ERROR;
    if (isWhole || code == NO_DATA_ERROR) {
        code = tableFileGetSize(file, size);
    }
    const auto end = static_cast<std::uint64_t>(*size);
    stored->openBlock = headerTail_openBlock(stored->records, headerEnd);
    stored->plausible = isWhole && stored->openBlock <= end && stored->records.dataInfo.dataEnd <= end &&
                        stored->records.dataInfo.messageCount >= 0;
    return code;
}

// From the cursor's position on: steps over full blocks, then reads the open one into the view.
ErrorCode loadOpenBlock(TableView* view, TableFile* file) {
    for (;;) {
        const std::int64_t start = view->cursor.position;
        const ErrorCode code = mfr_loadOpenBlock(&view->cursor, file);
        if (code != NO_ERROR || view->cursor.position == start) {
            return code;
        }
    }
}

ErrorCode load(TableView* view, std::int64_t headerEnd, TableFile* file, const StoredTail& stored) {
    std::int64_t start = headerEnd;
    ErrorCode code = HEADER_CORRUPTED_ERROR;
    if (stored.plausible) {
        start = static_cast<std::int64_t>(stored.openBlock);
        code = mfr_loadPreviousFooter(view->reader.get(), file, start);
    }
    if (isDamage(code)) {
        // The tail does not fit the file: find the open block by the length words.
        start = headerEnd;
        blockSummary_reset(&view->reader->summary, false);
        code = NO_ERROR;
    }
    view->cursor =
        blockCursor_at(view->reader.get(), start, BlockCursor::OpenBlocks::scanned, BlockCursor::ZeroWords::judged);
    return code == NO_ERROR ? loadOpenBlock(view, file) : code;
}

// Adds to the view what has been appended behind it. *grown is false when the view cannot be gone on with.
ErrorCode grow(TableView* view, TableFile* file, const StoredTail& stored, const TailRecords& known, bool* grown) {
    const std::int32_t seen = view->reader->summary.messageCount;
    const bool shrunk = tableFileCachedSize(file) < view->size ||
                        stored.records.dataInfo.dataEnd < known.dataInfo.dataEnd ||
                        stored.records.dataInfo.messageCount < known.dataInfo.messageCount;
    *grown = false;
    if (!stored.plausible || shrunk || seen == 0 || seen >= view->reader->layout.messagesPerBlock) {
        return NO_ERROR;
    }
    ErrorCode code = blockCursor_grow(&view->cursor, file, grown);
    if (code == NO_ERROR && *grown && view->cursor.position != view->cursor.block.start) {
        code = loadOpenBlock(view, file);
    }
    *grown = *grown && static_cast<std::uint64_t>(view->cursor.block.start) >= stored.openBlock;
    return code;
}

// The end of what the view knows. Not the file's: a torn frame behind it may be cut and a message of its size written.
std::int64_t endOf(const TableView& view) {
    const Block& block = view.cursor.block;
    return block.messageCount == 0 ? block.start : block.framesEnd;
}

ErrorCode makeReader(TableView* view, TableStorage* storage, const MessageTableLayout& layout) {
    if (view->reader == nullptr) {
        view->reader.reset(blockReader_create(storage, layout));
    }
    return view->reader == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

// The view has been brought up to date: takes its findings over.
ErrorCode takeOver(TableView* view, const StoredTail& stored, std::int64_t headerEnd, TailRecords* records) {
    const Block& block = view->cursor.block;
    if (block.state == BlockState::damaged) {
        return block.damage;
    }
    if (stored.plausible) {
        records->blockInfo.reserved = stored.records.blockInfo.reserved;
        records->dataInfo = stored.records.dataInfo;
    }
    records->blockInfo.lastBlockEnd = static_cast<std::uint64_t>(block.start);
    records->staticIndexes = view->reader->summary.staticIndexes;
    if (block.damage != NO_ERROR) {
        return block.damage;
    }
    view->size = endOf(*view);
    view->lastBlockEnd = headerTail_openBlock(stored.records, headerEnd);
    view->loaded = block.state != BlockState::gone;
    return NO_ERROR;
}

}  // namespace

ErrorCode tableView_refresh(TableView* view, TableStorage* storage, const MessageTableLayout& layout, TableFile* file,
                            TailRecords* records) noexcept {
    const std::int64_t headerEnd = storage->headerSize;
    std::int64_t size = 0;
    StoredTail stored;
    ErrorCode code = readTail(file, headerEnd, &size, &stored);
    if (code == NO_ERROR && !stored.plausible) {
        code = readTail(file, headerEnd, &size, &stored);  // the writer may have been at it
    }
    if (code != NO_ERROR) {
        return code;
    }
    if (view->loaded && view->size == size && view->lastBlockEnd == stored.openBlock) {
        return NO_ERROR;
    }
    code = makeReader(view, storage, layout);
    bool grown = false;
    if (code == NO_ERROR && std::exchange(view->loaded, false)) {
        code = grow(view, file, stored, *records, &grown);
    }
    if (code == NO_ERROR && !grown) {
        code = load(view, headerEnd, file, stored);
    }
    return code == NO_ERROR ? takeOver(view, stored, headerEnd, records) : code;
}

}  // namespace tabulo::internal
