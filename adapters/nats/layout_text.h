// A table's layout as the payload of a record: lines of a name and its values, each value escaped (subject_token.h), so
// that any bytes of a field's name go over.
//
//   texts ClOrdID Symbol
//   numbers OrderQty %
//   messagesPerBlock 1000
//   summarisedTexts 4
//   builtInTexts 4
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tabulo/table_info.h"

namespace tabulo::shipping {

std::string layoutText(const Layout& layout);
// None for a text that layoutText cannot have made.
std::optional<Layout> layoutOf(std::string_view text);

}  // namespace tabulo::shipping
