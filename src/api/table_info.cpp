#include "tabulo/table_info.h"

#include <limits>

#include "api/call.h"
#include "api/open_table.h"
#include "api/sequence_point.h"
#include "api/stored_header.h"
#include "messagetable/block_cursor.h"
#include "messagetable/message_table.h"
#include "storage/writer_platform.h"

namespace tabulo {

namespace api {

namespace {

// Reads the blocks of one table for inspect.
struct Inspection {
    const Call& call;
    const StoredHeader& header;
    internal::TableFile* file;
    internal::BlockReaderPtr reader;
};

// The block at the cursor's place, or throws what is wrong there.
const internal::Block& checkBlock(const Inspection& inspection, const internal::BlockCursor& cursor,
                                  internal::ErrorCode code) {
    const internal::Block& block = cursor.block;
    if (code != internal::NO_ERROR) {
        inspection.call.fail(code, block.start);
    }
    if (block.state == internal::BlockState::damaged) {
        inspection.call.fail(block.damage, block.framesEnd);
    }
    if (block.state == internal::BlockState::gone) {
        inspection.call.fail(internal::VSEEK_ERROR, block.start, "the table was dropped meanwhile");
    }
    return block;
}

internal::BlockCursor cursorAt(const Inspection& inspection, std::int64_t position) {
    return internal::blockCursor_at(inspection.reader.get(), position, internal::BlockCursor::OpenBlocks::scanned,
                                    internal::BlockCursor::ZeroWords::judged);
}

// Where the blocks end that the header's tail knows as closed, and their number; the header's end and 0 when what the
// tail says cannot be.
std::int64_t knownEnd(const Inspection& inspection, std::int64_t* blocks) {
    const internal::TailRecords& tail = inspection.header.tail;
    const std::int64_t begin = inspection.header.generic.headerSize;
    const std::uint64_t end = internal::headerTail_openBlock(tail, begin);
    const std::int32_t messages = tail.dataInfo.messageCount;
    const std::int32_t counted = messages / inspection.header.numbers.messagesPerBlock;
    // The largest count is what any larger one is stored as.
    const bool believed = messages >= 0 && messages < std::numeric_limits<std::int32_t>::max() &&
                          end <= static_cast<std::uint64_t>(inspection.header.fileSize) &&
                          (counted == 0) == (end == static_cast<std::uint64_t>(begin)) &&
                          internal::mfr_loadPreviousFooter(inspection.reader.get(), inspection.file,
                                                           static_cast<std::int64_t>(end)) == internal::NO_ERROR;
    *blocks = believed ? counted : 0;
    return believed ? static_cast<std::int64_t>(end) : begin;
}

// Steps from the last block that the header knows to the end of the data, and counts.
void inspectEnd(const Inspection& inspection, TableInfo* info) {
    internal::BlockCursor cursor = cursorAt(inspection, knownEnd(inspection, &info->closedBlocks));
    const internal::BlockSummary& summary = inspection.reader->summary;
    const std::int32_t messagesPerBlock = inspection.header.numbers.messagesPerBlock;
    info->messageCount = info->closedBlocks * messagesPerBlock;
    std::int64_t start = -1;
    while (cursor.position != start) {
        start = cursor.position;
        const internal::ErrorCode code = internal::blockCursor_next(&cursor, inspection.file);
        const internal::Block& block = checkBlock(inspection, cursor, code);
        info->messageCount += block.messageCount;
        if (block.messageCount > 0) {
            info->lastTime = summary.maximum.timestamp;
        }
        if (cursor.position != start) {
            info->closedBlocks += 1;
            continue;
        }
        info->openMessages = block.messageCount;
        if (block.damage != internal::NO_ERROR) {
            inspection.call.fail(block.damage, block.framesEnd);
        }
    }
    if (!info->lastTime.has_value() && info->closedBlocks > 0) {
        const internal::ErrorCode code = internal::blockCursor_previous(&cursor, inspection.file);
        checkBlock(inspection, cursor, code);
        info->lastTime = summary.maximum.timestamp;
    }
}

void inspectBegin(const Inspection& inspection, TableInfo* info) {
    internal::BlockCursor cursor = cursorAt(inspection, inspection.header.generic.headerSize);
    const internal::ErrorCode code = internal::blockCursor_next(&cursor, inspection.file);
    if (checkBlock(inspection, cursor, code).messageCount > 0) {
        info->firstTime = inspection.reader->summary.minimum.timestamp;
    }
}

void takeIndexes(const internal::mthStaticIndexes& indexes, TableInfo* info) {
    for (std::size_t i = 0; i < messageClassCount; ++i) {
        if (indexes.connMsgIds[i] >= 0) {
            info->lastIds[i] = indexes.connMsgIds[i];
        }
    }
    if (indexes.lastUniform != 0) {
        info->lastUniformId = indexes.lastUniform;
    }
    info->lastGood = sequencePoint_of(indexes, internal::LAST_GOOD);
    info->firstPending = sequencePoint_of(indexes, internal::FIRST_PEND);
    info->lastPending = sequencePoint_of(indexes, internal::LAST_PEND);
}

// Everything behind the header. What is known before damage is met stays in `info`.
void inspectBlocks(const Call& call, internal::MessageTable* table, const StoredHeader& header, TableInfo* info) {
    const Inspection inspection{
        call, header, openTable_file(table),
        internal::BlockReaderPtr(internal::blockReader_create(internal::mt_storage(table), header.numbers))};
    if (inspection.reader == nullptr) {
        call.fail(internal::OUT_OF_MEMORY_ERROR);
    }
    inspectBegin(inspection, info);
    const internal::ErrorCode code = internal::mt_refresh(table);
    if (code == internal::NO_ERROR || code == internal::CONSISTENCY_ERROR) {
        takeIndexes(internal::mt_staticIndexes(table), info);
    }
    inspectEnd(inspection, info);
    call.check(code);
}

bool isClosedCleanly(const StoredHeader& header) {
    const auto size = static_cast<std::uint64_t>(header.fileSize);
    if (header.kind == TableKind::sessionInfo) {
        const std::int64_t values = header.fileSize - header.generic.headerSize;
        return values == 0 || values == std::int64_t{header.tags.count} * 8;
    }
    const internal::TailRecords& tail = header.tail;
    return tail.dataInfo.dataEnd == size && tail.blockInfo.lastBlockEnd <= size && tail.dataInfo.messageCount >= 0;
}

void takeHeader(const StoredHeader& header, TableInfo* info) {
    info->kind = header.kind;
    info->formatMajor = header.generic.versionMajor;
    info->formatMinor = header.generic.versionMinor;
    info->fileSize = header.fileSize;
    info->headerSize = header.generic.headerSize;
    info->closedCleanly = isClosedCleanly(header);
    if (header.kind == TableKind::sessionInfo) {
        info->tags.assign(header.tags.tags.begin(), header.tags.tags.begin() + header.tags.count);
    } else {
        info->layout = header.layout;
    }
}

OpenForWriting findWriter(const Call& call, const std::string& path) {
    internal::WriterPresence presence = internal::WriterPresence::unknown;
    const internal::SystemError error = internal::writerPlatform_find(path.c_str(), &presence);
    if (error.failed()) {
        internal::systemError_keep(error);
        call.fail(internal::FILE_OPEN_ERROR);
    }
    switch (presence) {
        case internal::WriterPresence::yes:
            return OpenForWriting::yes;
        case internal::WriterPresence::no:
            return OpenForWriting::no;
        default:
            return OpenForWriting::unknown;
    }
}

}  // namespace

}  // namespace api

TableInfo inspect(const std::filesystem::path& path) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    TableInfo info;
    info.path = path;
    info.name = path.filename().string();
    api::takeHeader(api::storedHeader_read(call, api::file_open(call, checked).get()), &info);
    if (info.kind == TableKind::messages) {
        try {
            api::StoredHeader header;
            const internal::MessageTablePtr table = api::openTable_asStored(call, checked, &header);
            api::takeHeader(header, &info);
            api::inspectBlocks(call, table.get(), header, &info);
        } catch (const Error& problem) {
            info.problem = problem;
        }
    }
    info.openForWriting = api::findWriter(call, checked);
    return info;
}

OpenForWriting isOpenForWriting(const std::filesystem::path& path) {
    const std::string checked = api::checkedPath(path);
    const api::Call call(path);
    return api::findWriter(call, checked);
}

}  // namespace tabulo
