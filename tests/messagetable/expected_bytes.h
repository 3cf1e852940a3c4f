// Bytes of table files as they have to be, put together field by field and without the library (little-endian).
#pragma once

#include <cstdint>
#include <cstring>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.h"

namespace tabulo::internal::test {

class ExpectedBytes {
  public:
    ExpectedBytes& u8(std::uint8_t value) { return number(value, 1); }
    ExpectedBytes& u16(std::uint16_t value) { return number(value, 2); }
    ExpectedBytes& u32(std::uint32_t value) { return number(value, 4); }
    ExpectedBytes& u64(std::uint64_t value) { return number(value, 8); }
    ExpectedBytes& i32(std::int32_t value) { return number(static_cast<std::uint32_t>(value), 4); }
    ExpectedBytes& i64(std::int64_t value) { return number(static_cast<std::uint64_t>(value), 8); }
    ExpectedBytes& f64(double value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        return number(bits, 8);
    }
    ExpectedBytes& text(std::string_view value) { return append(fromText(value)); }
    ExpectedBytes& hex(std::string_view value) { return append(fromHex(value)); }
    ExpectedBytes& append(const Bytes& more) {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }
    // A stored Bloom filter of 10000 bits, of which only these are set.
    ExpectedBytes& filter(const std::set<std::uint32_t>& bits) {
        u32(10000);
        Bytes words(1252);
        for (const std::uint32_t bit : bits) {
            words[bit / 8] |= static_cast<std::uint8_t>(1U << (bit % 8));
        }
        return append(words);
    }

    const Bytes& bytes() const { return bytes_; }
    std::string hexText() const { return toHex(bytes_); }

  private:
    ExpectedBytes& number(std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        }
        return *this;
    }

    Bytes bytes_;
};

// Part of some bytes, in hexadecimal; throws when they are not all there.
inline std::string hexAt(const Bytes& bytes, std::size_t offset, std::size_t length) {
    if (offset + length > bytes.size()) {
        throw std::out_of_range("bytes " + std::to_string(offset) + " to " + std::to_string(offset + length) + " of " +
                                std::to_string(bytes.size()));
    }
    return toHex(std::span(bytes).subspan(offset, length));
}

// The 19 bytes with which every table file begins.
inline Bytes expectedGenericHeader(std::int32_t headerSize) {
    return ExpectedBytes().text("KestrovaDb").u8(1).u16(5).u16(800).i32(headerSize).bytes();
}

// The front of a section: type name, layout and stored names (each with its NUL; "" for a length of 0). The two leading
// built-in string fields and all configured ones are summarised.
inline Bytes expectedLayout(std::int32_t messagesPerBlock, const std::vector<std::string>& stringNames = {},
                            const std::vector<std::string>& numericNames = {}) {
    ExpectedBytes bytes;
    bytes.u32(13).text("MessageTable").u8(0).i32(messagesPerBlock);
    bytes.i32(4 + static_cast<std::int32_t>(stringNames.size())).i32(2 + static_cast<std::int32_t>(stringNames.size()));
    bytes.i32(static_cast<std::int32_t>(numericNames.size()));
    for (const std::vector<std::string>& names : {stringNames, numericNames}) {
        for (const std::string& name : names) {
            bytes.u32(name.empty() ? 0 : static_cast<std::uint32_t>(name.size() + 1)).text(name);
            if (!name.empty()) {
                bytes.u8(0);
            }
        }
    }
    return bytes.bytes();
}

// The 60 bytes of the static indexes of a table without messages.
inline Bytes expectedEmptyIndexes() {
    ExpectedBytes bytes;
    for (int c = 0; c < 5; ++c) {
        bytes.i32(-1);
    }
    bytes.i32(0);
    for (int kind = 0; kind < 3; ++kind) {
        bytes.i32(0).i64(0);
    }
    return bytes.bytes();
}

}  // namespace tabulo::internal::test
