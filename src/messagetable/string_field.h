// One string field of a message: borrowed bytes and their stored length.
//
// A length of 0 is an absent field. Values that come through the binding end in a NUL, which the length counts; a
// stored length of 1 (the NUL alone) is the empty text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tabulo::internal {

struct StringField {
    const char* text = nullptr;
    std::int32_t length = 0;
};

// The stored bytes as they are.
inline std::string_view stringField_bytes(const StringField& field) noexcept {
    return {field.text, field.text == nullptr ? 0 : static_cast<std::size_t>(field.length)};
}

// The stored bytes without the NUL that ends them, if one does.
inline std::string_view stringField_withoutNul(const StringField& field) noexcept {
    std::string_view bytes = stringField_bytes(field);
    if (!bytes.empty() && bytes.back() == '\0') {
        bytes.remove_suffix(1);
    }
    return bytes;
}

}  // namespace tabulo::internal
