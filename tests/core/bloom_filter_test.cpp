#include "core/bloom_filter.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>
#include <string>

#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

using namespace std::string_literals;

// The hash functions one by one, written down a second time: the filter's own pass over the key computes all at once.
std::uint32_t signedByte(char c) {
    return static_cast<std::uint32_t>(static_cast<signed char>(c));
}
std::uint32_t unsignedByte(char c) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(c));
}

std::uint32_t referenceHash(int k, const std::string& key) {
    std::uint32_t h = 0;
    if (k == 1) {
        h = 5381;
    } else if (k == 4) {
        h = static_cast<std::uint32_t>(key.size());
    }
    for (const char c : key) {
        switch (k) {
            case 0:
                h = h * 31U + signedByte(c);
                break;
            case 1:
                h = h * 33U + unsignedByte(c);
                break;
            case 2:
                h = unsignedByte(c) + (h << 6) + (h << 16) - h;
                break;
            case 3: {
                h = (h << 4) + signedByte(c);
                const std::uint32_t g = h & 0xF0000000U;
                if (g != 0) {
                    h ^= g >> 24;
                }
                h &= ~g;
                break;
            }
            case 4:
                h = ((h << 5) | (h >> 27)) ^ signedByte(c);
                break;
            case 5:
                h = (h * 0x811C9DC5U) ^ signedByte(c);
                break;
            default:
                h += signedByte(c);
                h += h << 10;
                h ^= h >> 6;
                break;
        }
    }
    if (k == 6) {
        h += h << 3;
        h ^= h >> 11;
        h += h << 15;
    }
    return h;
}

std::set<std::uint32_t> referenceBits(const std::string& key, std::uint32_t bitCount) {
    std::set<std::uint32_t> bits;
    for (int k = 0; k < 7; ++k) {
        bits.insert((referenceHash(k, key) >> 10) % bitCount);
    }
    return bits;
}

std::set<std::uint32_t> setBits(const BloomFilter& filter) {
    std::set<std::uint32_t> bits;
    std::int32_t byteCount = 0;
    const std::uint32_t* words = bloomFilter_bits(&filter, &byteCount);
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(byteCount) * 8; ++i) {
        if ((words[i / 32] >> (i % 32) & 1U) != 0) {
            bits.insert(i);
        }
    }
    return bits;
}

BloomFilterPtr emptyFilter() {
    BloomFilterPtr filter(bloomFilter_create());
    bloomFilter_clear(filter.get());
    return filter;
}

ByteStreamPtr streamOf(const Bytes& bytes) {
    ByteStreamPtr stream(byteStream_create(static_cast<std::int32_t>(bytes.size())));
    byteStream_putBytes(stream.get(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return stream;
}

TEST(BloomFilter, ANewFilterHasTenThousandBitsIn313Words) {
    const BloomFilterPtr filter = emptyFilter();
    std::int32_t byteCount = 0;
    const std::uint32_t* words = bloomFilter_bits(filter.get(), &byteCount);
    EXPECT_EQ(filter->bitCount, 10000U);
    EXPECT_EQ(byteCount, 1252);
    EXPECT_EQ(words[0], 0U);
    EXPECT_EQ(words[312], 0U);
}

TEST(BloomFilter, TheEmptyKeySetsBits0And5) {
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "");
    EXPECT_EQ(setBits(*filter), (std::set<std::uint32_t>{0, 5}));
}

TEST(BloomFilter, KeysSetTheBitsWorkedOutByHand) {
    struct Worked {
        std::string key;
        std::set<std::uint32_t> bits;
    };
    const std::vector<Worked> worked = {
        {"a", {0, 173, 2549}},
        {"IBM", {19, 43, 70, 235, 1142, 3183, 8924}},
        {"ORDER-4711", {615, 3386, 4091, 5221, 6099, 7394, 9295}},
        {"\x80", {0, 173, 2143, 4303, 6755}},
        {"\xff", {0, 173, 2143, 4303, 7321}},
        {"\xc3\x84\xc3\x96", {1267, 2411, 3788, 4562, 6138, 7985, 9272}},
        {"a longer key, over which every hash wraps around", {185, 243, 670, 1125, 5272, 6195, 9931}},
    };
    for (const Worked& example : worked) {
        const BloomFilterPtr filter = emptyFilter();
        bloomFilter_add(filter.get(), example.key);
        EXPECT_EQ(setBits(*filter), example.bits) << "key " << toHex(fromText(example.key));
    }
}

TEST(BloomFilter, RandomKeysSetTheBitsOfTheSevenHashFunctions) {
    const auto seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i) {
        std::string key(random() % 40, '\0');
        for (char& c : key) {
            c = static_cast<char>(1 + random() % 255);
        }
        const BloomFilterPtr filter = emptyFilter();
        bloomFilter_add(filter.get(), key);
        ASSERT_EQ(setBits(*filter), referenceBits(key, 10000)) << "seed " << seed << ", key " << toHex(fromText(key));
    }
}

