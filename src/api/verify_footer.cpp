// The footer of a block against the messages of the block.
#include <cmath>
#include <cstring>
#include <utility>

#include "api/verify_block.h"
#include "core/bloom_filter.h"

namespace tabulo::api {

namespace {

constexpr std::int64_t WORD = internal::BLOCK_LENGTH_SIZE;
constexpr std::int64_t IDS_OFFSET = 16;
constexpr std::int64_t NUMBERS_OFFSET = 36;
constexpr const char* CLASS_IDS[] = {"APP_FROM id", "APP_TO id", "ADMIN_FROM id", "ADMIN_TO id", "RESENT id"};

std::int64_t recordSize(const internal::MessageTableLayout& layout) {
    return NUMBERS_OFFSET + std::int64_t{internal::FIXED_NUMERIC_SIZE} * layout.numericFieldCount;
}

bool sameNumber(const internal::NumericValue& left, const internal::NumericValue& right) {
    return left.type == right.type && (left.type == internal::NumericType::absent || left.longValue == right.longValue);
}

bool below(const internal::NumericValue& left, const internal::NumericValue& right) {
    if (left.type == internal::NumericType::doubleValue) {
        return left.doubleValue < right.doubleValue;
    }
    return left.longValue < right.longValue;
}

std::string shown(const internal::NumericValue& value) {
    switch (value.type) {
        case internal::NumericType::doubleValue:
            return std::to_string(value.doubleValue);
        case internal::NumericType::longValue:
            return std::to_string(value.longValue);
        default:
            return "absent";
    }
}

std::string disagreement(const std::string& what, const std::string& stored, const std::string& found) {
    return what + " is " + stored + " in the footer and " + found + " in the messages";
}

// The ranges of one footer beside those of the messages, field by field.
struct RangeComparison {
    const internal::RangeRecord& stored;
    const internal::RangeRecord& found;
    bool isMinimum;
    // Messages were lost: the stored range may be wider, as far as what is left tells.
    bool lost;
    std::vector<std::pair<std::int64_t, std::string>> differences;

    const char* side() const { return isMinimum ? "the smallest " : "the largest "; }

    template <typename T>
    void compare(std::int64_t offset, const std::string& what, T storedValue, T foundValue) {
        const bool isWider = isMinimum ? storedValue <= foundValue : storedValue >= foundValue;
        if (lost ? !isWider : storedValue != foundValue) {
            differences.emplace_back(
                offset, disagreement(side() + what, std::to_string(storedValue), std::to_string(foundValue)));
        }
    }

    void compareNumber(std::int64_t offset, std::int32_t field) {
        const auto& storedValue = stored.numericValues[static_cast<std::size_t>(field)];
        const auto& foundValue = found.numericValues[static_cast<std::size_t>(field)];
        // A value of the other type that was lost has made the range one of doubles that excludes nothing.
        const bool mayBeWider = foundValue.type == internal::NumericType::absent ||
                                storedValue.type != foundValue.type ||
                                !(isMinimum ? below(foundValue, storedValue) : below(storedValue, foundValue));
        if (lost ? !mayBeWider : !sameNumber(storedValue, foundValue)) {
            differences.emplace_back(offset, disagreement(side() + ("number " + std::to_string(field)),
                                                          shown(storedValue), shown(foundValue)));
        }
    }

