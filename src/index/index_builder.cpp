#include "index/index_builder.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "core/platform.h"
#include "index/index_pages.h"
#include "index/run_merge.h"
#include "index/side_index.h"
#include "index/table_identity.h"

namespace tabulo::internal {

namespace {

constexpr int MOST_TRIES = 10;
constexpr std::size_t COPIED_PAGES = 256;

std::uint64_t drawKey() {
    const auto time = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    return indexSeed(indexSeed(time, platform_processId()), reinterpret_cast<std::uintptr_t>(&filePlatform()));
}

// True for a file that may be overwritten: one that begins as an index, or an empty one, which a stopped builder
// leaves.
SystemError isOurs(FileStream* file, bool* ours) {
    IndexSlotPages pages;
    std::size_t count = 0;
    const SystemError error = fileStream_readAt(file, 0, pages.data(), sizeof(pages), &count);
    *ours = count == 0 || indexSlot_isOne(pages[0]) || indexSlot_isOne(pages[1]);
    return error;
}

// The path must outlive the file.
ErrorCode openFile(const std::string& path, IndexFile* opened, bool* locked) {
    auto unopened = std::make_unique<FileStream>();
    const SystemError error = fileStream_open(unopened.get(), path.c_str(), FileAccess::createOrOpen, false);
    *locked = filePlatform_isLocked(error);
    if (error.failed()) {
        return FILE_OPEN_ERROR;
    }
    IndexFile file(unopened.release());
    bool ours = false;
    const bool unread = isOurs(file.get(), &ours).failed();
    if (unread || !ours) {
        return unread ? FILE_READ_ERROR : SIGNATURE_ERROR;
    }
    *opened = std::move(file);
    return NO_ERROR;
}

SystemError writePage(FileStream* file, std::uint32_t number, const IndexPage& page) {
    SystemError error = fileStream_seek(file, std::int64_t{number} * static_cast<std::int64_t>(INDEX_PAGE_SIZE));
    if (!error.failed()) {
        error = fileStream_write(file, page.bytes.data(), page.bytes.size());
    }
    return error.failed() ? error : fileStream_flush(file);
}

SystemError writeSlot(FileStream* file, const IndexSlot& slot) {
    return writePage(file, static_cast<std::uint32_t>(slot.generation % INDEX_SLOTS), indexSlot_write(slot));
}

std::uint32_t endOf(const IndexSlot& slot) {
    std::uint32_t end = INDEX_SLOTS;
    for (const IndexRun& run : slot.runs) {
        end = std::max(end, run.firstPage + run.pages);
    }
    return end;
}

// Copies runs to another file, one behind the other; their places there are set.
SystemError copyRuns(const SideFile& from, FileStream* to, std::span<IndexRun> runs, bool* readable) {
    std::vector<IndexPage> pages(COPIED_PAGES);
    std::uint32_t end = INDEX_SLOTS;
    SystemError error = fileStream_seek(to, std::int64_t{INDEX_SLOTS} * static_cast<std::int64_t>(INDEX_PAGE_SIZE));
    for (IndexRun& run : runs) {
        for (std::uint32_t done = 0; done < run.pages && *readable && !error.failed();) {
            const std::size_t count = std::min<std::size_t>(COPIED_PAGES, run.pages - done);
            *readable = from.readAt((std::uint64_t{run.firstPage} + done) * INDEX_PAGE_SIZE, pages.data(),
                                    count * INDEX_PAGE_SIZE);
            error = fileStream_write(to, pages.data(), count * INDEX_PAGE_SIZE);
            done += static_cast<std::uint32_t>(count);
        }
        run.firstPage = end;
        end += run.pages;
    }
    return error;
}

}  // namespace

IndexBuilder::IndexBuilder(std::string tablePath, const MessageTableLayout& layout)
    : tablePath_(std::move(tablePath)),
      path_(tablePath_ + std::string(INDEX_SUFFIX)),
      newPath_(tablePath_ + std::string(INDEX_NEW_SUFFIX)),
      layout_(layout),
      content_(layout) {
}

void IndexFileCloser::operator()(FileStream* file) const noexcept {
    (void)fileStream_close(file);  // nothing is gathered any more
    delete file;
}

ErrorCode IndexBuilder::open() {
    for (int i = 0; i < MOST_TRIES; ++i) {
        const ErrorCode code = openFile(path_, &file_, &locked_);
        if (code != NO_ERROR) {
            return code;
        }
        bool same = false;
        // Another builder may have given the name to a new file between the opening and the lock.
        if (!filePlatform().isAt(file_->descriptor, path_.c_str(), &same).failed() && same) {
            return takeOver();
        }
        file_.reset();
    }
    return FILE_OPEN_ERROR;
}

// Goes on with what the file holds.
ErrorCode IndexBuilder::takeOver() {
    IndexSlotPages pages;
    std::size_t count = 0;
    if (fileStream_readAt(file_.get(), 0, pages.data(), sizeof(pages), &count).failed()) {
        return FILE_READ_ERROR;
    }
    std::optional<IndexSlot> slot = indexSlot_choose(pages);
    if (!slot.has_value()) {
        return beginAnew();
    }
    slot_ = std::move(*slot);
    pages_ = endOf(slot_);
    forgetRead();
    return NO_ERROR;
}

void IndexBuilder::forgetRead() noexcept {
    content_.clear();
    readEnd_ = slot_.coveredEnd;
    readFooter_ = slot_.lastFooter;
}

// Makes an empty file of a new one.
ErrorCode IndexBuilder::makeFile(FileStream* file, const IndexSlot& slot) {
    const bool failed = fileStream_truncate(file, 0).failed() || writeSlot(file, slot).failed();
    return failed ? FILE_WRITE_ERROR : NO_ERROR;
}

// An index of no block. Readers that have the old one open find it changed.
ErrorCode IndexBuilder::beginAnew() {
    IndexSlot slot;
    slot.fileKey = drawKey();
    slot.generation = 1;
    std::int64_t size = 0;
    if (fileStream_size(file_.get(), &size).failed()) {
        return FILE_READ_ERROR;
    }
    ErrorCode code = NO_ERROR;
    if (size == 0) {
        code = makeFile(file_.get(), slot);
    } else {
        // What readers are reading must not change under them: another file takes the name.
        IndexFile made;
        code = openFile(newPath_, &made, &locked_);
        code = code == NO_ERROR ? makeFile(made.get(), slot) : code;
        code = code == NO_ERROR ? takeName(std::move(made)) : code;
    }
    if (code == NO_ERROR) {
        slot_ = slot;
        pages_ = INDEX_SLOTS;
        forgetRead();
    }
    return code;
}

// The new file, which is locked already, becomes the index.
ErrorCode IndexBuilder::takeName(IndexFile made) {
    const SystemError error = filePlatform_repeat(
        "rename", newPath_.c_str(), [&] { return filePlatform().rename(newPath_.c_str(), path_.c_str()); });
    if (error.failed()) {
        return FILE_WRITE_ERROR;
    }
    file_ = std::move(made);
    file_->path = path_.c_str();
    return NO_ERROR;
}

ErrorCode IndexBuilder::save(FileStream* file, IndexSlot slot, std::uint32_t pages) {
    slot.generation += 1;
    if (writeSlot(file, slot).failed()) {
        return FILE_WRITE_ERROR;
    }
    slot_ = std::move(slot);
    pages_ = pages;
    return NO_ERROR;
}

// Opens the index again when it was deleted, or another file has its name.
ErrorCode IndexBuilder::keepName() {
    bool same = false;
    if (file_ != nullptr && !filePlatform().isAt(file_->descriptor, path_.c_str(), &same).failed() && same) {
        return NO_ERROR;
    }
    file_.reset();
    slot_ = {};
    return open();
}

// Makes sure that what was read and what is covered belongs to what the table holds now.
ErrorCode IndexBuilder::follow(MessageTable* table, TableFile* file) {
    const std::int32_t footerSize = reader_->footerSize;
    const std::optional<std::uint64_t> identity = tableIdentity_read(file, mt_storage(table)->headerSize);
    if (content_.blocks() > 0 &&
        (identity != identity_ || footerChecksum_read(file, readEnd_, footerSize) != readFooter_)) {
        forgetRead();
    }
    identity_ = identity;
    const bool belongs =
        slot_.coveredBlocks == 0 ||
        (identity == slot_.identity && footerChecksum_read(file, slot_.coveredEnd, footerSize) == slot_.lastFooter);
    return belongs ? NO_ERROR : beginAnew();
}

ErrorCode IndexBuilder::update(MessageTable* table, std::uint32_t fewest, const IndexProgress& progress) {
    TableFile* file = tableStorage_master(mt_storage(table));
    if (file == nullptr) {
        return MASTER_INACTIVE_ERROR;
    }
    reader_.reset(blockReader_create(mt_storage(table), layout_));
    if (reader_ == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    ErrorCode code = keepName();
    code = code == NO_ERROR ? follow(table, file) : code;
    if (code == NO_ERROR) {
        code = readBlocks(table, file, progress);
    }
    if (code == NO_ERROR && content_.blocks() > 0 && content_.blocks() >= fewest) {
        code = cover(table, file);
    }
    return code;
}

ErrorCode IndexBuilder::readBlocks(MessageTable* table, TableFile* file, const IndexProgress& progress) {
    const std::int64_t begin = readEnd_ == 0 ? mt_storage(table)->headerSize : readEnd_;
    const auto perBlock = static_cast<std::uint64_t>(layout_.messagesPerBlock);
    BlockCursor cursor =
        blockCursor_at(reader_.get(), begin, BlockCursor::OpenBlocks::unread, BlockCursor::ZeroWords::judged);
    for (;;) {
        const std::uint64_t covered = (std::uint64_t{slot_.coveredBlocks} + content_.blocks()) * perBlock;
        if (covered + perBlock > UINT32_MAX) {
            return NO_ERROR;  // messages are told by 32 bits: the rest is walked over
        }
        if (content_.messages() + perBlock > RUN_MESSAGES && content_.blocks() > 0) {
            const std::int64_t reached = readEnd_;
            const ErrorCode code = cover(table, file);
            if (code != NO_ERROR || readEnd_ != reached) {
                return code;  // or what was read is forgotten
            }
        }
        if (progress.goOn != nullptr &&
            !progress.goOn(progress.owner, cursor.position, static_cast<std::int64_t>(covered))) {
            return NO_ERROR;
        }
        ErrorCode code = blockCursor_next(&cursor, file);
        if (code != NO_ERROR || cursor.block.state != BlockState::closed) {
            return code;
        }
        // The block in front is what it was: this one is of the same content of the table.
        if (readEnd_ != 0 && footerChecksum_read(file, readEnd_, reader_->footerSize) != readFooter_) {
            forgetRead();
            return NO_ERROR;
        }
        const std::optional<std::uint64_t> footer = footerChecksum_read(file, cursor.position, reader_->footerSize);
        if (!footer.has_value()) {
            return FILE_READ_ERROR;
        }
        code = content_.add(reader_.get(), file, cursor.block);
        if (code == CONSISTENCY_ERROR) {
            return NO_ERROR;  // damage is told where the table is read
        }
        if (code != NO_ERROR) {
            return code;
        }
        readEnd_ = cursor.position;
        readFooter_ = *footer;
    }
}

// Appends a run of what was read; forgets it when the table was dropped meanwhile.
ErrorCode IndexBuilder::cover(MessageTable* table, TableFile* file) {
    const std::optional<std::uint64_t> identity = tableIdentity_read(file, mt_storage(table)->headerSize);
    if (!identity.has_value()) {
        return FILE_READ_ERROR;
    }
    if (identity != identity_) {
        forgetRead();
        return NO_ERROR;
    }
    if (slot_.runs.size() == MOST_INDEX_RUNS) {
        const ErrorCode code = merge();
        if (code != NO_ERROR || content_.blocks() == 0) {
            return code;
        }
    }
    IndexSlot slot = slot_;
    slot.identity = *identity;
    RunWriter run(file_.get(), slot, pages_, slot.coveredBlocks, content_.blocks());
    const std::vector<IndexPart> parts = content_.write(&run);
    if (run.finish(parts).failed()) {
        return FILE_WRITE_ERROR;
    }
    slot.runs.push_back(run.run());
    slot.coveredBlocks += content_.blocks();
    slot.coveredEnd = readEnd_;
    slot.lastFooter = readFooter_;
    const ErrorCode code = save(file_.get(), std::move(slot), pages_ + run.run().pages);
    if (code == NO_ERROR) {
        content_.clear();
    }
    return code;
}

ErrorCode IndexBuilder::merge() {
    const std::vector<IndexRun>& runs = slot_.runs;
    std::size_t first = runs.empty() ? 0 : runs.size() - 1;
    std::uint64_t behind = runs.empty() ? 0 : runs.back().blocks;
    while (first > 0 && runs[first - 1].blocks < RUN_RATIO * behind) {
        behind += runs[--first].blocks;
    }
    if (first + 1 >= runs.size()) {
        return NO_ERROR;
    }
    SideFile file;
    if (!file.open(path_.c_str())) {
        return FILE_READ_ERROR;
    }
    IndexPages pages(std::move(file), slot_);
    const ErrorCode code = mergeFrom(first, &pages);
    return code == CONSISTENCY_ERROR ? beginAnew() : code;
}

// Merges the runs from this one on. CONSISTENCY_ERROR when a page of them is not sound.
ErrorCode IndexBuilder::mergeFrom(std::size_t first, IndexPages* pages) {
    IndexSlot slot = slot_;
    const std::span<IndexRun> runs(slot.runs);
    std::uint32_t used = 0;
    std::uint32_t mergedPages = 0;
    std::uint32_t blocks = 0;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        used += runs[i].pages;
        mergedPages += i < first ? 0 : runs[i].pages;
        blocks += i < first ? 0 : runs[i].blocks;
    }
    // Appended, what is merged becomes garbage.
    constexpr std::uint32_t MOST_GARBAGE = 4;  // a quarter of the file
    const bool appends = (pages_ - INDEX_SLOTS - used + mergedPages) < pages_ / MOST_GARBAGE;
    IndexFile made;
    FileStream* target = file_.get();
    std::uint32_t end = pages_;
    bool readable = true;
    if (!appends) {
        ErrorCode code = openFile(newPath_, &made, &locked_);
        code = code == NO_ERROR ? makeFile(made.get(), slot) : code;
        if (code != NO_ERROR) {
            return code;
        }
        target = made.get();
        if (copyRuns(pages->file(), target, runs.first(first), &readable).failed()) {
            return FILE_WRITE_ERROR;
        }
        end = INDEX_SLOTS + used - mergedPages;
    }
    RunWriter merged(target, slot, end, runs[first].firstBlock, blocks);
    const std::vector<IndexPart> parts = runMerge_write(pages, std::span(slot_.runs).subspan(first), layout_, &merged);
    if (parts.empty() || !readable) {
        return CONSISTENCY_ERROR;
    }
    if (merged.finish(parts).failed()) {
        return FILE_WRITE_ERROR;
    }
    slot.runs.resize(first);
    slot.runs.push_back(merged.run());
    const IndexSlot before = slot_;
    const std::uint32_t pagesBefore = pages_;
    ErrorCode code = save(target, std::move(slot), end + merged.run().pages);
    if (code == NO_ERROR && made != nullptr) {
        code = takeName(std::move(made));
        if (code != NO_ERROR) {
            slot_ = before;
            pages_ = pagesBefore;
        }
    }
    return code;
}

}  // namespace tabulo::internal
