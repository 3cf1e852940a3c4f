#include "api/block_hunt.h"

#include <algorithm>
#include <cstring>

#include "core/bloom_filter.h"
#include "messagetable/block_summary.h"
#include "messagetable/frame.h"

namespace tabulo::api {

namespace {

constexpr std::int64_t WORD = internal::BLOCK_LENGTH_SIZE;
constexpr std::int64_t RECORD_SIZE = 36;  // of a footer's smallest and largest values, without the numbers

}  // namespace

std::int64_t BlockHunt::smallestBlock() const {
    return WORD + std::int64_t{table_.layout.messagesPerBlock} * table_.smallestFrame() + table_.footerSize();
}

bool BlockHunt::isFooter(std::int64_t blockStart, std::int64_t footerEnd, std::int64_t end, bool startIsKnown) {
    const std::int64_t footerStart = footerEnd - table_.footerSize();
    if (footerStart < 0) {
        return false;
    }
    std::uint64_t word = 0;
    std::uint64_t trailing = 0;
    const bool agree =
        table_.bytes.get(blockStart, &word) && table_.bytes.get(footerEnd - WORD, &trailing) && word == trailing;
    // Sparse filters have equal numbers by chance.
    if (agree && !startIsKnown && (frames_.frameAt(blockStart + WORD, end) != 0 || beginsAt(footerEnd, end))) {
        return true;
    }
    const bool hasFilters = table_.layout.summarisedStringFieldCount > 0;
    if (hasFilters) {
        // Looked at first because it is cheap, and the bit count of the first filter is hardly ever met by chance.
        std::uint32_t bits = 0;
        const std::int64_t records =
            2 * (RECORD_SIZE + std::int64_t{internal::FIXED_NUMERIC_SIZE} * table_.layout.numericFieldCount);
        if (!table_.bytes.get(footerStart + records, &bits) || bits != internal::BLOOM_FILTER_BITS) {
            return false;
        }
    }
    internal::BlockReader* reader = table_.blocks.get();
    std::uint64_t length = 0;
    internal::ErrorCode code = internal::blockReader_readFooterBefore(reader, table_.file.get(), footerEnd, &length);
    if (code == internal::NO_ERROR) {
        code = internal::blockReader_takeFooter(reader, length);
    }
    reader->nextBlockStart = 0;
    if (code == internal::HEADER_CORRUPTED_ERROR || code == internal::CONSISTENCY_ERROR) {
        return false;
    }
    table_.call.check(code);
    if (startIsKnown || agree || (blockStart < 0 && hasFilters)) {
        return true;
    }
    if (blockStart < 0) {
        return endsFrame(footerStart);
    }
    // Without filters other bytes parse, too, and a number among them can lead to a frame by chance.
    return frames_.frameAt(blockStart + WORD, end) != 0 &&
           (hasFilters || endsFrame(footerStart) || beginsAt(footerEnd, end));
}

bool BlockHunt::endsFrame(std::int64_t offset) {
    std::uint32_t length = 0;
    return table_.bytes.get(offset - internal::FRAME_LENGTH_SIZE, &length) && length <= offset &&
           frames_.frameAt(offset - std::int64_t{length}, offset) == length;
}

std::optional<FooterPlace> BlockHunt::footer(std::int64_t from, std::int64_t end, std::optional<std::int64_t> start,
                                             std::int64_t floor) {
    const std::int64_t lowest = start.value_or(floor);
    const std::int64_t smallest = smallestBlock();
    std::int64_t place = std::max(from + table_.footerSize(), lowest + smallest) - WORD;  // of a length
    while (place + WORD <= end) {
        meter_.checkStop();
        const std::span<const std::uint8_t> piece = table_.bytes.from(place, end, static_cast<std::size_t>(WORD));
        const auto words = static_cast<std::int64_t>(piece.size()) - WORD + 1;
        std::int64_t i = 0;
        for (std::uint64_t length = 0; i < words; ++i) {
            std::memcpy(&length, piece.data() + i, sizeof(length));
            const std::int64_t footerEnd = place + i + WORD;
            if (length < static_cast<std::uint64_t>(smallest) ||
                length > static_cast<std::uint64_t>(footerEnd - lowest)) {
                continue;
            }
            const std::int64_t blockStart = footerEnd - static_cast<std::int64_t>(length);
            if (isFooter(blockStart, footerEnd, end, blockStart == start)) {
                return FooterPlace{blockStart, footerEnd};
            }
            i += 1;
            break;  // what was asked meanwhile may have moved the piece
        }
        if (words <= 0) {
            break;
        }
        place += i;
    }
    return std::nullopt;
}

bool BlockHunt::beginsAt(std::int64_t offset, std::int64_t end) {
    std::uint64_t word = 0;
    std::uint64_t trailing = 0;
    if (offset >= end || !table_.bytes.get(offset, &word)) {
        return offset == end;
    }
    if (word == 0) {
        return frames_.frameAt(offset + WORD, end) != 0;
    }
    return internal::blockReader_isLength(*table_.blocks, word, end - offset) &&
           table_.bytes.get(offset + static_cast<std::int64_t>(word) - WORD, &trailing) && trailing == word;
}

BlockExtent BlockHunt::extent(std::int64_t start, std::int64_t framesEnd, std::int64_t count, std::int64_t end) {
    const std::int64_t footerSize = table_.footerSize();
    const auto known = [&](std::int64_t next) { return BlockExtent{next - footerSize, next, true}; };
    std::uint64_t word = 0;
    std::int64_t byWord = 0;
    if (table_.bytes.get(start, &word) && internal::blockReader_isLength(*table_.blocks, word, end - start)) {
        byWord = start + static_cast<std::int64_t>(word);
        std::uint64_t trailing = 0;
        if ((table_.bytes.get(byWord - WORD, &trailing) && trailing == word) || beginsAt(byWord, end)) {
            return known(byWord);
        }
    }
    if (count == table_.layout.messagesPerBlock && framesEnd + footerSize <= end) {
        return known(framesEnd + footerSize);
    }
    const std::optional<FooterPlace> place = footer(framesEnd, end, start, start);
    if (!place.has_value()) {
        return {end, end, false};
    }
    if (place->blockStart == start) {
        return known(place->end);
    }
    if (place->blockStart == byWord) {
        return known(byWord);
    }
    // In front of a block that is not the first stands another one's footer.
    return {std::max(framesEnd, place->blockStart - footerSize), place->blockStart, false};
}

}  // namespace tabulo::api
