#include "index/side_index.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "index/table_identity.h"
#include "messagetable/block_writer.h"

namespace tabulo::internal {

namespace {

bool isRuledOut(const RangeRule& rule, const RangeRecord& minimum, const RangeRecord& maximum) {
    return rule.rulesOut(rule.owner, minimum, maximum);
}

bool readSlots(const SideFile& file, IndexSlotPages* pages) {
    return file.readAt(0, pages->data(), sizeof(IndexSlotPages));
}

std::shared_ptr<SideIndex> openIndex(const std::string& path, const MessageTableLayout& layout) {
    SideFile file;
    IndexSlotPages pages;
    if (!file.open(path.c_str()) || !readSlots(file, &pages)) {
        return nullptr;
    }
    std::optional<IndexSlot> slot = indexSlot_choose(pages);
    if (!slot.has_value()) {
        return nullptr;
    }
    return std::make_shared<SideIndex>(path, IndexPages(std::move(file), std::move(*slot)), pages, layout);
}

bool belongsTo(const SideIndex& index, TableFile* file, TableStorage* storage, const MessageTableLayout& layout) {
    const IndexSlot& slot = index.slot();
    return slot.coveredBlocks > 0 && tableIdentity_read(file, storage->headerSize) == slot.identity &&
           footerChecksum_read(file, slot.coveredEnd, blockWriter_footerSize(storage, layout)) == slot.lastFooter;
}

std::shared_ptr<SideIndex> currentOf(MessageTable* table, TableFile* file) {
    std::shared_ptr<void>& kept = mt_sideIndex(table);
    auto index = std::static_pointer_cast<SideIndex>(kept);
    if (index == nullptr || !index->isCurrent()) {
        kept.reset();
        index = openIndex(file->path + std::string(INDEX_SUFFIX), mt_layout(table));
        kept = index;
    }
    const bool belongs = index != nullptr && belongsTo(*index, file, mt_storage(table), mt_layout(table));
    return belongs ? index : nullptr;
}

}  // namespace

SideIndex::SideIndex(std::string path, IndexPages pages, const IndexSlotPages& slotPages,
                     const MessageTableLayout& layout)
    : path_(std::move(path)), slotPages_(slotPages), layout_(layout), pages_(std::move(pages)) {
}

bool SideIndex::isCurrent() const noexcept {
    IndexSlotPages now;
    return pages_.file().isAt(path_.c_str()) && readSlots(pages_.file(), &now) &&
           std::memcmp(&now, &slotPages_, sizeof(now)) == 0;
}

std::uint64_t SideIndex::messages() const noexcept {
    return std::uint64_t{blocks()} * static_cast<std::uint64_t>(layout_.messagesPerBlock);
}

const IndexRun* SideIndex::runOf(std::uint32_t block) const noexcept {
    const std::vector<IndexRun>& runs = slot().runs;
    const auto behind =
        std::upper_bound(runs.begin(), runs.end(), block,
                         [](std::uint32_t number, const IndexRun& run) { return number < run.firstBlock; });
    return block < blocks() ? &*(behind - 1) : nullptr;
}

bool SideIndex::read(std::uint32_t block, IndexedBlock* found) {
    const IndexRun* run = runOf(block);
    return run != nullptr && BlockMap(&pages_, *run, layout_).read(block - run->firstBlock, found) &&
           found->end() <= end();
}

std::optional<std::int64_t> SideIndex::blockStart(std::uint32_t block) {
    IndexedBlock found;
    if (block >= blocks()) {
        return end();
    }
    return read(block, &found) ? std::optional(found.start) : std::nullopt;
}

std::optional<std::uint32_t> SideIndex::blocksBefore(std::int64_t offset) {
    if (offset >= end()) {
        return blocks();
    }
    std::uint32_t first = 0;
    for (std::uint32_t left = blocks(); left > 0;) {
        const std::uint32_t half = left / 2;
        const std::optional<std::int64_t> start = blockStart(first + half);
        if (!start.has_value()) {
            return std::nullopt;
        }
        const bool isBefore = *start < offset;
        first += isBefore ? half + 1 : 0;
        left = isBefore ? left - half - 1 : half;
    }
    return first;
}

std::optional<std::uint32_t> SideIndex::next(std::uint32_t block, const RangeRule& rule) {
    bool isFirst = true;  // at other times a level is asked where one of its stretches begins
    while (block < blocks()) {
        const IndexRun& run = *runOf(block);
        BlockMap map(&pages_, run, layout_);
        const std::uint32_t inRun = block - run.firstBlock;
        std::uint64_t passed = 0;  // blocks that are ruled out, from `block` on
        for (std::size_t level = map.levelCount(); level-- > 1 && passed == 0;) {
            const std::uint64_t span = map.span(level);
            BlockRanges ranges;
            if (!isFirst && inRun % span != 0) {
                continue;
            }
            if (!map.readRanges(level, static_cast<std::uint32_t>(inRun / span), &ranges)) {
                return std::nullopt;
            }
            passed = isRuledOut(rule, ranges.minimum, ranges.maximum) ? span - inRun % span : 0;
        }
        if (passed == 0) {
            IndexedBlock found;
            if (!map.read(inRun, &found)) {
                return std::nullopt;
            }
            if (!isRuledOut(rule, found.minimum, found.maximum)) {
                return block;
            }
            passed = 1;
        }
        block += static_cast<std::uint32_t>(std::min<std::uint64_t>(passed, run.blocks - inRun));
        isFirst = false;
    }
    return blocks();
}

std::optional<std::uint32_t> SideIndex::previous(std::uint32_t block, const RangeRule& rule) {
    bool isFirst = true;
    while (block > 0) {
        const IndexRun& run = *runOf(block - 1);
        BlockMap map(&pages_, run, layout_);
        const std::uint32_t inRun = block - 1 - run.firstBlock;
        std::uint64_t passed = 0;
        for (std::size_t level = map.levelCount(); level-- > 1 && passed == 0;) {
            const std::uint64_t span = map.span(level);
            BlockRanges ranges;
            if (!isFirst && (inRun + 1) % span != 0 && inRun + 1 != run.blocks) {
                continue;
            }
            if (!map.readRanges(level, static_cast<std::uint32_t>(inRun / span), &ranges)) {
                return std::nullopt;
            }
            passed = isRuledOut(rule, ranges.minimum, ranges.maximum) ? inRun % span + 1 : 0;
        }
        if (passed == 0) {
            IndexedBlock found;
            if (!map.read(inRun, &found)) {
                return std::nullopt;
            }
            if (!isRuledOut(rule, found.minimum, found.maximum)) {
                return block - 1;
            }
            passed = 1;
        }
        block -= static_cast<std::uint32_t>(passed);
        isFirst = false;
    }
    return blocks();
}

bool SideIndex::collect(std::uint32_t part, std::span<const KeyRange> ranges, std::size_t most,
                        std::vector<std::uint32_t>* found) {
    found->clear();
    for (const IndexRun& run : slot().runs) {
        const std::uint64_t first =
            std::uint64_t{run.firstBlock} * static_cast<std::uint64_t>(layout_.messagesPerBlock);
        for (const KeyRange& range : ranges) {
            KeyMapCursor cursor(&pages_, run, part, range.first);
            while (cursor.next() && cursor.key() <= range.last) {
                if (found->size() == most) {
                    return false;
                }
                found->push_back(static_cast<std::uint32_t>(first + cursor.message()));
            }
            if (!cursor.isSound()) {
                return false;
            }
        }
    }
    std::sort(found->begin(), found->end());
    found->erase(std::unique(found->begin(), found->end()), found->end());
    return found->empty() || found->back() < messages();
}

std::optional<std::uint64_t> SideIndex::lowest(std::uint32_t part, std::uint32_t block, std::uint32_t key) {
    const IndexRun* run = runOf(block);
    if (run == nullptr) {
        return std::nullopt;
    }
    KeyMapCursor cursor(&pages_, *run, part, key);
    if (!cursor.next()) {
        return cursor.isSound() ? std::optional(messages()) : std::nullopt;
    }
    return std::uint64_t{run->firstBlock} * static_cast<std::uint64_t>(layout_.messagesPerBlock) + cursor.message();
}

std::shared_ptr<SideIndex> sideIndex_of(MessageTable* table, TableFile* file) noexcept {
    try {
        return mt_usesSideIndex(table) ? currentOf(table, file) : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

FrameMark indexedBlock_markBefore(const IndexedBlock& block, const MessageTableLayout& layout, std::int32_t number,
                                  std::int32_t* pieceSize) noexcept {
    const std::int32_t step = blockMap_markStep(layout);
    const auto mark = static_cast<std::size_t>(number / step);
    const std::int64_t offset = block.frameOffsets[mark];
    const bool isLast = mark + 1 == FRAME_MARKS || block.frameOffsets[mark + 1] == 0;
    const std::int64_t behind = isLast ? block.length : block.frameOffsets[mark + 1];
    *pieceSize = static_cast<std::int32_t>(std::clamp<std::int64_t>(behind - offset, 0, BLOCK_PIECE_SIZE));
    return {block.start + std::max<std::int64_t>(offset, BLOCK_LENGTH_SIZE), offset == 0 ? 0 : number / step * step};
}

FrameMark indexedBlock_markBehind(const IndexedBlock& block, const MessageTableLayout& layout, std::int64_t framesEnd,
                                  std::int32_t number, std::int32_t* pieceSize) noexcept {
    const std::int32_t step = blockMap_markStep(layout);
    const auto mark = static_cast<std::size_t>(number / step) + 1;
    const bool isEnd = mark >= FRAME_MARKS || block.frameOffsets[mark] == 0;
    const FrameMark found =
        isEnd ? FrameMark{framesEnd, layout.messagesPerBlock}
              : FrameMark{block.start + block.frameOffsets[mark], static_cast<std::int32_t>(mark) * step};
    const std::int64_t before = block.frameOffsets[mark - 1];
    *pieceSize =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(found.offset - block.start - before, 0, BLOCK_PIECE_SIZE));
    return found;
}

}  // namespace tabulo::internal
