// Queries over a table with a side index: what they read of it, and what they leave unread.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "index/side_index.h"
#include "tests/query/indexed_query_fixture.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {
namespace {

class IndexedQueryOfDamage : public IndexedQuery {
  protected:
    // The length in front of this message's text is no length any more.
    void damage(std::int32_t n) {
        std::vector<std::uint8_t> bytes = readFile(path());
        const std::string text = textOf(n) + '\0';
        const auto found = std::search(bytes.begin(), bytes.end(), text.begin(), text.end());
        ASSERT_NE(found, bytes.end());
        std::fill_n(found - 4, 4, std::uint8_t{0xFF});
        writeFile(path(), bytes);
    }
};

TEST_F(IndexedQuery, OfATextReadsTheBlockThatHoldsItAndLooksAtTheOneMessage) {
    fill(2000);
    const MessageTablePtr reader = openReader();
    for (const bool backward : {false, true}) {
        for (const std::int32_t n : {1, 10, 11, 999, 1991, 2000}) {
            const Cost found = cost(reader.get(), byText(textOf(n), backward));
            EXPECT_EQ(found.ids, std::vector<std::int32_t>{n});
            EXPECT_LE(found.blocksRead, 2) << "of " << n << ", with the one where the walk begins or ends";
            EXPECT_LE(found.messagesAsked, 1) << n;
        }
        const Cost absent = cost(reader.get(), byText("nowhere", backward));
        EXPECT_EQ(absent.ids, std::vector<std::int32_t>{});
        EXPECT_LE(absent.blocksRead, 1);
        EXPECT_EQ(absent.messagesAsked, 0);
    }
}

TEST_F(IndexedQuery, CostsAsManyCallsAmongTwentyTimesTheMessages) {
    const auto costs = [this](std::int32_t messages) {
        fill(messages);
        std::vector<Cost> found;
        for (const bool backward : {false, true}) {
            found.push_back(secondCost([&] { return byText(textOf(messages / 2), backward); },
                                       [&] { return byText(textOf(messages / 3), backward); }));
            found.push_back(
                secondCost([&] { return byText("nowhere", backward); }, [&] { return byText(textOf(1), backward); }));
            found.push_back(secondCost([&] { return bySeqNum(messages / 2, messages / 2 + 99, backward); },
                                       [&] { return byText(textOf(1), backward); }));
        }
        return found;
    };
    const std::vector<Cost> small = costs(1000);
    const std::vector<Cost> large = costs(20'000);
    for (std::size_t i = 0; i < small.size(); ++i) {
        EXPECT_EQ(small[i].ids.size(), large[i].ids.size());
        // A page more, for a level more of the blocks or of the keys.
        EXPECT_LE(large[i].calls, small[i].calls + 1) << "query " << i;
        EXPECT_LE(large[i].bytes, small[i].bytes + 5000 + 100 * large[i].blocksRead) << "query " << i;
        EXPECT_EQ(large[i].blocksRead, small[i].blocksRead) << "query " << i;
    }
    // The slots, the identity, the last footer, two pages of the keys, two of the blocks, the footer, the frames.
    EXPECT_LE(large[0].calls, 9) << "a text that is there";
    EXPECT_LE(large[1].calls, 6) << "a text that is not there";
    EXPECT_LE(large[1].bytes, 18'000);
    EXPECT_LE(large[2].calls, 9 + 2 * 11) << "100 messages in 11 blocks";
    EXPECT_LE(large[3].calls, 11) << "a text that is there, backward";
    EXPECT_LE(large[4].calls, 7) << "a text that is not there, backward";
    EXPECT_LE(large[5].calls, 10 + 3 * 11) << "100 messages in 11 blocks, backward";
}

TEST_F(IndexedQuery, OfBlocksOfAThousandCostsAFewCallsToo) {
    layout = layoutOf(1000, 1, 1);
    fill(20'000);
    const auto any = [] { return byText(textOf(1)); };
    const Cost present = secondCost([] { return byText(textOf(9876)); }, any);
    EXPECT_EQ(present.ids, std::vector<std::int32_t>{9876});
    EXPECT_LE(present.calls, 10);
    EXPECT_LE(present.messagesAsked, 1);
    EXPECT_LE(present.bytes, 40'000) << "of a block it reads the frames near the one";
    const Cost absent = secondCost([] { return byText("nowhere"); }, any);
    EXPECT_EQ(absent.ids, std::vector<std::int32_t>{});
    EXPECT_LE(absent.calls, 6);
    const Cost range = secondCost([] { return bySeqNum(9501, 10'500); }, any);
    EXPECT_EQ(range.ids, idsFromTo(9501, 10'500));
    EXPECT_EQ(range.blocksRead, 2);
    EXPECT_LE(range.messagesAsked, 2000);
    EXPECT_LE(range.calls, 20);
}

// A check of a block that says something says it for each block, with an index or without.
TEST_F(IndexedQueryOfDamage, TellsADamagedMessageAgainWhenItIsAskedAgain) {
    fill(2000);
    damage(1005);
    for (const bool backward : {false, true}) {
        const MessageTablePtr reader = openReader();
        QueryConditionsPtr conditions = newConditions(backward);
        const std::int64_t low = 1003;
        const std::int64_t high = 1008;
        ASSERT_EQ(conditions_addLongFilter(conditions.get(), 1, &low, &high, 1, nullptr, 0, false), NO_ERROR);
        const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
        bool end = false;
        ErrorCode code = NO_ERROR;
        for (int i = 0; i < 10 && code == NO_ERROR; ++i) {
            code = mtIterator_next(iterator.get(), &end);
        }
        EXPECT_NE(code, NO_ERROR);
        EXPECT_EQ(mtIterator_next(iterator.get(), &end), code) << (backward ? "backward" : "forward");
    }
}

// Each read of a walk fails once; asked again, it goes on, and leaves out none of the messages that the index lists.
TEST_F(IndexedQuery, LosesAndRepeatsNothingWhenTheSystemFailsAndIsAskedAgain) {
    layout = layoutOf(1000, 1, 1);
    fill(2500);
    int failures = 0;
    for (const bool backward : {false, true}) {
        bool isFailed = true;
        for (int n = 1; isFailed; ++n) {
            const MessageTablePtr reader = openReader();
            QueryConditionsPtr conditions = newConditions(backward);
            EXPECT_EQ(conditions_addStringFilter(conditions.get(), 2, false, false), NO_ERROR);
            EXPECT_EQ(conditions_setStringFilterValueCount(conditions.get(), 3), NO_ERROR);
            int value = 0;
            for (const std::int32_t wanted : {503, 777, 1999}) {
                EXPECT_EQ(conditions_setStringFilterValue(conditions.get(), textOf(wanted).c_str(), value++), NO_ERROR);
            }
            const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
            FaultPlatform platform;
            platform.failNth(FileCall::readAt, n, EIO);
            std::vector<std::int32_t> ids;
            bool end = false;
            for (int i = 0; i < 20 && !(end && isFailed); ++i) {
                const ErrorCode code = mtIterator_next(iterator.get(), &end);
                failures += code == NO_ERROR ? 0 : 1;
                end = end && code == NO_ERROR;
                if (code == NO_ERROR && !end) {
                    ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
                }
            }
            isFailed = platform.count(FileCall::readAt) >= n;
            EXPECT_EQ(ids, backward ? (std::vector<std::int32_t>{1999, 777, 503})
                                    : (std::vector<std::int32_t>{503, 777, 1999}))
                << "read " << n << (backward ? " backward" : " forward");
        }
    }
    EXPECT_GT(failures, 6);
}

// Of blocks of a thousand the index has where every sixteenth message is, the 81st and the 97th among them.
TEST_F(IndexedQueryOfDamage, TellsTheDamagedMessageThatItHasToStepOverAsWithoutTheIndex) {
    layout = layoutOf(1000, 1, 1);
    fill(2000);
    damage(85);
    for (const bool backward : {false, true}) {
        std::vector<ErrorCode> codes;
        for (const bool usesIndex : {false, true}) {
            const MessageTablePtr reader = openReader();
            mt_useSideIndex(reader.get(), usesIndex);
            const MessageTableIteratorPtr iterator =
                openIterator(reader.get(), byText(textOf(backward ? 82 : 90), backward));
            bool end = false;
            codes.push_back(mtIterator_next(iterator.get(), &end));
        }
        EXPECT_NE(codes[0], NO_ERROR) << "the test itself";
        EXPECT_EQ(codes[1], codes[0]) << "with the index a walk " << (backward ? "backward" : "forward")
                                      << " passes over the message it looks for, and over the damage, in silence";
    }
}

TEST_F(IndexedQuery, AllocatesAsOftenAmongTwentyTimesTheMessages) {
    // The first allocation that a look-up does not come to, less one.
    const auto allocations = [this](std::int32_t messages, const std::string& text) {
        fill(messages);
        const MessageTablePtr reader = openReader();
        static_cast<void>(cost(reader.get(), byText(textOf(messages / 3))));
        for (std::int64_t n = 1;; ++n) {
            QueryConditionsPtr conditions = byText(text);
            bool end = false;
            const AllocationFailure failure(n);
            const MessageTableIteratorPtr iterator(mtIterator_open(reader.get(), conditions.release()));
            while (iterator != nullptr && !end && mtIterator_next(iterator.get(), &end) == NO_ERROR) {
            }
            if (!failure.happened()) {
                return n - 1;
            }
        }
    };
    EXPECT_EQ(allocations(4000, textOf(2000)), allocations(200, textOf(100)));
    EXPECT_EQ(allocations(4000, "nowhere"), allocations(200, "nowhere"));
    EXPECT_LE(allocations(4000, textOf(2000)), 30);
}

TEST_F(IndexedQuery, ThatHasToWriteLinesWritesThemAsWithoutTheIndex) {
    fill(100);
    const auto linesOf = [this](bool usesIndex) {
        const MessageTablePtr reader = openReader();
        mt_useSideIndex(reader.get(), usesIndex);
        QueryConditionsPtr conditions = newConditions();
        EXPECT_EQ(conditions_setMessageIdRange(conditions.get(), 5, 2'000'000'000), NO_ERROR);  // of two classes
        log.clear();
        static_cast<void>(cost(reader.get(), std::move(conditions)));
        return log.all();
    };
    const std::vector<std::string> without = linesOf(false);
    EXPECT_GE(without.size(), 10U) << "a line for each block";
    EXPECT_EQ(linesOf(true), without);
}

TEST_F(IndexedQuery, OfARangeReadsTheBlocksThatItTouchesAndNoOther) {
    fill(2000);
    const MessageTablePtr reader = openReader();
    for (const bool backward : {false, true}) {
        const Cost found = cost(reader.get(), bySeqNum(801, 1000, backward));
        EXPECT_EQ(found.ids, backward ? idsFromTo(1000, 801) : idsFromTo(801, 1000));
        EXPECT_LE(found.blocksRead, 20 + 1);
        EXPECT_EQ(found.messagesAsked, 200);
        const Cost nothing = cost(reader.get(), bySeqNum(5000, 6000, backward));
        EXPECT_EQ(nothing.ids, std::vector<std::int32_t>{});
        EXPECT_LE(nothing.blocksRead, 1);
    }
}

// A list of most of the messages would cost more than it spares.
TEST_F(IndexedQuery, OfATextThatManyMessagesHaveDoesNotListThem) {
    const auto askedFor = [this](std::int32_t oneIn) {
        table.reset();
        std::filesystem::remove(path());
        std::filesystem::remove(path() + ".idx");
        create();
        for (std::int32_t n = 1; n <= 320; ++n) {
            Message message = plain(n);
            if (n % oneIn == 0) {
                message.strings[2] = std::string("shared") + '\0';
            }
            write(message);
        }
        build();
        const MessageTablePtr reader = openReader();
        const Cost found = cost(reader.get(), byText("shared"));
        EXPECT_EQ(found.ids.size(), static_cast<std::size_t>(320 / oneIn));
        return found.messagesAsked;
    };
    EXPECT_EQ(askedFor(8), 320) << "blocks of ten, of which each may hold it";
    EXPECT_EQ(askedFor(16), 20) << "those that are listed";
}

TEST_F(IndexedQuery, WithoutAConditionThatTheIndexKnowsDoesNotLookForIt) {
    fill(100);
    const MessageTablePtr reader = openReader();
    FaultPlatform platform;
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), newConditions());
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(1, 100));
    EXPECT_EQ(platform.count(FileCall::open), 0);
}

TEST_F(IndexedQuery, WithoutAnIndexTriesToOpenItOnceAndNoMore) {
    create();
    writePlain(1, 100);
    const MessageTablePtr reader = openReader();
    FaultPlatform platform;
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), byText(textOf(5)));
    EXPECT_EQ(remainingIds(iterator.get()), std::vector<std::int32_t>{5});
    ASSERT_EQ(platform.count(FileCall::open), 1);
    EXPECT_EQ(platform.calls(FileCall::open).front().path, path() + ".idx");
    EXPECT_EQ(platform.calls(FileCall::open).front().access, FileAccess::read);
}

TEST_F(IndexedQuery, NeverWritesLocksOrCutsAnything) {
    fill(200);
    const MessageTablePtr reader = openReader();
    FaultPlatform platform;
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = openIterator(reader.get(), byText(textOf(5), backward));
        EXPECT_EQ(remainingIds(iterator.get()), std::vector<std::int32_t>{5});
    }
    for (const FileCall call :
         {FileCall::writeAt, FileCall::truncate, FileCall::lock, FileCall::remove, FileCall::rename, FileCall::sync}) {
        EXPECT_EQ(platform.count(call), 0) << fileCallName(call);
    }
}

TEST_F(IndexedQuery, GoesOnBesideAWriterOverBlocksThatAreNotCovered) {
    fill(100);
    const MessageTablePtr reader = openReader();
    QueryConditionsPtr conditions = newConditions();
    EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), 95, 135), NO_ERROR);
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), std::move(conditions));
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(95, 100));
    writePlain(101, 123);
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(101, 123));
    build();
    writePlain(124, 160);
    build();
    EXPECT_EQ(remainingIds(iterator.get()), idsFromTo(124, 135));
    const MessageTableIteratorPtr next = openIterator(reader.get(), bySeqNum(95, 135));
    EXPECT_EQ(remainingIds(next.get()), idsFromTo(95, 135));
}

