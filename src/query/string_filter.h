// A filter on one string field: accepted values and ranges.
//
// Texts are compared byte by byte, up to their first NUL or their end, as unsigned bytes. ignoreCase folds the ASCII
// letters only, independent of the locale, in values; ranges always compare with case.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tabulo::internal {

struct StringFilter {
    std::int32_t fieldIndex = 0;                     // slot number in the message; one behind the last is the MsgType
    std::vector<std::optional<std::string>> values;  // sorted once the last slot has been written
    std::vector<std::optional<std::string>> ranges;  // pair k: [2k] minimum, [2k+1] maximum; none is an open bound
    bool includeNull = false;                        // a message whose field is absent passes
    bool ignoreCase = false;                         // of the values
};

// The text up to its first NUL or its end.
std::string_view text_upToNul(std::string_view text) noexcept;
// Negative, 0 or positive, as strcmp; with the case of ASCII letters ignored for the second.
int text_compare(std::string_view left, std::string_view right) noexcept;
int text_compareIgnoringCase(std::string_view left, std::string_view right) noexcept;

// Sorts the values for searching.
void stringFilter_sortValues(StringFilter* filter);
// True when the text is one of the sorted values, or lies inside a range. Ends of ranges are exclusive.
bool stringFilter_accepts(const StringFilter& filter, std::string_view text) noexcept;
// The same for a MsgType: five characters are compared, with case, and the values are scanned (they may have been
// sorted without case).
bool stringFilter_acceptsMsgType(const StringFilter& filter, std::string_view msgType) noexcept;

}  // namespace tabulo::internal
