// A page of a side index, the unit in which it is written, read and checked.
//
//   offset  width  field (machine byte order)
//        0      8  checksum of the bytes behind it, begun with the page's seed
//        8   4088  content
//
// The seed of a page tells which page of which index it is, so that bytes of another index, or of another place in the
// same one, are not taken for it. A page whose checksum does not agree is as if it were not there.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tabulo::internal {

inline constexpr std::size_t INDEX_PAGE_SIZE = 4096;
inline constexpr std::size_t INDEX_PAGE_CONTENT = 8;  // its offset

struct alignas(8) IndexPage {
    std::array<std::uint8_t, INDEX_PAGE_SIZE> bytes{};

    template <typename T>
    T get(std::size_t offset) const noexcept {
        T value;
        std::memcpy(&value, bytes.data() + offset, sizeof(T));
        return value;
    }
    template <typename T>
    void put(std::size_t offset, T value) noexcept {
        std::memcpy(bytes.data() + offset, &value, sizeof(T));
    }
};

// A checksum of 64 bits; another seed gives another one. It guards against damage and mistakes, not against intent.
std::uint64_t indexChecksum(std::span<const std::uint8_t> bytes, std::uint64_t seed) noexcept;
// Mixes a number into a seed.
std::uint64_t indexSeed(std::uint64_t seed, std::uint64_t number) noexcept;

void indexPage_seal(IndexPage* page, std::uint64_t seed) noexcept;
bool indexPage_isSound(const IndexPage& page, std::uint64_t seed) noexcept;

}  // namespace tabulo::internal
