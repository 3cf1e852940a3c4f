// The recorded sessions as tables.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tabulo/table_info.h"

namespace tabulo::tool::test {

// Fields of no name, so that orders are looked for in the wire messages.
Layout plainLayout();
// ClOrdID, OrigClOrdID and OrderID as indexed fields.
Layout orderIdsLayout();

// Makes a table with the messages of examples/data/<name>.fixlog, times in microseconds. Indexed fields have the value
// of the first field of that name. Uniform ids count from `firstUniformId` on; the one behind the last is returned.
std::int32_t makeRecorded(const std::string& path, std::string_view name, const Layout& layout,
                          std::int32_t firstUniformId = 1);

// The time "20261120-19:24:44.887207" in microseconds since 1970.
std::int64_t recordedTime(std::string_view text);

}  // namespace tabulo::tool::test