    void compareAll(const internal::MessageTableLayout& layout) {
        compare(0, "sequence number", stored.seqNum, found.seqNum);
        compare(4, "uniform id", stored.uniformId, found.uniformId);
        compare(8, "time", stored.timestamp, found.timestamp);
        for (std::size_t i = 0; i < found.connMsgIds.size(); ++i) {
            compare(IDS_OFFSET + 4 * static_cast<std::int64_t>(i), CLASS_IDS[i], stored.connMsgIds[i],
                    found.connMsgIds[i]);
        }
        for (std::int32_t i = 0; i < layout.numericFieldCount; ++i) {
            compareNumber(NUMBERS_OFFSET + std::int64_t{internal::FIXED_NUMERIC_SIZE} * i, i);
        }
    }
};

}  // namespace

void BlockVerify::checkFooter(std::int64_t end) {
    const auto length = static_cast<std::uint64_t>(end - start_);
    internal::BlockReader* reader = table_.blocks.get();
    const internal::ErrorCode code = internal::blockReader_readFooter(reader, table_.file.get(), start_, length);
    if (code == internal::HEADER_CORRUPTED_ERROR || code == internal::CONSISTENCY_ERROR) {
        tellUnsoundFooter(end, length);
        return;
    }
    table_.call.check(code);
    const std::int64_t footer = end - table_.footerSize();
    const std::int64_t filters = footer + 2 * recordSize(table_.layout);
    compareRanges(footer);
    compareFilters(filters);
    compareIndexes(filters +
                   std::int64_t{internal::BLOOM_FILTER_STORED_SIZE} * table_.layout.summarisedStringFieldCount);
}

void BlockVerify::tellUnsoundFooter(std::int64_t end, std::uint64_t length) {
    std::uint64_t trailing = 0;
    if (table_.bytes.get(end - WORD, &trailing) && trailing != length) {
        add(FindingKind::footer, end - WORD,
            "the length behind the footer says " + std::to_string(trailing) + ", the block takes " +
                std::to_string(length) + " bytes");
        return;
    }
    add(FindingKind::footer, end - table_.footerSize(), "the footer holds values that no footer has");
}

void BlockVerify::compareRanges(std::int64_t footer) {
    const internal::BlockSummary& stored = table_.blocks->summary;
    const internal::BlockSummary& found = table_.frames->summary;
    if (lost_ && whole_ == 0) {
        return;
    }
    RangeComparison smallest{stored.minimum, found.minimum, true, lost_, {}};
    RangeComparison largest{stored.maximum, found.maximum, false, lost_, {}};
    smallest.compareAll(table_.layout);
    largest.compareAll(table_.layout);
    for (auto& [offset, text] : smallest.differences) {
        add(FindingKind::range, footer + offset, std::move(text));
    }
    for (auto& [offset, text] : largest.differences) {
        add(FindingKind::range, footer + recordSize(table_.layout) + offset, std::move(text));
    }
}

// A bit too few hides messages from queries; a bit too many only costs them time.
void BlockVerify::compareFilters(std::int64_t filters) {
    for (std::int32_t field = 0; field < table_.layout.summarisedStringFieldCount; ++field) {
        const internal::BloomFilter& found = table_.frames->summary.filters[static_cast<std::size_t>(field)];
        const std::int64_t offset = std::int64_t{internal::BLOOM_FILTER_STORED_SIZE} * field + 4;
        const std::uint8_t* bits = table_.blocks->summary.storedFilters + offset;
        std::optional<std::int64_t> firstMissing;
        std::optional<std::int64_t> firstExtra;
        for (std::size_t i = 0; i < found.words.size(); ++i) {
            std::uint32_t stored = 0;
            std::memcpy(&stored, bits + i * sizeof(stored), sizeof(stored));
            const auto place = filters + offset + static_cast<std::int64_t>(i * sizeof(stored));
            if ((found.words[i] & ~stored) != 0 && !firstMissing.has_value()) {
                firstMissing = place;
            }
            if ((stored & ~found.words[i]) != 0 && !firstExtra.has_value()) {
                firstExtra = place;
            }
        }
        const std::string name = "the filter of text " + std::to_string(field);
        if (firstMissing.has_value()) {
            add(FindingKind::filter, *firstMissing, name + " lacks texts of the block: queries miss messages");
        }
        if (firstExtra.has_value() && !lost_) {
            add(FindingKind::filter, *firstExtra, name + " has bits of texts that the block does not hold", false);
        }
    }
}

void BlockVerify::compareIndexes(std::int64_t offset) {
    const internal::mthStaticIndexes& stored = table_.blocks->summary.staticIndexes;
    if (!chain_.indexesKnown) {
        // The footer's are the best that is known from here on.
        chain_.indexes = stored;
        chain_.indexesKnown = true;
        return;
    }
    if (!(stored == chain_.indexes)) {
        add(FindingKind::statistics, offset,
            "the footer's last ids and sequence numbers are not those of the messages up to here");
    }
}

}  // namespace tabulo::api
