#include "index/block_map.h"

#include <algorithm>

namespace tabulo::internal {

namespace {

constexpr std::size_t COUNT_OFFSET = 8;
constexpr std::size_t RECORDS_OFFSET = 16;
constexpr std::int32_t BLOCK_FIXED_SIZE = 40;

std::uint32_t perPage(std::int32_t recordSize) {
    return static_cast<std::uint32_t>((INDEX_PAGE_SIZE - RECORDS_OFFSET) / static_cast<std::size_t>(recordSize));
}

std::int32_t blockSize(const MessageTableLayout& layout) {
    return BLOCK_FIXED_SIZE + 2 * rangeRecord_size(layout) +
           static_cast<std::int32_t>(sizeof(std::uint32_t) * FRAME_MARKS);
}

std::int32_t rangesSize(const MessageTableLayout& layout) {
    return static_cast<std::int32_t>(sizeof(std::int64_t)) + 2 * rangeRecord_size(layout);
}

// A stream over a record of a page, which holds this many bytes.
KSVByteStream recordAt(const IndexPage& page, std::uint32_t record, std::int32_t size, std::int32_t filled) {
    KSVByteStream stream;
    const std::size_t offset = RECORDS_OFFSET + record * static_cast<std::size_t>(size);
    byteStream_init(&stream, const_cast<std::uint8_t*>(page.bytes.data()) + offset, size);
    (void)byteStream_resetWrite(&stream, filled);  // within the stream's capacity
    return stream;
}

void writeRanges(const RangeRecord& minimum, const RangeRecord& maximum, const MessageTableLayout& layout,
                 KSVByteStream* stream) {
    rangeRecord_write(minimum, layout, stream);
    rangeRecord_write(maximum, layout, stream);
}

bool readBoth(RangeRecord* minimum, RangeRecord* maximum, const MessageTableLayout& layout, KSVByteStream* stream) {
    return rangeRecord_read(minimum, layout, stream) == NO_ERROR &&
           rangeRecord_read(maximum, layout, stream) == NO_ERROR;
}

// The rule of range_compare: a minimum above its maximum rules nothing out.
template <typename T>
void join(T* minimum, T* maximum, T otherMinimum, T otherMaximum) {
    if (*minimum > *maximum) {
        return;
    }
    if (otherMinimum > otherMaximum) {
        *minimum = otherMinimum;
        *maximum = otherMaximum;
        return;
    }
    *minimum = std::min(*minimum, otherMinimum);
    *maximum = std::max(*maximum, otherMaximum);
}

// A class whose minimum is above its maximum has no ids.
void joinIds(std::int32_t* minimum, std::int32_t* maximum, std::int32_t otherMinimum, std::int32_t otherMaximum) {
    if (otherMinimum > otherMaximum) {
        return;
    }
    const bool wasNone = *minimum > *maximum;
    *minimum = wasNone ? otherMinimum : std::min(*minimum, otherMinimum);
    *maximum = wasNone ? otherMaximum : std::max(*maximum, otherMaximum);
}

// Ends of two types tell nothing; two absent ones that there is no value.
void joinNumbers(NumericValue* minimum, NumericValue* maximum, const NumericValue& otherMinimum,
                 const NumericValue& otherMaximum) {
    const bool isNone = otherMinimum.type == NumericType::absent && otherMaximum.type == NumericType::absent;
    const bool wasNone = minimum->type == NumericType::absent && maximum->type == NumericType::absent;
    if (isNone) {
        return;
    }
    if (wasNone) {
        *minimum = otherMinimum;
        *maximum = otherMaximum;
        return;
    }
    const std::array<NumericValue, 4> all{*minimum, *maximum, otherMinimum, otherMaximum};
    const bool tells = std::all_of(all.begin(), all.end(), [&](const NumericValue& value) {
        return value.type == minimum->type && !numericValue_isNaN(value);
    });
    if (!tells) {
        *minimum = {};
        *maximum = numericValue_ofLong(0);
    } else if (minimum->type == NumericType::longValue) {
        join(&minimum->longValue, &maximum->longValue, otherMinimum.longValue, otherMaximum.longValue);
    } else {
        join(&minimum->doubleValue, &maximum->doubleValue, otherMinimum.doubleValue, otherMaximum.doubleValue);
    }
}

}  // namespace

void blockRanges_begin(BlockRanges* ranges, const IndexedBlock& block) noexcept {
    *ranges = {block.start, block.minimum, block.maximum};
}

void blockRanges_add(BlockRanges* ranges, const RangeRecord& minimum, const RangeRecord& maximum) noexcept {
    join(&ranges->minimum.seqNum, &ranges->maximum.seqNum, minimum.seqNum, maximum.seqNum);
    join(&ranges->minimum.uniformId, &ranges->maximum.uniformId, minimum.uniformId, maximum.uniformId);
    join(&ranges->minimum.timestamp, &ranges->maximum.timestamp, minimum.timestamp, maximum.timestamp);
    for (std::size_t c = 0; c < minimum.connMsgIds.size(); ++c) {
        joinIds(&ranges->minimum.connMsgIds[c], &ranges->maximum.connMsgIds[c], minimum.connMsgIds[c],
                maximum.connMsgIds[c]);
    }
    for (std::size_t i = 0; i < minimum.numericValues.size(); ++i) {
        joinNumbers(&ranges->minimum.numericValues[i], &ranges->maximum.numericValues[i], minimum.numericValues[i],
                    maximum.numericValues[i]);
    }
}

BlockMapWriter::BlockMapWriter(RunWriter* run, const MessageTableLayout& layout) : run_(run), layout_(layout) {
}

void BlockMapWriter::add(const IndexedBlock& block) {
    if (count_ == perPage(blockSize(layout_))) {
        putLeaf();
    }
    if (count_ == 0) {
        page_ = {};
        blockRanges_begin(&ranges_.emplace_back(), block);
    } else {
        blockRanges_add(&ranges_.back(), block.minimum, block.maximum);
    }
    KSVByteStream stream = recordAt(page_, count_, blockSize(layout_), 0);
    byteStream_put(&stream, block.start);
    byteStream_put(&stream, block.length);
    byteStream_put(&stream, static_cast<std::uint32_t>(block.uniformIdsAscend ? 1 : 0));
    for (const std::uint32_t number : block.classCounts) {
        byteStream_put(&stream, number);
    }
    writeRanges(block.minimum, block.maximum, layout_, &stream);
    for (const std::uint32_t offset : block.frameOffsets) {
        byteStream_put(&stream, offset);
    }
    count_ += 1;
}

void BlockMapWriter::putLeaf() {
    page_.put(COUNT_OFFSET, count_);
    const std::uint32_t number = run_->append(&page_);
    part_.firstPage = part_.leaves == 0 ? number : part_.firstPage;
    part_.leaves += 1;
    count_ = 0;
}

IndexPart BlockMapWriter::finish() {
    if (count_ > 0) {
        putLeaf();
    }
    const std::int32_t size = rangesSize(layout_);
    while (ranges_.size() > 1) {
        std::vector<BlockRanges> above;
        for (std::size_t first = 0; first < ranges_.size(); first += perPage(size)) {
            const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(perPage(size), ranges_.size() - first));
            IndexPage page;
            page.put(COUNT_OFFSET, count);
            for (std::uint32_t i = 0; i < count; ++i) {
                const BlockRanges& ranges = ranges_[first + i];
                KSVByteStream stream = recordAt(page, i, size, 0);
                byteStream_put(&stream, ranges.start);
                writeRanges(ranges.minimum, ranges.maximum, layout_, &stream);
                if (i == 0) {
                    above.push_back(ranges);
                } else {
                    blockRanges_add(&above.back(), ranges.minimum, ranges.maximum);
                }
            }
            (void)run_->append(&page);  // its number follows from those of the leaves
        }
        ranges_ = std::move(above);
    }
    return part_;
}

