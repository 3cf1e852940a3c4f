#include "query/indexed_walk.h"

#include <algorithm>
#include <new>

#include "query/indexed_keys.h"
#include "query/match.h"
#include "query/message_table_iterator.h"

namespace tabulo::internal {

namespace {

// More listed messages than one in so many make no walk shorter, and more than this are not kept in memory.
constexpr std::uint64_t LISTED_SHARE = 16;
constexpr std::size_t MOST_LISTED = 1'000'000;

// Keeps the shortest list of messages that one of the conditions gives.
void listMessages(IndexedWalk* walk, const std::vector<IndexedKeys>& conditions) {
    auto most = static_cast<std::size_t>(std::min<std::uint64_t>(walk->index->messages() / LISTED_SHARE, MOST_LISTED));
    std::vector<std::uint32_t> found;
    for (const IndexedKeys& keys : conditions) {
        if (walk->index->collect(keys.part, keys.ranges, most, &found)) {
            walk->isListed = true;
            walk->messages.swap(found);
            most = walk->messages.size();
        }
    }
}

// Looks for the index, at the iterator's first step.
void begin(MessageTableIterator* iterator, TableFile* file) {
    IndexedWalk& walk = iterator->indexed;
    walk.mayAsk = false;
    const MessageTableLayout& layout = iterator->reader->layout;
    const QueryConditions& conditions = *iterator->conditions;
    try {
        const std::vector<IndexedKeys> keys = indexedKeys_of(conditions, layout);
        const bool asksRanges = query_asksRanges(conditions, layout);
        if (keys.empty() && !asksRanges) {
            return;
        }
        walk.index = sideIndex_of(iterator->table, file);
        if (walk.index != nullptr) {
            walk.marks.start = iterator->reader->storage->headerSize;  // where block 0 begins
            listMessages(&walk, keys);
        }
        if (!walk.isListed && !asksRanges) {
            walk.index.reset();
        }
    } catch (const std::bad_alloc&) {
        walk.index.reset();
    }
}

bool isRuledOut(void* owner, const RangeRecord& minimum, const RangeRecord& maximum) {
    auto* iterator = static_cast<MessageTableIterator*>(owner);
    iterator->knownSummary.minimum = minimum;
    iterator->knownSummary.maximum = maximum;
    return !query_blockMayMatch(*iterator->conditions, iterator->knownSummary, iterator->reader->layout);
}

std::uint32_t perBlock(const MessageTableIterator* iterator) {
    return static_cast<std::uint32_t>(iterator->reader->layout.messagesPerBlock);
}

// The number of the first listed message that is not in front of a block.
std::size_t listedFrom(const MessageTableIterator* iterator, std::uint32_t block) {
    const std::vector<std::uint32_t>& messages = iterator->indexed.messages;
    const std::uint64_t first = std::uint64_t{block} * perBlock(iterator);
    return static_cast<std::size_t>(std::lower_bound(messages.begin(), messages.end(), first) - messages.begin());
}

// The covered block that begins at this offset; blocks() for the end of them all. None elsewhere.
std::optional<std::uint32_t> blockAt(IndexedWalk* walk, std::int64_t offset) {
    if (offset == walk->marks.start) {
        return walk->block;
    }
    if (offset == walk->marks.end()) {
        return walk->block + 1;
    }
    const std::optional<std::uint32_t> block = walk->index->blocksBefore(offset);
    const std::optional<std::int64_t> start = block.has_value() ? walk->index->blockStart(*block) : std::nullopt;
    return start == offset ? block : std::nullopt;
}

std::optional<std::uint32_t> wantedFrom(MessageTableIterator* iterator, std::uint32_t block) {
    IndexedWalk& walk = iterator->indexed;
    if (!walk.isListed) {
        return walk.index->next(block, {iterator, isRuledOut});
    }
    const std::size_t first = listedFrom(iterator, block);
    return first == walk.messages.size() ? walk.index->blocks() : walk.messages[first] / perBlock(iterator);
}

// The last wanted block in front of one; none is blocks().
std::optional<std::uint32_t> wantedBefore(MessageTableIterator* iterator, std::uint32_t block) {
    IndexedWalk& walk = iterator->indexed;
    if (!walk.isListed) {
        return walk.index->previous(block, {iterator, isRuledOut});
    }
    const std::size_t behind = listedFrom(iterator, block);
    return behind == 0 ? walk.index->blocks() : walk.messages[behind - 1] / perBlock(iterator);
}

void leaveUnread(MessageTableIterator* iterator, std::uint32_t count) {
    if (count > 0 && iterator->match.onSkipped != nullptr) {
        iterator->match.onSkipped(iterator->match.owner, count);
    }
}

// The block becomes the one that was moved to. False when the index does not tell it.
bool moveTo(IndexedWalk* walk, std::uint32_t block) {
    walk->block = block;
    return walk->index->read(block, &walk->marks);
}

// Goes on without the index: it does not say what is needed.
void giveUp(IndexedWalk* walk) {
    walk->index.reset();
    walk->messages = {};
    walk->isInBlock = false;
}

// The wanted block from the given one on, or the first one that lies behind what the iterator covers.
std::optional<std::uint32_t> findForward(MessageTableIterator* iterator, std::uint32_t from) {
    const IndexedWalk& walk = iterator->indexed;
    const std::optional<std::uint32_t> wanted = wantedFrom(iterator, from);
    std::optional<std::uint32_t> last = walk.index->blocks();
    if (iterator->end < walk.index->end()) {
        last = walk.index->blocksBefore(iterator->end - BLOCK_LENGTH_SIZE);
    }
    if (!wanted.has_value() || !last.has_value()) {
        return std::nullopt;
    }
    return std::max(from, std::min(*wanted, *last));
}

// The block behind the last wanted one, or the first one that the iterator covers.
std::optional<std::uint32_t> findBackward(MessageTableIterator* iterator, std::uint32_t before,
                                          std::int64_t firstBlock) {
    const IndexedWalk& walk = iterator->indexed;
    const std::optional<std::uint32_t> wanted = wantedBefore(iterator, before);
    std::optional<std::uint32_t> first = 0;
    if (firstBlock > iterator->reader->storage->headerSize) {
        first = walk.index->blocksBefore(firstBlock);
    }
    if (!wanted.has_value() || !first.has_value()) {
        return std::nullopt;
    }
    const std::uint32_t behind = *wanted == walk.index->blocks() ? 0 : *wanted + 1;
    return std::min(before, std::max(behind, *first));
}

// A frame is not where the index has it: the rest of the block, and of the table, is walked over.
bool afterJump(IndexedWalk* walk, ErrorCode code) {
    if (code != NO_ERROR) {
        giveUp(walk);
    }
    return true;
}

}  // namespace

void indexedWalk_forward(MessageTableIterator* iterator, TableFile* file) noexcept {
    IndexedWalk& walk = iterator->indexed;
    if (walk.mayAsk) {
        begin(iterator, file);
    }
    if (walk.index == nullptr) {
        return;
    }
    std::int64_t& position = iterator->cursor.position;
    const std::optional<std::uint32_t> from = position < walk.index->end() ? blockAt(&walk, position) : std::nullopt;
    const std::optional<std::uint32_t> block = from.has_value() ? findForward(iterator, *from) : std::nullopt;
    // Never back: a walk ends, whatever an index says.
    if (!block.has_value() ||
        (*block < walk.index->blocks() && (!moveTo(&walk, *block) || walk.marks.start < position))) {
        giveUp(&walk);
        return;
    }
    leaveUnread(iterator, *block - *from);
    if (*block == walk.index->blocks()) {
        position = walk.index->end();
        return;
    }
    position = walk.marks.start;
    // The footer repeats the length: the block's own word need not be read first.
    iterator->reader->nextBlockStart = walk.marks.start;
    iterator->reader->nextBlockLength = static_cast<std::uint64_t>(walk.marks.length);
}

void indexedWalk_backward(MessageTableIterator* iterator, TableFile* file, std::int64_t firstBlock) noexcept {
    IndexedWalk& walk = iterator->indexed;
    if (walk.mayAsk) {
        begin(iterator, file);
    }
    std::int64_t& start = iterator->cursor.block.start;
    if (walk.index == nullptr || start > walk.index->end()) {
        return;
    }
    const std::optional<std::uint32_t> before =
        start == walk.index->end() ? walk.index->blocks() : blockAt(&walk, start);
    const std::optional<std::uint32_t> behind =
        before.has_value() ? findBackward(iterator, *before, firstBlock) : std::nullopt;
    // The block in front of it is read next: its end is where the walk goes on.
    const bool isMoved = behind.has_value() && moveTo(&walk, *behind == 0 ? 0 : *behind - 1);
    const std::int64_t next = isMoved && *behind > 0 ? walk.marks.end() : walk.marks.start;
    if (!isMoved || next > start) {
        giveUp(&walk);
        return;
    }
    leaveUnread(iterator, *before - *behind);
    start = next;
}

void indexedWalk_enterBlock(MessageTableIterator* iterator) noexcept {
    IndexedWalk& walk = iterator->indexed;
    const Block& block = iterator->cursor.block;
    walk.isInBlock = false;
    if (walk.index == nullptr || !walk.isListed || block.start != walk.marks.start) {
        return;
    }
    if (block.state != BlockState::closed || walk.marks.end() != block.framesEnd + iterator->reader->footerSize) {
        giveUp(&walk);
        return;
    }
    walk.isInBlock = true;
    walk.left = listedFrom(iterator, walk.block + (iterator->conditions->iterateBackward ? 1 : 0));
}

bool indexedWalk_nextFrame(MessageTableIterator* iterator) noexcept {
    IndexedWalk& walk = iterator->indexed;
    const std::uint64_t first = std::uint64_t{walk.block} * perBlock(iterator);
    if (walk.left > 0 && walk.messages[walk.left - 1] == first + static_cast<std::uint32_t>(iterator->indexInBlock)) {
        return true;  // it could not be read: the same one again
    }
    if (walk.left == walk.messages.size() || walk.messages[walk.left] >= first + perBlock(iterator)) {
        iterator->frames.position = iterator->cursor.block.framesEnd;
        iterator->indexInBlock = iterator->reader->layout.messagesPerBlock;
        return false;
    }
    const auto target = static_cast<std::int32_t>(walk.messages[walk.left++] - first);
    std::int32_t pieceSize = 0;
    const FrameMark mark = indexedBlock_markBefore(walk.marks, iterator->reader->layout, target, &pieceSize);
    return afterJump(&walk, frameJump_forward(&iterator->frames, mark, pieceSize, target, &iterator->indexInBlock,
                                              &iterator->current));
}

bool indexedWalk_previousFrame(MessageTableIterator* iterator) noexcept {
    IndexedWalk& walk = iterator->indexed;
    const std::uint64_t first = std::uint64_t{walk.block} * perBlock(iterator);
    const std::int32_t count = iterator->reader->layout.messagesPerBlock;
    const auto next = static_cast<std::uint32_t>(count - 1 - iterator->indexInBlock);
    if (walk.left < walk.messages.size() && walk.messages[walk.left] == first + next) {
        return true;  // it could not be read: the same one again
    }
    if (walk.left == 0 || walk.messages[walk.left - 1] < first) {
        return false;
    }
    const auto target = static_cast<std::int32_t>(walk.messages[--walk.left] - first);
    std::int32_t pieceSize = 0;
    const FrameMark mark = indexedBlock_markBehind(walk.marks, iterator->reader->layout,
                                                   iterator->cursor.block.framesEnd, target, &pieceSize);
    std::int32_t number = count - iterator->indexInBlock;
    const ErrorCode code = frameJump_backward(&iterator->frames, mark, pieceSize, target, &number, &iterator->current);
    iterator->indexInBlock = count - number;
    return afterJump(&walk, code);
}

}  // namespace tabulo::internal
