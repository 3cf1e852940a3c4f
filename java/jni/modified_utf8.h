// Decoding of the texts that go to Java.
#pragma once

#include <string>
#include <string_view>

namespace tabulo::internal {

// The UTF-16 units of a text: modified UTF-8 exactly as given (C0 80 is U+0000, surrogates are encoded one by one), a
// four-byte UTF-8 sequence as its surrogate pair, and any other byte as the character of that number. The virtual
// machine's own conversion would cut or garble such texts without a word. Throws std::bad_alloc.
std::u16string modifiedUtf8_decode(std::string_view text);

// The length of `text` without an incomplete character at its end: what is left of a line that was cut.
std::size_t modifiedUtf8_wholeLength(std::string_view text) noexcept;

}  // namespace tabulo::internal
