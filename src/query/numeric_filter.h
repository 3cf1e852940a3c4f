// A filter on one numeric field: disjoint intervals and points in ascending order.
//
// It is made from pairs and single values. A pair (minimum, maximum) keeps what lies strictly between; a single value
// is a point; a value at the end of an interval includes that end, and joins two intervals that touch there. All
// comparisons are by < and > only: -0.0 and 0.0 are one point, a NaN is in nothing.
//
// A field index below the layout's numericFieldCount N names a configured field; the seven from N on are the metadata
// (pseudo_field.h). A filter on any other index is ignored.
#pragma once

#include <cstdint>
#include <vector>

#include "messagetable/block_summary.h"
#include "messagetable/message.h"

namespace tabulo::internal {

inline constexpr std::uint32_t LOW_INCLUSIVE = 1;
inline constexpr std::uint32_t HIGH_INCLUSIVE = 2;

template <typename Number>
struct NumericFilterEntry {
    Number low;
    Number high;
    std::uint32_t flags;
};
static_assert(sizeof(NumericFilterEntry<double>) == 24 && sizeof(NumericFilterEntry<std::int64_t>) == 24);

template <typename Number>
struct NumericFilter {
    std::int32_t fieldIndex = 0;
    Number overallMin = 0;  // above overallMax while there is no entry
    Number overallMax = -1;
    bool includeNull = false;  // a message whose field is absent (doubles: or NaN) passes
    std::vector<NumericFilterEntry<Number>> entries;
};

using DoubleFilter = NumericFilter<double>;
using LongFilter = NumericFilter<std::int64_t>;

// Fills the entries and the overall bounds. A pair whose maximum is not above its minimum (NaN included) is dropped.
// Throws std::bad_alloc.
void numericFilter_build(DoubleFilter* filter, const double* minimums, const double* maximums, std::int32_t pairCount,
                         const double* values, std::int32_t valueCount);
void numericFilter_build(LongFilter* filter, const std::int64_t* minimums, const std::int64_t* maximums,
                         std::int32_t pairCount, const std::int64_t* values, std::int32_t valueCount);

// A range [low, high] against the block's range of a field: -1 when it lies wholly below, 1 when wholly above, 0 when
// they overlap (touching ends do), NO_OVERLAP (range_compare.h) when the block has no value. 0 with a NOTE, which names
// the helper, for an index outside 0 .. N + 6. Called here only: by numericFilter_mayMatchBlock, for each entry.
std::int32_t mfr_compareNumericIndexDouble(const BlockSummary& block, const MessageTableLayout& layout, double low,
                                           double high, std::int32_t fieldIndex) noexcept;
std::int32_t mfr_compareNumericIndexLong(const BlockSummary& block, const MessageTableLayout& layout, std::int64_t low,
                                         std::int64_t high, std::int32_t fieldIndex) noexcept;

// True when the filter is one of uniform ids, sequence numbers or times that asks for a value.
bool numericFilter_asksKnownRange(const DoubleFilter& filter, const MessageTableLayout& layout) noexcept;
bool numericFilter_asksKnownRange(const LongFilter& filter, const MessageTableLayout& layout) noexcept;
// True when asking about a block writes nothing to the log.
bool numericFilter_isSilent(const DoubleFilter& filter, const MessageTableLayout& layout) noexcept;
bool numericFilter_isSilent(const LongFilter& filter, const MessageTableLayout& layout) noexcept;
// False when no message of a closed block can match, told from its footer.
bool numericFilter_mayMatchBlock(const DoubleFilter& filter, const BlockSummary& block,
                                 const MessageTableLayout& layout) noexcept;
bool numericFilter_mayMatchBlock(const LongFilter& filter, const BlockSummary& block,
                                 const MessageTableLayout& layout) noexcept;

bool numericFilter_matches(const DoubleFilter& filter, const MessageView& message) noexcept;
bool numericFilter_matches(const LongFilter& filter, const MessageView& message) noexcept;

}  // namespace tabulo::internal
