// A set of text values that answers "certainly not contained" or "maybe contained".
//
// Stored form, in the machine's byte order:
//
//   offset 0   uint32  bitCount
//   offset 4   uint32  words[ceil(bitCount / 32)]     bit i is bit (i mod 32) of word i / 32
//
// A new filter has 10000 bits, so it is stored in 4 + 1252 bytes. Every key sets seven bits, one per hash function:
// bit = (hash >> 10) mod bitCount. A key is the text up to its first NUL, or up to its end when it has none.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/byte_stream.h"
#include "core/error_codes.h"
#include "core/handle.h"

namespace tabulo::internal {

inline constexpr std::uint32_t BLOOM_FILTER_BITS = 10000;
// Bytes of the stored form of a filter of BLOOM_FILTER_BITS bits.
inline constexpr std::int32_t BLOOM_FILTER_STORED_SIZE = 4 + (10000 + 31) / 32 * 4;

struct BloomFilter {
    std::uint32_t bitCount = 0;
    std::vector<std::uint32_t> words;
};

// An empty filter of BLOOM_FILTER_BITS bits, owned by the caller; null when memory is short.
BloomFilter* bloomFilter_create() noexcept;
// Frees the filter; null is accepted.
void bloomFilter_destroy(BloomFilter* filter) noexcept;

using BloomFilterPtr = Handle<BloomFilter, bloomFilter_destroy>;

// All bits to zero.
void bloomFilter_clear(BloomFilter* filter) noexcept;
// Copies the filter's size in bytes (see bloomFilter_bits) from `bytes` into the words.
void bloomFilter_setBits(BloomFilter* filter, const void* bytes) noexcept;
// The words and their size in bytes. Called here only: others take the stored form from bloomFilter_write.
const std::uint32_t* bloomFilter_bits(const BloomFilter* filter, std::int32_t* byteCount) noexcept;

void bloomFilter_add(BloomFilter* filter, std::string_view key) noexcept;
// 1 when all seven bits of the key are set, else 0.
std::int32_t bloomFilter_mayContain(const BloomFilter* filter, std::string_view key) noexcept;
// The same of a filter in its stored form, whose bitCount the caller has found to be BLOOM_FILTER_BITS. `stored` needs
// no alignment.
bool bloomFilter_storedMayContain(const std::uint8_t* stored, std::string_view key) noexcept;

// Appends the stored form. The result is the stream's error (STREAM_EXTENSION_ERROR when it cannot grow).
ErrorCode bloomFilter_write(const BloomFilter* filter, KSVByteStream* stream) noexcept;
// Replaces the filter by a stored one, read in the stream's direction. HEADER_CORRUPTED_ERROR for a bitCount of 0 (also
// when its four bytes are missing: the stream then holds STREAM_NOT_ENOUGH_DATA_ERROR), STREAM_NOT_ENOUGH_DATA_ERROR
// when fewer bytes than announced are unread, OUT_OF_MEMORY_ERROR when the words cannot be resized; in these cases the
// filter is unchanged. No caller of ours: footers are asked in their stored form, by bloomFilter_storedMayContain.
ErrorCode bloomFilter_read(BloomFilter* filter, KSVByteStream* stream) noexcept;

}  // namespace tabulo::internal
