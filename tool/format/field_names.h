// By which names ndjson and csv give the indexed fields.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/table_info.h"

namespace tabulo::tool {

// What every message has besides the indexed fields, as ndjson and csv name it: in front of them, and behind them.
std::span<const std::string_view> leadingColumns() noexcept;
std::span<const std::string_view> trailingColumns() noexcept;

// One name for each text and then for each number of a layout, no two of them equal. A field without a name is called
// "field3" by its place among them; of several with one name the second is "NAME#2". Names are UTF-8: other bytes are
// escaped.
std::vector<std::string> fieldNames(const Layout& layout);

}  // namespace tabulo::tool