TEST(BloomFilter, EveryAddedKeyIsMaybePresent) {
    const BloomFilterPtr filter = emptyFilter();
    for (int i = 0; i < 1000; ++i) {
        bloomFilter_add(filter.get(), "key " + std::to_string(i));
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(bloomFilter_mayContain(filter.get(), "key " + std::to_string(i)), 1)
            << "an added key is denied: " << i;
    }
}

TEST(BloomFilter, AKeyIsDeniedAsSoonAsOneOfItsBitsIsClear) {
    const std::set<std::uint32_t> bits = referenceBits("IBM", 10000);
    ASSERT_EQ(bits.size(), 7U);
    for (const std::uint32_t missing : bits) {
        const BloomFilterPtr filter = emptyFilter();
        bloomFilter_add(filter.get(), "IBM");
        filter->words[missing / 32] &= ~(1U << (missing % 32));
        EXPECT_EQ(bloomFilter_mayContain(filter.get(), "IBM"), 0) << "bit " << missing << " is clear";
    }
}

TEST(BloomFilter, AClearedFilterDeniesEverything) {
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "IBM");
    bloomFilter_clear(filter.get());
    EXPECT_TRUE(setBits(*filter).empty());
    EXPECT_EQ(bloomFilter_mayContain(filter.get(), "IBM"), 0);
    EXPECT_EQ(bloomFilter_mayContain(filter.get(), ""), 0);
}

TEST(BloomFilter, AKeyEndsAtItsFirstNul) {
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "IBM\0tail"s);
    EXPECT_EQ(setBits(*filter), referenceBits("IBM", 10000));
    EXPECT_EQ(bloomFilter_mayContain(filter.get(), "IBM"), 1);
    EXPECT_EQ(bloomFilter_mayContain(filter.get(), "IBM\0other"s), 1);
    bloomFilter_clear(filter.get());
    bloomFilter_add(filter.get(), "\0"s);
    EXPECT_EQ(setBits(*filter), (std::set<std::uint32_t>{0, 5})) << "only a NUL is the empty key";
}

TEST(BloomFilter, SetBitsCopiesTheWholeWordArray) {
    const BloomFilterPtr filter = emptyFilter();
    const Bytes bytes = pattern(1252, 3);
    bloomFilter_setBits(filter.get(), bytes.data());
    std::int32_t byteCount = 0;
    const auto* words = reinterpret_cast<const std::uint8_t*>(bloomFilter_bits(filter.get(), &byteCount));
    EXPECT_EQ(toHex({words, static_cast<std::size_t>(byteCount)}), toHex(bytes));
}

TEST(BloomFilter, TheStoredFormIsTheBitCountAndTheWords) {
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "");
    const ByteStreamPtr stream(byteStream_create(0));
    EXPECT_EQ(bloomFilter_write(filter.get(), stream.get()), NO_ERROR);
    Bytes expected = fromHex("10 27 00 00  21 00 00 00");
    expected.resize(4 + 1252);
    ASSERT_EQ(byteStream_writeMark(stream.get()), 1256);
    EXPECT_EQ(toHex({byteStream_buffer(stream.get()), 1256}), toHex(expected));
}

TEST(BloomFilter, WritingIntoAStreamThatIsFullGivesItsExtensionError) {
    const BloomFilterPtr filter = emptyFilter();
    std::array<std::uint8_t, 1255> buffer{};
    KSVByteStream stream;
    byteStream_init(&stream, buffer.data(), 1255);
    EXPECT_EQ(bloomFilter_write(filter.get(), &stream), STREAM_EXTENSION_ERROR);
    EXPECT_EQ(byteStream_error(&stream), STREAM_EXTENSION_ERROR);
}

TEST(BloomFilter, WhatWasWrittenIsReadBack) {
    const BloomFilterPtr written = emptyFilter();
    bloomFilter_add(written.get(), "IBM");
    const ByteStreamPtr stream(byteStream_create(2000));
    ASSERT_EQ(bloomFilter_write(written.get(), stream.get()), NO_ERROR);
    const BloomFilterPtr read = emptyFilter();
    bloomFilter_add(read.get(), "something else");
    EXPECT_EQ(bloomFilter_read(read.get(), stream.get()), NO_ERROR);
    EXPECT_EQ(setBits(*read), setBits(*written));
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
}

TEST(BloomFilter, AStoredFilterOf64BitsResizesTheFilterToTwoWords) {
    const ByteStreamPtr stream = streamOf(fromHex("40 00 00 00  01 00 00 80  02 00 00 40  ff"));
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), NO_ERROR);
    EXPECT_EQ(filter->bitCount, 64U);
    std::int32_t byteCount = 0;
    bloomFilter_bits(filter.get(), &byteCount);
    EXPECT_EQ(byteCount, 8);
    EXPECT_EQ(setBits(*filter), (std::set<std::uint32_t>{0, 31, 33, 62}));
    EXPECT_EQ(byteStream_unread(stream.get()), 1);
    bloomFilter_clear(filter.get());
    bloomFilter_add(filter.get(), "IBM");
    EXPECT_EQ(setBits(*filter), (std::set<std::uint32_t>{6, 19, 31, 43, 59, 60})) << "bits are taken modulo 64";
}

