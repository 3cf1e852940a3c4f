#include "messagetable/known_blocks.h"

#include <algorithm>
#include <new>

#include "messagetable/message_class.h"

namespace tabulo::internal {

void KnownBlocks::forget() noexcept {
    inFront_.clear();
    behind_.clear();
}

void KnownBlocks::follow(const TableStorage& storage) noexcept {
    if (openings_ != storage.openings) {
        forget();
        openings_ = storage.openings;
    }
}

void KnownBlocks::reserve(const BlockReader& reader, const TableFile& file) noexcept {
    const std::int64_t smallest = BLOCK_LENGTH_SIZE + reader.footerSize + reader.layout.messagesPerBlock;
    const auto most = std::min(static_cast<std::size_t>(tableFileCachedSize(&file) / smallest), MOST_KNOWN_BLOCKS);
    try {
        lastFooter_.resize(static_cast<std::size_t>(reader.footerSize));
        for (std::vector<KnownBlock>* blocks : {&inFront_, &behind_}) {
            if (blocks->capacity() < most) {
                blocks->reserve(std::max(most, 2 * blocks->capacity()));
            }
        }
    } catch (const std::bad_alloc&) {
        forget();
    }
}

bool KnownBlocks::isLastFooter(const BlockReader& reader) const noexcept {
    return std::equal(lastFooter_.begin(), lastFooter_.end(), byteStream_buffer(reader.footer.get()));
}

void KnownBlocks::add(const BlockCursor& cursor) noexcept {
    const BlockReader& reader = *cursor.reader;
    if (cursor.block.state != BlockState::closed || lastFooter_.empty()) {
        return;
    }
    const std::int64_t start = cursor.block.start;
    const std::int64_t end = cursor.block.framesEnd + reader.footerSize;
    if (count() > 0 && at(count() - 1).start == start) {
        isConfirmed_ = isLastFooter(reader);
        if (isConfirmed_) {
            return;
        }
        forget();
    }
    const bool isLast = count() == 0 || (isConfirmed_ && at(count() - 1).end == start);
    const bool isFirst = !isLast && isConfirmed_ && at(0).start == end;
    std::vector<KnownBlock>& blocks = isFirst ? inFront_ : behind_;
    if ((!isLast && !isFirst) || blocks.size() >= std::min(blocks.capacity(), MOST_KNOWN_BLOCKS)) {
        return;
    }
    if (isLast) {
        std::copy_n(byteStream_buffer(reader.footer.get()), lastFooter_.size(), lastFooter_.begin());
    }
    const RangeRecord& smallest = reader.summary.minimum;
    const RangeRecord& largest = reader.summary.maximum;
    blocks.push_back({start, end, smallest.seqNum, largest.seqNum, smallest.uniformId, largest.uniformId,
                      smallest.timestamp, largest.timestamp});
    isConfirmed_ = true;
}

bool KnownBlocks::confirm(BlockReader* reader, TableFile* file) noexcept {
    std::uint64_t length = 0;
    isConfirmed_ = count() > 0 &&
                   blockReader_readFooterBefore(reader, file, at(count() - 1).end, &length) == NO_ERROR &&
                   isLastFooter(*reader);
    if (!isConfirmed_) {
        forget();
    }
    return isConfirmed_;
}

void KnownBlocks::confirmBefore(std::int64_t start, BlockReader* reader, TableFile* file) noexcept {
    if (!isConfirmed_ && count() > 0 && at(count() - 1).end == start) {
        (void)confirm(reader, file);  // what it comes to is kept
    }
}

void KnownBlocks::confirmBehind(std::int64_t end, BlockReader* reader, TableFile* file) noexcept {
    if (!isConfirmed_ && count() > 0 && at(0).start == end) {
        (void)confirm(reader, file);  // what it comes to is kept
    }
}

const KnownBlock& KnownBlocks::at(std::size_t number) const noexcept {
    return number < inFront_.size() ? inFront_[inFront_.size() - 1 - number] : behind_[number - inFront_.size()];
}

std::optional<std::size_t> KnownBlocks::beginningAt(std::int64_t offset) const noexcept {
    std::size_t first = 0;
    for (std::size_t left = count(); left > 0;) {
        const std::size_t half = left / 2;
        const bool isBelow = at(first + half).start < offset;
        first += isBelow ? half + 1 : 0;
        left = isBelow ? left - half - 1 : half;
    }
    return first < count() && at(first).start == offset ? std::optional(first) : std::nullopt;
}

std::optional<std::size_t> KnownBlocks::endingAt(std::int64_t offset) const noexcept {
    if (count() > 0 && at(count() - 1).end == offset) {
        return count() - 1;
    }
    const std::optional<std::size_t> next = beginningAt(offset);
    return next.has_value() && *next > 0 ? std::optional(*next - 1) : std::nullopt;
}

void knownBlock_summarise(const KnownBlock& block, BlockSummary* summary) noexcept {
    RangeRecord& smallest = summary->minimum;
    RangeRecord& largest = summary->maximum;
    smallest.seqNum = block.smallestSeqNum;
    largest.seqNum = block.largestSeqNum;
    smallest.uniformId = block.smallestUniformId;
    largest.uniformId = block.largestUniformId;
    smallest.timestamp = block.smallestTime;
    largest.timestamp = block.largestTime;
    for (std::size_t c = 0; c < smallest.connMsgIds.size(); ++c) {
        smallest.connMsgIds[c] = connMsgClassFirstId(static_cast<MessageClass>(c));
        largest.connMsgIds[c] = connMsgClassLastId(static_cast<MessageClass>(c));
    }
    for (std::size_t i = 0; i < smallest.numericValues.size(); ++i) {
        smallest.numericValues[i] = {};
        largest.numericValues[i] = numericValue_ofLong(0);  // of another type than the smallest: it tells nothing
    }
}

}  // namespace tabulo::internal
