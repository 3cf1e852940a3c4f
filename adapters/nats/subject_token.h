// The parts of a subject, which may hold letters, digits, '-' and '_' as they are.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tabulo::shipping {

// A text as one part of a subject: any other byte becomes '%' and its two hexadecimal digits, in capitals; no text at
// all is "%". What this makes never begins with '=', which marks the parts that are ours.
std::string escaped(std::string_view text);
// The text again; none for what `escaped` cannot have made.
std::optional<std::string> unescaped(std::string_view part);

}  // namespace tabulo::shipping