BlockMap::BlockMap(IndexPages* pages, const IndexRun& run, const MessageTableLayout& layout) noexcept
    : pages_(pages),
      run_(run),
      layout_(layout),
      levels_(
          indexRun_levels(indexRun_part(pages, run, BLOCK_PART).value_or(IndexPart{}), perPage(rangesSize(layout)))) {
}

bool BlockMap::read(std::uint32_t block, IndexedBlock* found) noexcept {
    const std::int32_t size = blockSize(layout_);
    const std::uint32_t leaf = block / perPage(size);
    const std::uint32_t record = block % perPage(size);
    const IndexPage* page =
        leaf < levels_.levels[0].pages ? pages_->page(run_, levels_.levels[0].firstPage + leaf) : nullptr;
    if (page == nullptr || record >= page->get<std::uint32_t>(COUNT_OFFSET)) {
        return false;
    }
    KSVByteStream stream = recordAt(*page, record, size, size);
    std::uint32_t ascends = 0;
    byteStream_get(&stream, &found->start);
    byteStream_get(&stream, &found->length);
    byteStream_get(&stream, &ascends);
    found->uniformIdsAscend = ascends == 1;
    for (std::uint32_t& number : found->classCounts) {
        byteStream_get(&stream, &number);
    }
    if (!readBoth(&found->minimum, &found->maximum, layout_, &stream)) {
        return false;
    }
    for (std::uint32_t& offset : found->frameOffsets) {
        byteStream_get(&stream, &offset);
    }
    return found->start >= 0 && found->length > 0 && found->start <= INT64_MAX - found->length;
}

std::uint64_t BlockMap::span(std::size_t level) const noexcept {
    std::uint64_t blocks = perPage(blockSize(layout_));
    for (std::size_t i = 1; i < level; ++i) {
        blocks *= perPage(rangesSize(layout_));
    }
    return blocks;
}

bool BlockMap::readRanges(std::size_t level, std::uint32_t entry, BlockRanges* found) noexcept {
    const std::int32_t size = rangesSize(layout_);
    const std::uint32_t number = entry / perPage(size);
    const std::uint32_t record = entry % perPage(size);
    const IndexLevel& above = levels_.levels[level];
    const IndexPage* page = number < above.pages ? pages_->page(run_, above.firstPage + number) : nullptr;
    if (page == nullptr || record >= page->get<std::uint32_t>(COUNT_OFFSET)) {
        return false;
    }
    KSVByteStream stream = recordAt(*page, record, size, size);
    byteStream_get(&stream, &found->start);
    return readBoth(&found->minimum, &found->maximum, layout_, &stream);
}

}  // namespace tabulo::internal
