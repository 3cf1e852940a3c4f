// A message as it goes over the wire, taken apart into its fields.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tabulo::tool {

inline constexpr char FIX_END_OF_FIELD = '\x01';

// A field, borrowed from the message.
struct FixField {
    std::int32_t tag = 0;      // 0 for what is no field: then the text is all in the value
    std::string_view value{};  // without the byte that ends the field
    bool ended = true;         // false when the message ends without that byte
};

// Which field tells the length of which data field, whose value may hold any byte.
class FixDataFields {
  public:
    // Those of FIX 4.2 to 5.0.
    static const FixDataFields& standard();
    FixDataFields() = default;
    void add(std::int32_t lengthTag, std::int32_t dataTag);
    // The data field that stands behind a length field; 0 when the tag is of no length field.
    std::int32_t dataTagOf(std::int32_t lengthTag) const noexcept;

  private:
    std::vector<std::pair<std::int32_t, std::int32_t>> pairs_;  // by the tag of the length
};

// Walks over the fields of a message. Takes whatever bytes there are: what is no field is given as a field with tag 0,
// and a data field whose length does not lead to the end of a field ends where any other field does. All fields
// together hold every byte of the message.
class FixFields {
  public:
    // Both are borrowed.
    explicit FixFields(std::string_view wire, const FixDataFields& data = FixDataFields::standard()) noexcept
        : rest_(wire), data_(&data) {}

    // The next field; false behind the last one.
    bool next(FixField* field) noexcept;

  private:
    std::size_t endOfValue(std::size_t begin, std::int32_t tag) const noexcept;

    std::string_view rest_;
    const FixDataFields* data_;
    std::int32_t expectedData_ = 0;   // the data field that the field before has announced
    std::size_t expectedLength_ = 0;  // of its value
};

// The tag of "54", "054" or the like; none for what is no number from 1 to 2^31 - 1.
std::optional<std::int32_t> fixTag(std::string_view text) noexcept;

// The value of the first field with a tag.
std::optional<std::string_view> fixValue(std::string_view wire, std::int32_t tag) noexcept;

}  // namespace tabulo::tool
