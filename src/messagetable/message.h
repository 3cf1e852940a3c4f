// One message: as the library's operations take it and hand it on (borrowed), and as a decoder fills it.
//
// A message has the texts of its table's layout in stored order: the two leading built-in ones, the configured ones,
// and at the end the wire message and the non-metadata fields; and the layout's numbers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "messagetable/message_metadata.h"
#include "messagetable/numeric_value.h"
#include "messagetable/string_field.h"
#include "storage/table_config.h"

namespace tabulo::internal {

// Borrows all of it: valid as long as what it was made from.
struct MessageView {
    const MessageMetadata& metadata;
    std::span<const StringField> texts;
    std::span<const NumericValue> numbers;
};

// The wire message: the last but one text. Absent in a message with fewer than two.
inline StringField message_wire(const MessageView& message) noexcept {
    return message.texts.size() < 2 ? StringField{} : message.texts[message.texts.size() - 2];
}

// The non-metadata fields: the last text. Absent in a message without texts.
inline StringField message_nonMetadata(const MessageView& message) noexcept {
    return message.texts.empty() ? StringField{} : message.texts.back();
}

// A message with room for all fields, as a decoder fills it. Texts point into the bytes it was decoded from.
struct DecodedMessage {
    MessageMetadata metadata;
    std::array<StringField, MAX_STRING_FIELDS> stringFields{};
    std::array<NumericValue, MAX_NUMERIC_FIELDS> numericFields{};
    std::int32_t frameLength = 0;
};

// The fields that a layout has of a decoded message.
inline MessageView message_view(const DecodedMessage& message, const MessageTableLayout& layout) noexcept {
    return {message.metadata,
            {message.stringFields.data(), static_cast<std::size_t>(layout.stringFieldCount)},
            {message.numericFields.data(), static_cast<std::size_t>(layout.numericFieldCount)}};
}

}  // namespace tabulo::internal
