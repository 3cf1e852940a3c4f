#include "index/index_page.h"

namespace tabulo::internal {

namespace {

// Odd numbers without a pattern: the first digits of the golden ratio, of pi and of e, made odd.
constexpr std::uint64_t GOLDEN = 0x9E3779B97F4A7C15;
constexpr std::uint64_t PI = 0x243F6A8885A308D3;
constexpr std::uint64_t E = 0xB7E151628AED2A6B;

std::uint64_t mix(std::uint64_t value) noexcept {
    value = (value ^ (value >> 32)) * GOLDEN;
    value = (value ^ (value >> 29)) * PI;
    return value ^ (value >> 32);
}

std::uint64_t wordAt(const std::uint8_t* at) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, at, sizeof(word));
    return word;
}

}  // namespace

std::uint64_t indexSeed(std::uint64_t seed, std::uint64_t number) noexcept {
    return mix(seed * E + number + 1);
}

std::uint64_t indexChecksum(std::span<const std::uint8_t> bytes, std::uint64_t seed) noexcept {
    constexpr std::size_t LANES = 4;  // which do not wait for each other
    constexpr std::size_t WORD = sizeof(std::uint64_t);
    std::array<std::uint64_t, LANES> lanes{seed ^ GOLDEN, seed + PI, seed ^ E, seed + bytes.size()};
    std::size_t at = 0;
    for (; at + LANES * WORD <= bytes.size(); at += LANES * WORD) {
        for (std::size_t i = 0; i < LANES; ++i) {
            const std::uint64_t lane = (lanes[i] ^ wordAt(bytes.data() + at + i * WORD)) * GOLDEN;
            lanes[i] = lane ^ (lane >> 32);
        }
    }
    std::uint64_t sum = mix(seed ^ bytes.size());
    for (const std::uint64_t lane : lanes) {
        sum = mix(sum ^ lane) + E;
    }
    while (at < bytes.size()) {
        std::array<std::uint8_t, WORD> last{};
        const std::size_t length = bytes.size() - at < WORD ? bytes.size() - at : WORD;
        std::memcpy(last.data(), bytes.data() + at, length);
        sum = mix(sum ^ wordAt(last.data())) + E;
        at += length;
    }
    return mix(sum);
}

void indexPage_seal(IndexPage* page, std::uint64_t seed) noexcept {
    page->put(0, indexChecksum(std::span(page->bytes).subspan(INDEX_PAGE_CONTENT), seed));
}

bool indexPage_isSound(const IndexPage& page, std::uint64_t seed) noexcept {
    return page.get<std::uint64_t>(0) == indexChecksum(std::span(page.bytes).subspan(INDEX_PAGE_CONTENT), seed);
}

}  // namespace tabulo::internal
