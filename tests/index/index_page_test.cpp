// The checksum that tells a page of an index from any other bytes.
#include "index/index_page.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/bytes.h"

namespace tabulo::internal::test {
namespace {

IndexPage patternPage() {
    IndexPage page;
    const Bytes bytes = pattern(INDEX_PAGE_SIZE, 3);
    std::copy(bytes.begin(), bytes.end(), page.bytes.begin());
    return page;
}

TEST(IndexPageChecksum, ASealedPageIsSound) {
    IndexPage page = patternPage();
    EXPECT_FALSE(indexPage_isSound(page, 7)) << "it was not sealed";
    indexPage_seal(&page, 7);
    EXPECT_TRUE(indexPage_isSound(page, 7));
}

TEST(IndexPageChecksum, SealingChangesNothingButTheChecksum) {
    const IndexPage before = patternPage();
    IndexPage page = before;
    indexPage_seal(&page, 7);
    EXPECT_TRUE(std::equal(before.bytes.begin() + INDEX_PAGE_CONTENT, before.bytes.end(),
                           page.bytes.begin() + INDEX_PAGE_CONTENT));
}

TEST(IndexPageChecksum, AChangedBitAnywhereIsNoticed) {
    IndexPage page = patternPage();
    indexPage_seal(&page, 7);
    for (std::size_t at = 0; at < INDEX_PAGE_SIZE; ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            page.bytes[at] ^= static_cast<std::uint8_t>(1U << bit);
            ASSERT_FALSE(indexPage_isSound(page, 7)) << "bit " << bit << " of byte " << at;
            page.bytes[at] ^= static_cast<std::uint8_t>(1U << bit);
        }
    }
}

TEST(IndexPageChecksum, WordsThatChangedPlacesAreNoticed) {
    IndexPage page = patternPage();
    indexPage_seal(&page, 7);
    for (std::size_t first = INDEX_PAGE_CONTENT; first < INDEX_PAGE_SIZE; first += 8) {
        for (const std::size_t distance : {std::size_t{8}, std::size_t{32}, std::size_t{64}}) {
            const std::size_t other = first + distance;
            if (other + 8 > INDEX_PAGE_SIZE || page.get<std::uint64_t>(first) == page.get<std::uint64_t>(other)) {
                continue;
            }
            IndexPage swapped = page;
            swapped.put(first, page.get<std::uint64_t>(other));
            swapped.put(other, page.get<std::uint64_t>(first));
            ASSERT_FALSE(indexPage_isSound(swapped, 7)) << "words at " << first << " and " << other;
        }
    }
}

TEST(IndexPageChecksum, APageOfAnotherSeedIsNotTakenForThisOne) {
    IndexPage page = patternPage();
    indexPage_seal(&page, 7);
    for (std::uint64_t seed = 0; seed < 1000; ++seed) {
        EXPECT_EQ(indexPage_isSound(page, seed), seed == 7) << seed;
    }
}

TEST(IndexPageChecksum, AnEmptyPageAndOneOfZerosAreNotSound) {
    const IndexPage zeros;
    EXPECT_FALSE(indexPage_isSound(zeros, 0));
    EXPECT_FALSE(indexPage_isSound(zeros, 7));
}

TEST(IndexChecksum, TellsBytesOfEveryLengthFromThoseWithOneMore) {
    const Bytes bytes = pattern(200, 3);
    const Bytes zeros(200, 0);
    std::set<std::uint64_t> sums;
    for (std::size_t length = 0; length <= 200; ++length) {
        sums.insert(indexChecksum(std::span(bytes).first(length), 1));
        sums.insert(indexChecksum(std::span(zeros).first(length), 1));
    }
    EXPECT_EQ(sums.size(), 401U) << "two of them have the same sum; of no byte at all there is one";
}

TEST(IndexChecksum, NoticesAChangedByteAtEveryPlaceOfAShortText) {
    for (std::size_t length = 1; length <= 70; ++length) {
        Bytes bytes = pattern(length);
        const std::uint64_t sum = indexChecksum(bytes, 5);
        for (std::size_t at = 0; at < length; ++at) {
            bytes[at] ^= 1;
            ASSERT_NE(indexChecksum(bytes, 5), sum) << "byte " << at << " of " << length;
            bytes[at] ^= 1;
        }
        EXPECT_EQ(indexChecksum(bytes, 5), sum);
    }
}

TEST(IndexChecksum, NumbersMixedIntoASeedGiveSeedsOfTheirOwn) {
    std::set<std::uint64_t> seeds;
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        for (std::uint64_t number = 0; number < 100; ++number) {
            seeds.insert(indexSeed(seed, number));
        }
    }
    EXPECT_EQ(seeds.size(), 10'000U);
    EXPECT_EQ(indexSeed(1, 2), 0x950c5e9f729c31bfU) << "what stands in files";
}

}  // namespace
}  // namespace tabulo::internal::test
