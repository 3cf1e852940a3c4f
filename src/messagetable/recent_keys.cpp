#include "messagetable/recent_keys.h"

#include <cstring>

namespace tabulo::internal {

namespace {

constexpr std::size_t LONGEST = 16;
// Spreads the bytes of a key over the upper bits of a product: 2^64 divided by the golden ratio, as in Knuth's
// multiplicative hashing.
constexpr std::uint64_t MULTIPLIER = 0x9E3779B97F4A7C15U;
constexpr int PLACE_SHIFT = 64 - 6;  // 64 places

template <typename T>
std::uint64_t load(const char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

}  // namespace

bool RecentKeys::seen(std::string_view key) noexcept {
    const std::size_t length = key.size();
    if (length == 0 || length > LONGEST) {
        return false;
    }
    const char* bytes = key.data();
    Entry entry{0, 0, length};
    if (length >= 8) {
        entry.first = load<std::uint64_t>(bytes);
        entry.last = load<std::uint64_t>(bytes + length - 8);
    } else if (length >= 4) {
        entry.first = load<std::uint32_t>(bytes);
        entry.last = load<std::uint32_t>(bytes + length - 4);
    } else {
        entry.first = load<std::uint8_t>(bytes) | load<std::uint8_t>(bytes + length / 2) << 8;
        entry.last = load<std::uint8_t>(bytes + length - 1);
    }
    static_assert(PLACES == std::size_t{1} << (64 - PLACE_SHIFT));
    Entry& place =
        entries_[static_cast<std::size_t>(((entry.first ^ (entry.last << 7) ^ length) * MULTIPLIER) >> PLACE_SHIFT)];
    if (place == entry) {
        return true;
    }
    place = entry;
    return false;
}

}  // namespace tabulo::internal
