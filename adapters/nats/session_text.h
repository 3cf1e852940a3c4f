// The values of a session info table as the payload of a record: a line for each, "<tag> <value>", in the file's order.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/session_info.h"

namespace tabulo::shipping {

std::string sessionText(std::span<const SessionValue> values);
// None for a text that sessionText cannot have made.
std::optional<std::vector<SessionValue>> sessionValuesOf(std::string_view text);

}  // namespace tabulo::shipping
