// The sorted map of a run: written and looked up beside a plain one.
#include "index/key_map.h"

#include <map>
#include <random>

#include "tests/index/run_file.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

using Entry = std::pair<std::uint32_t, std::uint32_t>;

class KeyMap : public RunFileTest {
  protected:
    // Entries ascend by key, and by message.
    IndexRun write(const std::vector<Entry>& entries) {
        return writeRun(1, [&](RunWriter* run) {
            KeyMapWriter keys(run);
            for (const auto& [key, message] : entries) {
                keys.add(key, message);
            }
            part = keys.finish();
            return std::vector<IndexPart>{part};
        });
    }
    // The entries from a key on, at most so many, and an expectation that all pages are sound.
    static std::vector<Entry> read(IndexPages* pages, const IndexRun& run, std::uint32_t from,
                                   std::size_t most = SIZE_MAX) {
        KeyMapCursor cursor(pages, run, 0, from);
        std::vector<Entry> found;
        while (found.size() < most && cursor.next()) {
            found.emplace_back(cursor.key(), cursor.message());
        }
        EXPECT_TRUE(cursor.isSound()) << "from key " << from;
        return found;
    }
    void expectRoundTrip(const std::vector<Entry>& entries) {
        const IndexRun run = write(entries);
        IndexPages pages = open();
        const std::vector<Entry> found = read(&pages, run, 0);
        ASSERT_EQ(found.size(), entries.size());
        for (std::size_t i = 0; i < entries.size(); ++i) {
            ASSERT_EQ(found[i], entries[i]) << "entry " << i;
        }
    }
    // What stands from a key on, compared with a plain map's; the keys of the map and their neighbours, or some.
    void expectLookUps(const std::multimap<std::uint32_t, std::uint32_t>& entries, std::mt19937* random) {
        const IndexRun run = write(std::vector<Entry>(entries.begin(), entries.end()));
        IndexPages pages = open();
        constexpr std::size_t FOLLOWED = 70;  // more than an entry holds
        for (int i = 0; i < 3000; ++i) {
            auto near = entries.lower_bound(static_cast<std::uint32_t>((*random)()));
            const std::uint32_t key = near == entries.end() || i % 3 == 0
                                          ? static_cast<std::uint32_t>((*random)())
                                          : near->first + static_cast<std::uint32_t>((*random)()) % 3 - 1;
            std::vector<Entry> expected;
            for (auto at = entries.lower_bound(key); at != entries.end() && expected.size() < FOLLOWED; ++at) {
                expected.emplace_back(at->first, at->second);
            }
            ASSERT_EQ(read(&pages, run, key, FOLLOWED), expected) << "from key " << key;
        }
    }

    IndexPart part;
};

