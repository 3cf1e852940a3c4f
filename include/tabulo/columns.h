// The names under which the messages of a table are given as columns, and texts made fit to be names: what the
// command's ndjson and csv show, for others to name the same things alike. Nothing here fails but for want of memory,
// which is std::bad_alloc.
#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/table_info.h"

namespace tabulo {

// True for a text that is wholly UTF-8, and so may stand in JSON. Overlong forms, halves of surrogate pairs and what
// lies beyond Unicode are none.
bool isUtf8(std::string_view text) noexcept;

// Appends a text as eyes may see it: SOH as "|", every other byte that is not printable as \xHH: control characters,
// those that would turn or hide what stands around them, and what is no UTF-8. Ends in front of what would go beyond so
// many columns (characters); returns how many there are.
std::size_t appendShown(std::string_view text, std::string* out,
                        std::size_t columns = std::numeric_limits<std::size_t>::max());

// What every message has besides the indexed fields, by name: in front of them, and behind them. The
// views live as long as the program.
std::span<const std::string_view> leadingColumns() noexcept;
std::span<const std::string_view> trailingColumns() noexcept;

// One name for each text and then for each number of a layout, no two of them equal. A field without a name is called
// "field3" by its place among them; of several with one name the second is "NAME#2". Names are UTF-8: other bytes are
// escaped.
std::vector<std::string> fieldNames(const Layout& layout);

}  // namespace tabulo
