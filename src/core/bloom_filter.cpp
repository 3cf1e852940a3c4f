#include "core/bloom_filter.h"

#include <array>
#include <bit>
#include <cstring>
#include <new>

namespace tabulo::internal {

namespace {

constexpr std::size_t HASH_COUNT = 7;
using Hashes = std::array<std::uint32_t, HASH_COUNT>;

constexpr std::uint64_t wordCount(std::uint32_t bitCount) {
    return (std::uint64_t{bitCount} + 31) / 32;
}

std::string_view keyOf(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// The seven hash functions in one pass over the key. All but the second and third take the byte as signed, so that
// bytes from 0x80 up count as negative. The sixth starts at 0 and multiplies by 0x811C9DC5; both are deliberate: stored
// filters depend on every one of these values.
Hashes hashesOf(std::string_view key) {
    Hashes h{0, 5381, 0, 0, static_cast<std::uint32_t>(key.size()), 0, 0};
    for (const char character : key) {
        const auto asUnsigned = static_cast<std::uint32_t>(static_cast<unsigned char>(character));
        const auto asSigned = static_cast<std::uint32_t>(static_cast<signed char>(character));
        h[0] = h[0] * 31 + asSigned;
        h[1] = h[1] * 33 + asUnsigned;
        h[2] = h[2] * 65599 + asUnsigned;
        h[3] = (h[3] << 4) + asSigned;
        const std::uint32_t top = h[3] & 0xF0000000U;
        h[3] ^= top >> 24;
        h[3] &= ~top;
        h[4] = std::rotl(h[4], 5) ^ asSigned;
        h[5] = (h[5] * 0x811C9DC5U) ^ asSigned;
        h[6] += asSigned;
        h[6] += h[6] << 10;
        h[6] ^= h[6] >> 6;
    }
    h[6] += h[6] << 3;
    h[6] ^= h[6] >> 11;
    h[6] += h[6] << 15;
    return h;
}

std::uint32_t bitOf(std::uint32_t hash, std::uint32_t bitCount) {
    // Nearly all filters have this size, and a division by a constant is several times cheaper.
    return bitCount == BLOOM_FILTER_BITS ? (hash >> 10) % BLOOM_FILTER_BITS : (hash >> 10) % bitCount;
}

}  // namespace

BloomFilter* bloomFilter_create() noexcept {
    try {
        auto filter = std::make_unique<BloomFilter>();
        filter->words.resize(wordCount(BLOOM_FILTER_BITS));
        filter->bitCount = BLOOM_FILTER_BITS;
        return filter.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void bloomFilter_destroy(BloomFilter* filter) noexcept {
    delete filter;
}

void bloomFilter_clear(BloomFilter* filter) noexcept {
    std::memset(filter->words.data(), 0, filter->words.size() * sizeof(std::uint32_t));
}

void bloomFilter_setBits(BloomFilter* filter, const void* bytes) noexcept {
    std::memcpy(filter->words.data(), bytes, filter->words.size() * sizeof(std::uint32_t));
}

const std::uint32_t* bloomFilter_bits(const BloomFilter* filter, std::int32_t* byteCount) noexcept {
    *byteCount = static_cast<std::int32_t>(filter->words.size() * sizeof(std::uint32_t));
    return filter->words.data();
}

void bloomFilter_add(BloomFilter* filter, std::string_view key) noexcept {
    for (const std::uint32_t hash : hashesOf(keyOf(key))) {
        const std::uint32_t bit = bitOf(hash, filter->bitCount);
        filter->words[bit / 32] |= 1U << (bit % 32);
    }
}

std::int32_t bloomFilter_mayContain(const BloomFilter* filter, std::string_view key) noexcept {
    for (const std::uint32_t hash : hashesOf(keyOf(key))) {
        const std::uint32_t bit = bitOf(hash, filter->bitCount);
        if ((filter->words[bit / 32] & (1U << (bit % 32))) == 0) {
            return 0;
        }
    }
    return 1;
}

bool bloomFilter_storedMayContain(const std::uint8_t* stored, std::string_view key) noexcept {
    const std::uint8_t* words = stored + sizeof(std::uint32_t);
    for (const std::uint32_t hash : hashesOf(keyOf(key))) {
        const std::uint32_t bit = bitOf(hash, BLOOM_FILTER_BITS);
        std::uint32_t word = 0;
        std::memcpy(&word, words + bit / 32 * sizeof(word), sizeof(word));
        if ((word & (1U << (bit % 32))) == 0) {
            return false;
        }
    }
    return true;
}

ErrorCode bloomFilter_write(const BloomFilter* filter, KSVByteStream* stream) noexcept {
    std::int32_t byteCount = 0;
    const std::uint32_t* words = bloomFilter_bits(filter, &byteCount);
    byteStream_put(stream, filter->bitCount);
    byteStream_putBytes(stream, words, byteCount);
    return byteStream_error(stream);
}

ErrorCode bloomFilter_read(BloomFilter* filter, KSVByteStream* stream) noexcept {
    std::uint32_t bitCount = 0;
    byteStream_get(stream, &bitCount);
    if (bitCount == 0) {
        return HEADER_CORRUPTED_ERROR;
    }
    const std::uint64_t words = wordCount(bitCount);
    const std::uint64_t byteCount = words * sizeof(std::uint32_t);
    if (byteCount > static_cast<std::uint64_t>(byteStream_unread(stream))) {
        return STREAM_NOT_ENOUGH_DATA_ERROR;
    }
    if (words != filter->words.size()) {
        try {
            filter->words.resize(words);
        } catch (const std::bad_alloc&) {
            return OUT_OF_MEMORY_ERROR;
        }
    }
    filter->bitCount = bitCount;
    byteStream_getBytes(stream, filter->words.data(), static_cast<std::int32_t>(byteCount));
    return byteStream_error(stream);
}

}  // namespace tabulo::internal