TEST(BloomFilter, TheStoredBitCountIsTakenAlsoWhenTheWordsStayAsMany) {
    Bytes stored = fromHex("f1 26 00 00");  // 9969 bits need 312 words
    stored.resize(4 + 1248);
    Bytes sameWords = fromHex("06 27 00 00");  // 9990 bits need 313 words, as 10000 do
    sameWords.resize(4 + 1252);
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), streamOf(sameWords).get()), NO_ERROR);
    EXPECT_EQ(filter->bitCount, 9990U);
    bloomFilter_add(filter.get(), "IBM");
    EXPECT_EQ(setBits(*filter), referenceBits("IBM", 9990));
    EXPECT_EQ(bloomFilter_read(filter.get(), streamOf(stored).get()), NO_ERROR);
    EXPECT_EQ(filter->bitCount, 9969U);
}

TEST(BloomFilter, ReadingBackwardTakesTheBitCountFromTheEnd) {
    const ByteStreamPtr stream = streamOf(fromHex("77  01 00 00 00  02 00 00 00  40 00 00 00"));
    byteStream_rewind(stream.get(), BYTE_STREAM_BACKWARD);
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), NO_ERROR);
    EXPECT_EQ(setBits(*filter), (std::set<std::uint32_t>{0, 33}));
    EXPECT_EQ(byteStream_unread(stream.get()), 1);
}

TEST(BloomFilter, AStoredBitCountOfZeroIsACorruptedHeader) {
    const ByteStreamPtr stream = streamOf(fromHex("00 00 00 00  01 00 00 00"));
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "IBM");
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(setBits(*filter), referenceBits("IBM", 10000)) << "the filter has changed";
}

TEST(BloomFilter, AMissingBitCountIsACorruptedHeaderAndAnErrorOfTheStream) {
    const ByteStreamPtr stream = streamOf(fromHex("40 00 00"));
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), STREAM_NOT_ENOUGH_DATA_ERROR);
}

TEST(BloomFilter, MissingWordsAreReportedButNotStoredInTheStream) {
    const ByteStreamPtr stream = streamOf(fromHex("40 00 00 00  01 00 00 00  02 00 00"));
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), STREAM_NOT_ENOUGH_DATA_ERROR);
    EXPECT_EQ(byteStream_error(stream.get()), NO_ERROR);
    EXPECT_EQ(filter->bitCount, 10000U);
}

TEST(BloomFilter, AHugeStoredBitCountIsRefusedBeforeAnyMemoryIsTaken) {
    for (const char* bitCount : {"ff ff ff ff", "e1 ff ff ff", "00 00 00 80", "e0 ff ff 7f"}) {
        const ByteStreamPtr stream = streamOf(fromHex(bitCount + " 01 00 00 00 02 00 00 00"s));
        const BloomFilterPtr filter = emptyFilter();
        ErrorCode code = NO_ERROR;
        {
            const AllocationFailure failure(1);
            code = bloomFilter_read(filter.get(), stream.get());
        }
        EXPECT_EQ(code, STREAM_NOT_ENOUGH_DATA_ERROR) << "bitCount " << bitCount;
        EXPECT_EQ(filter->bitCount, 10000U) << "bitCount " << bitCount;
        EXPECT_EQ(filter->words.size(), 313U) << "bitCount " << bitCount;
    }
}

TEST(BloomFilter, WithoutMemoryThereIsNoFilter) {
    for (int n = 1; n <= 2; ++n) {
        BloomFilter* filter = nullptr;
        {
            const AllocationFailure failure(n);
            filter = bloomFilter_create();
        }
        EXPECT_EQ(filter, nullptr) << "allocation " << n << " failed";
        bloomFilter_destroy(filter);
    }
}

TEST(BloomFilter, AFilterThatCannotBeResizedStaysAsItIs) {
    Bytes stored = fromHex("11 28 00 00");  // 10257 bits, 321 words: more than there are
    stored.resize(4 + 321 * 4);
    const ByteStreamPtr stream = streamOf(stored);
    const BloomFilterPtr filter = emptyFilter();
    bloomFilter_add(filter.get(), "IBM");
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = bloomFilter_read(filter.get(), stream.get());
    }
    EXPECT_EQ(code, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(filter->bitCount, 10000U);
    EXPECT_EQ(setBits(*filter), referenceBits("IBM", 10000));
}

TEST(BloomFilter, ReadingReturnsAnErrorThatTheStreamHeldBefore) {
    const ByteStreamPtr stream = streamOf(fromHex("20 00 00 00  01 00 00 00"));
    stream->error = STREAM_READ_RESET_ERROR;
    const BloomFilterPtr filter = emptyFilter();
    EXPECT_EQ(bloomFilter_read(filter.get(), stream.get()), STREAM_READ_RESET_ERROR);
}

TEST(BloomFilter, DestroyingNoneIsAllowed) {
    bloomFilter_destroy(nullptr);
}

}  // namespace
}  // namespace tabulo::internal::test
