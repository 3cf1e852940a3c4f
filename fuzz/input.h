// What the bytes of one fuzzing run say, taken from their front; behind their end everything is 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

namespace tabulo::internal::fuzz {

class Input {
  public:
    explicit Input(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool empty() const { return bytes_.empty(); }
    std::span<const std::uint8_t> rest() const { return bytes_; }

    // Up to `length` bytes, which are then gone.
    std::span<const std::uint8_t> take(std::size_t length) {
        const std::span<const std::uint8_t> taken = bytes_.first(std::min(length, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }

    template <typename T>
    T number() {
        T value{};
        const std::span<const std::uint8_t> taken = take(sizeof(T));
        if (!taken.empty()) {
            std::memcpy(&value, taken.data(), taken.size());
        }
        return value;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }
    bool flag() { return (byte() & 1) != 0; }
    // 0 to count - 1.
    std::int32_t below(std::int32_t count) { return byte() % count; }

    // A length byte, and at most `longest` bytes.
    std::string text(std::size_t longest) {
        const std::size_t length = std::min<std::size_t>(byte(), longest);
        const std::span<const std::uint8_t> taken = take(length);
        return {taken.begin(), taken.end()};
    }

    // Mostly a small number, from one byte; now and then any number.
    std::int32_t smallOrAny() {
        const auto small = number<std::int8_t>();
        return small == -128 ? number<std::int32_t>() : small;
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace tabulo::internal::fuzz
