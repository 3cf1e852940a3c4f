// The bytes of an argument, text or blob.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "adapters/sqlite/sqlite.h"

namespace tabulo::sqlite {

// Valid as long as the value; none for NULL.
inline std::optional<std::string_view> bytesOf(sqlite3_value* value) {
    if (sqlite3_value_type(value) == SQLITE_NULL) {
        return std::nullopt;
    }
    const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));  // null for an empty one
    return bytes == nullptr ? std::string_view("")
                            : std::string_view(bytes, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

// The same as text, to which a number is converted; empty for NULL.
inline std::string_view textOf(sqlite3_value* value) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return text == nullptr ? std::string_view("")
                           : std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

}  // namespace tabulo::sqlite