TEST_F(IndexedQuery, KeptOpenOverADropEndsAndTheNextOneSeesTheNewMessages) {
    fill(100);
    const MessageTablePtr reader = openReader();
    const MessageTableIteratorPtr iterator = openIterator(reader.get(), bySeqNum(1, 1000));
    ASSERT_EQ(nextId(iterator.get()), 1);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    for (std::int32_t n = 1; n <= 25; ++n) {
        Message message = plain(n);
        message.strings[2] = textOf(1000 + n) + '\0';
        write(message);
    }
    const MessageTableIteratorPtr old = openIterator(reader.get(), byText(textOf(5)));
    EXPECT_EQ(remainingIds(old.get()), std::vector<std::int32_t>{}) << "the text was in the table before";
    const MessageTableIteratorPtr next = openIterator(reader.get(), byText(textOf(1005)));
    EXPECT_EQ(remainingIds(next.get()), std::vector<std::int32_t>{5});
}

TEST_F(IndexedQuery, FindsEveryTextInEveryState) {
    fill(200);
    writePlain(201, 247);  // closed blocks that are not covered, and an open one
    const MessageTablePtr reader = openReader();
    for (const bool backward : {false, true}) {
        for (std::int32_t n = 1; n <= 247; ++n) {
            const MessageTableIteratorPtr iterator = openIterator(reader.get(), byText(textOf(n), backward));
            ASSERT_EQ(remainingIds(iterator.get()), std::vector<std::int32_t>{n})
                << (backward ? "backward" : "forward");
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
