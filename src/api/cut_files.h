// The files in which recoveries save what they cut out of a table: "<table>.cut-<offset>", with "-1", "-2" and so on
// behind it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace tabulo::api {

// The offset in such a file's name, and its number among several: "orders.cut-4096-1". None for any other name. Without
// a table's name, the name of any table may stand in front.
std::optional<std::pair<std::int64_t, std::int64_t>> cutFile_parseName(std::string_view name,
                                                                       std::optional<std::string_view> table);

}  // namespace tabulo::api
