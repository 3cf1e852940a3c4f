// FIX messages as they go over the wire, taken apart into their fields, and what the tags, their values and the types
// of messages are called. It works on texts alone: a Message whose table keeps the wire text gives it.
//
// Nothing here fails but for want of memory, which is std::bad_alloc. Objects are values; one thread at a time changes
// one, and any number read it meanwhile only when nobody changes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tabulo {

// The byte behind each field, SOH.
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
    // Those of FIX 4.2 to 5.0. Lives as long as the program.
    static const FixDataFields& standard();
    // None.
    FixDataFields() = default;
    // Of several data fields of one length field the last one holds.
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
    // Both are borrowed: they must outlive the walk.
    explicit FixFields(std::string_view wire, const FixDataFields& data = FixDataFields::standard()) noexcept
        : rest_(wire), data_(&data) {}

    // Gives the next field; false, and the field as it was, behind the last one.
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

// The value of the first field with a tag, borrowed from the message; none when no field has it. Data fields are those
// of the standard.
std::optional<std::string_view> fixValue(std::string_view wire, std::int32_t tag) noexcept;

// What the tags of FIX messages, their values and the types of messages are called. What it gives as a view is valid as
// long as the dictionary is neither changed nor destroyed.
class FixDictionary {
  public:
    // The common tags of FIX 4.2 to 5.0. Lives as long as the program.
    static const FixDictionary& builtIn();

    // Without any name of its own. What it does not name has the name of the fallback, if there is one, which is
    // borrowed and must outlive it. The data fields are those of the standard.
    explicit FixDictionary(const FixDictionary* fallback = nullptr) : fallback_(fallback) {}

    // Gives a tag its name, in place of one that it had.
    void nameTag(std::int32_t tag, std::string_view name);
    // Gives a value of a tag its name; of several names of one value the first one holds. A tag with a named value has
    // no other values but those named here: the fallback is not asked for them.
    void nameValue(std::int32_t tag, std::string_view value, std::string_view name);
    // Gives a type of messages (35) its name; of several the first one holds.
    void nameMessage(std::string_view type, std::string_view name);
    // Tells the length field of a data field.
    void addDataField(std::int32_t lengthTag, std::int32_t dataTag) { dataFields_.add(lengthTag, dataTag); }

    // "ClOrdID"; empty for an unknown tag.
    std::string_view tagName(std::int32_t tag) const noexcept;
    // "NewOrderSingle"; empty for an unknown type.
    std::string_view messageName(std::string_view type) const noexcept;
    // What a value of a tag is called; of a value of several (ExecInst "1 G") each that has a name, with "; " between
    // them. Empty when it has none.
    std::string valueName(std::int32_t tag, std::string_view value) const;
    // The data fields of the standard and of the dictionary, not of the fallback. Valid as long as the dictionary.
    const FixDataFields& dataFields() const noexcept { return dataFields_; }

  private:
    struct Tag {
        std::string name;
        std::map<std::string, std::string, std::less<>> values;
    };

    const Tag* find(std::int32_t tag) const noexcept;
    std::string_view singleValueName(std::int32_t tag, std::string_view value) const noexcept;

    std::unordered_map<std::int32_t, Tag> tags_;
    std::map<std::string, std::string, std::less<>> messages_;
    FixDataFields dataFields_ = FixDataFields::standard();
    const FixDictionary* fallback_;
};

}  // namespace tabulo
