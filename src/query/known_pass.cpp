#include "query/known_pass.h"

#include <optional>

#include "messagetable/known_blocks.h"
#include "query/match.h"

namespace tabulo::internal {

namespace {

// Passing fewer blocks takes as many reads as asking each.
constexpr std::size_t SHORTEST_PASS = 3;

bool isRuledOut(MessageTableIterator* iterator, const KnownBlock& block) {
    knownBlock_summarise(block, &iterator->knownSummary);
    return !query_blockMayMatch(*iterator->conditions, iterator->knownSummary, iterator->reader->layout);
}

void leaveUnread(MessageTableIterator* iterator, std::size_t count) {
    if (iterator->match.onSkipped != nullptr) {
        iterator->match.onSkipped(iterator->match.owner, static_cast<std::int64_t>(count));
    }
}

}  // namespace

void knownPass_forward(MessageTableIterator* iterator, TableFile* file) noexcept {
    KnownBlocks& known = mt_knownBlocks(iterator->table);
    const std::optional<std::size_t> first = known.beginningAt(iterator->cursor.position);
    if (!first.has_value()) {
        if (iterator->indexed.index == nullptr) {  // else nothing more need be kept
            known.confirmBefore(iterator->cursor.position, iterator->reader.get(), file);
        }
        return;
    }
    std::size_t behind = *first;
    while (behind < known.count() && known.at(behind).start + BLOCK_LENGTH_SIZE < iterator->end &&
           isRuledOut(iterator, known.at(behind))) {
        ++behind;
    }
    if (behind - *first < SHORTEST_PASS || !known.confirm(iterator->reader.get(), file)) {
        return;
    }
    leaveUnread(iterator, behind - *first);
    iterator->cursor.position = known.at(behind - 1).end;
}

void knownPass_backward(MessageTableIterator* iterator, TableFile* file, std::int64_t firstBlock) noexcept {
    KnownBlocks& known = mt_knownBlocks(iterator->table);
    Block& block = iterator->cursor.block;
    const std::optional<std::size_t> last = known.endingAt(block.start);
    if (!last.has_value()) {
        if (iterator->indexed.index == nullptr) {  // else nothing more need be kept
            known.confirmBehind(block.start, iterator->reader.get(), file);
        }
        return;
    }
    std::size_t first = *last + 1;
    while (first > 0 && known.at(first - 1).start >= firstBlock && isRuledOut(iterator, known.at(first - 1))) {
        --first;
    }
    if (*last + 1 - first < SHORTEST_PASS || !known.confirm(iterator->reader.get(), file)) {
        return;
    }
    leaveUnread(iterator, *last + 1 - first);
    block.start = known.at(first).start;
}

}  // namespace tabulo::internal
