// A filter on one string field: accepted values and ranges.
//
// Texts are compared byte by byte, up to their first NUL or their end, as unsigned bytes. ignoreCase folds the ASCII
// letters only, independent of the locale, in values; ranges always compare with case.
//
// A field index is the slot in the message; the one behind the last slot, the layout's stringFieldCount S, is the
// MsgType. A filter on any other index is ignored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messagetable/block_summary.h"
#include "messagetable/message.h"

namespace tabulo::internal {

struct StringFilter {
    std::int32_t fieldIndex = 0;
    std::vector<std::optional<std::string>> values;  // sorted once the last slot has been written
    std::vector<std::optional<std::string>> ranges;  // pair k: [2k] minimum, [2k+1] maximum; none is an open bound
    bool includeNull = false;                        // a message whose field is absent passes
    bool ignoreCase = false;                         // of the values
};

// Negative, 0 or positive, as strcmp; with the case of ASCII letters ignored for the second. Called here only:
// tests look at the order itself.
int text_compare(std::string_view left, std::string_view right) noexcept;
int text_compareIgnoringCase(std::string_view left, std::string_view right) noexcept;

// Sorts the values for searching.
void stringFilter_sortValues(StringFilter* filter);
// True when the text is one of the sorted values, or lies inside a range. Ends of ranges are exclusive.
// Called here only: tests need no message around the text.
bool stringFilter_accepts(const StringFilter& filter, std::string_view text) noexcept;
// The same for a MsgType: five characters are compared, with case, and the values are scanned (they may have been
// sorted without case). Called here only: as stringFilter_accepts.
bool stringFilter_acceptsMsgType(const StringFilter& filter, std::string_view msgType) noexcept;

// A text against the block's filter of its field: -1 when the filter rejects it; 0 when it may hold it, the text is
// null, or the field has no filter. 0 with a NOTE, which names the helper, for an index outside 0 .. S.
// Called here only: by stringFilter_mayMatchBlock, for each value.
std::int32_t mfr_compareStr(const BlockSummary& block, const MessageTableLayout& layout, const char* text,
                            std::int32_t fieldIndex) noexcept;

// True when asking about a block writes nothing to the log.
bool stringFilter_isSilent(const StringFilter& filter, const MessageTableLayout& layout) noexcept;
// False when no message of a closed block can match, told from its footer.
bool stringFilter_mayMatchBlock(const StringFilter& filter, const BlockSummary& block,
                                const MessageTableLayout& layout) noexcept;

bool stringFilter_matches(const StringFilter& filter, const MessageView& message) noexcept;

}  // namespace tabulo::internal
