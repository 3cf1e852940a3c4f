// The keys that were added to a Bloom filter last: adding one of them again changes nothing, so its seven hashes can be
// spared. In order flow most values repeat within a block (symbols, accounts, types).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tabulo::internal {

// A small table, one key to a place; a key that comes to the same place takes it over. Only keys of 1 to 16 bytes are
// remembered.
class RecentKeys {
  public:
    // True when the same bytes were given since the last clear and are still remembered; else remembers them.
    bool seen(std::string_view key) noexcept;
    void clear() noexcept { entries_.fill({}); }

  private:
    static constexpr std::size_t PLACES = 64;

    // The key's first and last eight bytes, which overlap, or for fewer than eight all of them; with the length they
    // tell every key of up to 16 bytes. Length 0 is no key.
    struct Entry {
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::size_t length = 0;

        bool operator==(const Entry&) const = default;
    };

    std::array<Entry, PLACES> entries_{};
};

}  // namespace tabulo::internal