TEST_F(KeyMap, WithoutEntriesHasNoPageAndIsSound) {
    const IndexRun run = write(std::vector<Entry>{});
    EXPECT_EQ(run.pages, 1U) << "of parts";
    IndexPages pages = open();
    EXPECT_EQ(read(&pages, run, 0), std::vector<Entry>{});
    EXPECT_EQ(read(&pages, run, 0xFFFF'FFFF), std::vector<Entry>{});
}

TEST_F(KeyMap, OfAFewEntriesIsTheBytesOfTheMap) {
    const IndexRun run = write({{0x100, 5}, {0x100, 8}, {0x103, 300}});
    ASSERT_EQ(run.pages, 2U);
    const Bytes bytes = readFile(path);
    const auto leaf = bytes.begin() + std::ptrdiff_t{INDEX_SLOTS + 1} * INDEX_PAGE_SIZE + 8;
    // First key, end; the key with two messages, then that 3 further with one.
    EXPECT_EQ(toHex(Bytes(leaf, leaf + 16)), "00 01 00 00 17 00 00 00 01 02 05 03 06 ac 02 00");
}

TEST_F(KeyMap, KeepsTheEndsOfTheKeysAndOfTheNumbers) {
    expectRoundTrip({{0, 0}, {0, 0xFFFF'FFFF}, {0xFFFF'FFFF, 0}, {0xFFFF'FFFF, 0xFFFF'FFFF}});
    expectRoundTrip({{0xFFFF'FFFF, 0xFFFF'FFFF}});
}

TEST_F(KeyMap, IsGoneOverFromItsSmallestKeyWhenNoKeyIsGiven) {
    const IndexRun run = write({{0, 3}, {1, 4}});
    IndexPages pages = open();
    KeyMapCursor cursor(&pages, run, 0);
    ASSERT_TRUE(cursor.next());
    EXPECT_EQ(cursor.key(), 0U);
    EXPECT_EQ(cursor.message(), 3U);
}

TEST_F(KeyMap, KeepsEveryLengthOfADistanceBetweenKeysAndBetweenMessages) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        for (const std::uint32_t off : {0U, 1U, 0xFFFF'FFFFU}) {
            const std::uint32_t distance = (1U << bit) + off;
            if (distance == 0) {
                continue;
            }
            expectRoundTrip({{0, 1}, {distance, 0}, {distance, distance}});
            expectRoundTrip({{0xFFFF'FFFF - distance, distance}, {0xFFFF'FFFF, 1}, {0xFFFF'FFFF, 1 + distance / 2}});
        }
    }
}

TEST_F(KeyMap, SplitsAKeyWithMoreMessagesThanAnEntryHolds) {
    for (const std::uint32_t count : {1U, 2U, 63U, 64U, 65U, 127U, 128U, 129U, 1000U}) {
        std::vector<Entry> entries{{6, 9}};
        for (std::uint32_t i = 0; i < count; ++i) {
            entries.emplace_back(7, 3 * i);
        }
        entries.emplace_back(8, 1);
        expectRoundTrip(entries);
    }
}

TEST_F(KeyMap, FindsTheFirstMessageOfAKeyThatBeginsInThePageBefore) {
    std::vector<Entry> entries{{5, 1}};
    for (std::uint32_t i = 0; i < 20'000; ++i) {
        entries.emplace_back(7, 100 * i);  // of several pages
    }
    entries.emplace_back(9, 4);
    const IndexRun run = write(entries);
    ASSERT_GT(part.leaves, 5U);
    IndexPages pages = open();
    for (const std::uint32_t key : {6U, 7U}) {
        const std::vector<Entry> found = read(&pages, run, key);
        ASSERT_EQ(found.size(), 20'001U) << "from key " << key;
        EXPECT_EQ(found.front(), Entry(7, 0));
    }
    EXPECT_EQ(read(&pages, run, 8), (std::vector<Entry>{{9, 4}}));
    EXPECT_EQ(read(&pages, run, 10), std::vector<Entry>{});
}

TEST_F(KeyMap, OfRandomKeysFindsWhatAPlainMapFinds) {
    const std::uint32_t seed = testSeed();
    std::mt19937 random(seed);
    for (const std::uint32_t spread : {0xFFFF'FFFFU, 100'000U, 300U}) {  // few keys have many messages
        std::multimap<std::uint32_t, std::uint32_t> entries;
        const std::uint32_t base = spread == 0xFFFF'FFFF ? 0 : static_cast<std::uint32_t>(random()) / 2;
        for (std::uint32_t message = 0; message < 20'000; ++message) {
            entries.emplace(base + static_cast<std::uint32_t>(random()) % spread, message);
        }
        expectLookUps(entries, &random);
        EXPECT_GT(part.leaves, 1U);
    }
}

TEST_F(KeyMap, OfThreeLevelsFindsWhatAPlainMapFinds) {
    const std::uint32_t seed = testSeed();
    std::mt19937 random(seed);
    std::multimap<std::uint32_t, std::uint32_t> entries;
    for (std::uint32_t i = 0; i < 700'000; ++i) {
        entries.emplace_hint(entries.end(), 6000 * i + static_cast<std::uint32_t>(random()) % 100, 0xF000'0000 + i);
    }
    expectLookUps(entries, &random);
    EXPECT_GT(part.leaves, KEYS_PER_PAGE) << "two levels stand above the leaves";
}

// As many leaves as one page above them has keys for, each full of entries of the same size.
TEST_F(KeyMap, WithAFullPageAboveTheLeavesHasNoPageBesideIt) {
    std::vector<Entry> entries;
    const auto writeEntries = [&](std::uint32_t count) {
        for (auto i = static_cast<std::uint32_t>(entries.size()); i < count; ++i) {
            entries.emplace_back(6000 * i, 0xF000'0000 + i);
        }
        return write(entries);
    };
    std::uint32_t ofALeaf = 0;
    do {
        ofALeaf += 1;
        static_cast<void>(writeEntries(ofALeaf + 1));
    } while (part.leaves == 1);
    const IndexRun run = writeEntries(ofALeaf * KEYS_PER_PAGE);
    ASSERT_EQ(part.leaves, KEYS_PER_PAGE);
    EXPECT_EQ(run.pages, 1 + KEYS_PER_PAGE + 1) << "the parts, the leaves and the page above";
    IndexPages pages = open();
    EXPECT_EQ(read(&pages, run, entries.back().first), std::vector<Entry>{entries.back()});
}

TEST_F(KeyMap, ReadsOnePageOfEachLevelForALookUp) {
    std::vector<Entry> entries;
    for (std::uint32_t i = 0; i < 700'000; ++i) {
        entries.emplace_back(6000 * i, 0xF000'0000 + i);
    }
    const IndexRun run = write(entries);
    IndexPages pages = open();
    KeyMapCursor cursor(&pages, run, 0, 6000 * 400'000U);
    ASSERT_TRUE(cursor.next());
    EXPECT_EQ(cursor.message(), 0xF000'0000 + 400'000U);
    EXPECT_LE(pages.pagesRead(), 5) << "the parts, two levels, the leaf, and one more at most";
}

// A page of each kind, and what is read without it.
TEST_F(KeyMap, WithADamagedPageGivesWhatStandsBeforeItAndEndsUnsound) {
    std::vector<Entry> entries;
    for (std::uint32_t i = 0; i < 5'000; ++i) {
        entries.emplace_back(6000 * i, i);
    }
    const IndexRun run = write(entries);
    ASSERT_EQ(run.pages, 1 + part.leaves + 1) << "the parts, the leaves and a page above";
    for (std::uint32_t page = 0; page < run.pages; ++page) {
        flip(run, page, 50);
        IndexPages pages = open();
        KeyMapCursor cursor(&pages, run, 0, 1);
        std::size_t count = 1;  // key 0 is passed
        while (cursor.next()) {
            ASSERT_EQ(Entry(cursor.key(), cursor.message()), entries.at(count)) << "with page " << page << " damaged";
            count += 1;
        }
        EXPECT_FALSE(cursor.isSound()) << "page " << page << " is damaged";
        EXPECT_LT(count, entries.size());
        EXPECT_FALSE(cursor.next()) << "it has ended";
        flip(run, page, 50);
    }
    IndexPages pages = open();
    EXPECT_EQ(read(&pages, run, 0).size(), entries.size()) << "each page was mended again";
}

TEST_F(KeyMap, OfAnotherRunIsNotTakenForThisOne) {
    const IndexRun run = write({{1, 1}});
    IndexPages pages = open();
    for (const IndexRun& other : {IndexRun{run.firstPage, run.pages, 0, 2}, IndexRun{run.firstPage, run.pages, 1, 1},
                                  IndexRun{run.firstPage + 1, run.pages, 0, 1}, IndexRun{0, run.pages, 0, 1}}) {
        KeyMapCursor cursor(&pages, other, 0, 0);
        EXPECT_FALSE(cursor.next());
        EXPECT_FALSE(cursor.isSound());
    }
    KeyMapCursor noPart(&pages, run, 1, 0);
    EXPECT_FALSE(noPart.next());
    EXPECT_FALSE(noPart.isSound()) << "the run has one part";
}

TEST(KeyOfATextOrAnId, IsThatOfTheTextUpToItsFirstNul) {
    EXPECT_EQ(keyOf(std::string_view("ABC\0\0", 5)), keyOf(std::string_view("ABC")));
    EXPECT_EQ(keyOf(std::string_view("ABC\0x", 5)), keyOf(std::string_view("ABC")));
    EXPECT_NE(keyOf(std::string_view("ABD")), keyOf(std::string_view("ABC")));
    EXPECT_NE(keyOf(std::string_view("ABC ")), keyOf(std::string_view("ABC")));
    EXPECT_EQ(keyOf(std::string_view("\0x", 2)), keyOf(std::string_view()));
}

TEST(KeyOfATextOrAnId, HasTheOrderOfTheIds) {
    const std::vector<std::int32_t> ids{INT32_MIN, INT32_MIN + 1, -2, -1, 0, 1, 2, INT32_MAX - 1, INT32_MAX};
    for (std::size_t i = 1; i < ids.size(); ++i) {
        EXPECT_LT(keyOf(ids[i - 1]), keyOf(ids[i])) << ids[i];
    }
    EXPECT_EQ(keyOf(INT32_MIN), 0U);
    EXPECT_EQ(keyOf(INT32_MAX), 0xFFFF'FFFFU);
}

}  // namespace
}  // namespace tabulo::internal::test
