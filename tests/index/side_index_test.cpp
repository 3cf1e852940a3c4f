// An index as queries use it: it answers as the table does, or not at all, whatever its file holds.
#include "index/side_index.h"

#include <filesystem>
#include <random>

#include "tests/index/indexed_table.h"
#include "tests/support/fault_platform.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

class SideIndexTest : public IndexedTableTest {
  protected:
    // Rules out what has no sequence number in a range.
    struct Wanted {
        std::int32_t first;
        std::int32_t last;
        int asked = 0;
        RangeRule rule() {
            return {this, [](void* owner, const RangeRecord& minimum, const RangeRecord& maximum) {
                        auto* wanted = static_cast<Wanted*>(owner);
                        wanted->asked += 1;
                        return minimum.seqNum > wanted->last || maximum.seqNum < wanted->first;
                    }};
        }
    };
};

TEST_F(SideIndexTest, OfATableWithoutOneIsNone) {
    writeBlocks(3);
    const MessageTablePtr table = openReader();
    EXPECT_EQ(index(table.get()), nullptr);
}

TEST_F(SideIndexTest, IsKeptFromOneQueryToTheNext) {
    writeBlocks(3);
    build();
    const MessageTablePtr table = openReader();
    const auto first = index(table.get());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(index(table.get()), first);
    writeBlocks(1);
    EXPECT_EQ(index(table.get()), first) << "what it covers is what it was";
    build();
    EXPECT_NE(index(table.get()), first);
    EXPECT_EQ(index(table.get())->blocks(), 4U);
}

TEST_F(SideIndexTest, IsNotLookedForWhereItIsNotWanted) {
    writeBlocks(3);
    build();
    const MessageTablePtr table = openReader();
    mt_useSideIndex(table.get(), false);
    {
        FaultPlatform platform;
        EXPECT_EQ(index(table.get()), nullptr);
        EXPECT_EQ(platform.calls().size(), 0U);
    }
    mt_useSideIndex(table.get(), true);
    EXPECT_NE(index(table.get()), nullptr);
}

TEST_F(SideIndexTest, GivesTheNextAndThePreviousBlockThatARuleLeavesOverAllRuns) {
    const std::vector<int> runs{40, 3, 1, 12, 25};
    for (const int blocks : runs) {
        writeBlocks(blocks);
        build();
    }
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    ASSERT_EQ(found->slot().runs.size(), runs.size());
    const std::uint32_t blocks = found->blocks();
    for (std::int32_t first = -3; first <= written + 5; first += 3) {
        Wanted wanted{first, first + 5};
        const auto isLeft = [&](std::uint32_t block) {
            const auto low = static_cast<std::int32_t>(block) * 4 + 1;
            return low <= wanted.last && low + 3 >= wanted.first;
        };
        for (std::uint32_t from = 0; from <= blocks; ++from) {
            std::uint32_t next = from;
            while (next < blocks && !isLeft(next)) {
                next += 1;
            }
            ASSERT_EQ(found->next(from, wanted.rule()), next) << "from block " << from << ", number " << first;
            std::uint32_t behind = from;
            while (behind > 0 && !isLeft(behind - 1)) {
                behind -= 1;
            }
            ASSERT_EQ(found->previous(from, wanted.rule()), behind == 0 ? blocks : behind - 1)
                << "before block " << from << ", number " << first;
        }
    }
}

TEST_F(SideIndexTest, PassesBlocksBySomeRangesAndNotByEachOne) {
    writeBlocks(600);
    build();
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    Wanted atEnd{written - 1, written};
    EXPECT_EQ(found->next(0, atEnd.rule()), 599U);
    EXPECT_LE(atEnd.asked, 100);
    Wanted atBegin{1, 1};
    EXPECT_EQ(found->previous(600, atBegin.rule()), 0U);
    EXPECT_LE(atBegin.asked, 100);
}

TEST_F(SideIndexTest, TellsWhereEachBlockBeginsAndHowManyBeginBeforeAnOffset) {
    writeBlocks(7);
    build();
    writeBlocks(20);
    build();
    std::vector<Message> messages;
    for (std::int32_t n = 1; n <= written; ++n) {
        messages.push_back(messageOf(n));
    }
    const TableMap map = mapOf(shape, messages);
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    EXPECT_EQ(found->end(), static_cast<std::int64_t>(map.openBlockStart));
    EXPECT_EQ(found->messages(), static_cast<std::uint64_t>(written));
    for (std::uint32_t i = 0; i < 27; ++i) {
        const auto start = static_cast<std::int64_t>(map.blockStarts.at(i));
        EXPECT_EQ(found->blockStart(i), start);
        EXPECT_EQ(found->blocksBefore(start), i);
        EXPECT_EQ(found->blocksBefore(start + 1), i + 1);
    }
    EXPECT_EQ(found->blockStart(27), found->end());
    EXPECT_EQ(found->blocksBefore(0), 0U);
    EXPECT_EQ(found->blocksBefore(found->end()), 27U);
    EXPECT_EQ(found->blocksBefore(INT64_MAX), 27U);
}

TEST_F(SideIndexTest, EveryMarkOfABlockLeadsToTheFrameWithItsNumber) {
    for (const std::int32_t perBlock : {1, 2, 63, 64, 65, 200}) {
        SCOPED_TRACE("blocks of " + std::to_string(perBlock));
        shape.messagesPerBlock = perBlock;
        begin("of" + std::to_string(perBlock));
        writeBlocks(2);
        build();
        std::vector<Message> messages;
        for (std::int32_t n = 1; n <= written; ++n) {
            messages.push_back(messageOf(n));
        }
        const TableMap map = mapOf(shape, messages);
        const auto frame = [&](std::int32_t n) { return map.frame(static_cast<std::size_t>(perBlock + n)); };
        const MessageTablePtr table = openReader();
        const MessageTableLayout layout = mt_layout(table.get());
        const std::int32_t step = blockMap_markStep(layout);
        IndexedBlock block;
        ASSERT_TRUE(index(table.get())->read(1, &block));
        for (std::int32_t n = 0; n < perBlock; ++n) {
            std::int32_t pieceSize = 0;
            const FrameMark before = indexedBlock_markBefore(block, layout, n, &pieceSize);
            EXPECT_EQ(before.offset, static_cast<std::int64_t>(frame(before.number + 1).start));
            EXPECT_TRUE(before.number <= n && n - before.number < step) << before.number << " for " << n;
            EXPECT_GT(pieceSize, 0);
            const auto framesEnd = static_cast<std::int64_t>(frame(perBlock).end);
            const FrameMark behind = indexedBlock_markBehind(block, layout, framesEnd, n, &pieceSize);
            EXPECT_EQ(behind.offset, static_cast<std::int64_t>(frame(behind.number).end)) << behind.number;
            EXPECT_TRUE(behind.number > n && behind.number - n <= step) << behind.number << " for " << n;
            EXPECT_GT(pieceSize, 0);
        }
    }
}

TEST_F(SideIndexTest, OfTheWidestLayoutCoversEveryText) {
    shape = widestShape(3);
    begin("wide");
    writeBlocks(20);
    build();
    writeBlocks(9);
    build();
    EXPECT_EQ(indexFault(written), "");
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t field = 4; field < 14; ++field) {  // but for the built-in texts and those two of these tests
        const std::uint32_t key = keyOf("f" + std::to_string(field) + "-70");
        ASSERT_TRUE(found->collect(FIRST_TEXT_PART + field, std::vector<KeyRange>{{key, key}}, 10, &numbers));
        EXPECT_EQ(numbers, std::vector<std::uint32_t>{69}) << "text " << field;
    }
    EXPECT_FALSE(found->collect(FIRST_TEXT_PART + 14, std::vector<KeyRange>{{1, 1}}, 10, &numbers))
        << "the wire message is not covered";
}

TEST_F(SideIndexTest, GivesNoListThatIsLongerThanWanted) {
    writeBlocks(10);
    build();
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    std::vector<std::uint32_t> numbers;
    const std::vector<KeyRange> range{{keyOf(1), keyOf(20)}};
    EXPECT_TRUE(found->collect(UNIFORM_ID_PART, range, 20, &numbers));
    EXPECT_EQ(numbers.size(), 20U);
    EXPECT_FALSE(found->collect(UNIFORM_ID_PART, range, 19, &numbers));
    const std::vector<KeyRange> twice{{keyOf(1), keyOf(5)}, {keyOf(3), keyOf(8)}, {keyOf(-9), keyOf(0)}};
    EXPECT_TRUE(found->collect(UNIFORM_ID_PART, twice, 20, &numbers));
    EXPECT_EQ(numbers, (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6, 7})) << "each once";
    EXPECT_FALSE(found->collect(99, range, 20, &numbers)) << "there is no such part";
}

TEST_F(SideIndexTest, GivesTheMessageWithTheLowestKeyFromAKeyOnOfABlocksRun) {
    writeBlocks(5);
    build();
    writeBlocks(5);
    build();
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    for (std::int32_t id = -2; id <= 42; ++id) {
        const std::uint64_t first = id < 1 ? 0 : static_cast<std::uint64_t>(id) - 1;
        EXPECT_EQ(found->lowest(UNIFORM_ID_PART, 4, keyOf(id)), first < 20 ? first : 40) << id;
        EXPECT_EQ(found->lowest(UNIFORM_ID_PART, 5, keyOf(id)), first < 20 ? 20 : std::min<std::uint64_t>(first, 40));
    }
    EXPECT_FALSE(found->lowest(UNIFORM_ID_PART, 10, keyOf(1)).has_value()) << "no such block";
}

TEST_F(SideIndexTest, DeletedOrRenamedIsNotUsedByTheNextQuery) {
    writeBlocks(3);
    build();
    const MessageTablePtr table = openReader();
    const auto before = index(table.get());
    ASSERT_NE(before, nullptr);
    std::filesystem::rename(indexPath(), path() + ".other");
    EXPECT_EQ(index(table.get()), nullptr);
    std::filesystem::rename(path() + ".other", indexPath());
    EXPECT_NE(index(table.get()), nullptr);
    std::filesystem::remove(indexPath());
    EXPECT_EQ(index(table.get()), nullptr);
    IndexedBlock block;
    EXPECT_TRUE(before->read(2, &block)) << "a query at work has the file open still";
}

TEST_F(SideIndexTest, OfAnotherTableOrOfAnotherLayoutIsNotUsed) {
    writeBlocks(3);
    build();
    const Bytes other = readFile(indexPath());
    ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
    std::filesystem::remove(indexPath());
    mark = 'd';
    written = 0;
    writeBlocks(3);
    writeFile(indexPath(), other);
    EXPECT_EQ(covered(), 0U);
    build();
    EXPECT_EQ(covered(), 3U);
    writeFile(path() + ".idx", cutAt(readFile(indexPath()), 2 * INDEX_PAGE_SIZE));
    EXPECT_EQ(indexFault(written, true), "") << "its runs are cut off";
}

TEST_F(SideIndexTest, OfAnEarlierFillingOfTheTableIsNotUsed) {
    writeBlocks(6);
    build();
    const MessageTablePtr table = openReader();
    ASSERT_NE(index(table.get()), nullptr);
    ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
    EXPECT_EQ(index(table.get()), nullptr) << "the table is empty";
    written = 0;
    writeBlocks(3);
    EXPECT_EQ(index(table.get()), nullptr) << "it begins as before, but ends in front of what is covered";
    writeBlocks(2);
    mark = 'd';
    writeBlocks(2);
    EXPECT_EQ(index(table.get()), nullptr) << "the last covered block is another one";
}

TEST_F(SideIndexTest, OfATableThatDiffersInItsFirstMessageAloneIsNotUsed) {
    writeBlocks(3);
    build();
    ASSERT_EQ(covered(), 3U);
    ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
    mark = 'd';
    write(1, 1);
    mark = 'c';
    write(2, 12);
    EXPECT_EQ(covered(), 0U) << "the footer of the last block is what it was";
}

TEST_F(SideIndexTest, WhoseSlotsAreOverwrittenIsNotUsed) {
    writeBlocks(3);
    build();
    const Bytes sound = readFile(indexPath());
    const MessageTablePtr table = openReader();
    ASSERT_NE(index(table.get()), nullptr);
    patchFile(indexPath(), 0, Bytes(2 * INDEX_PAGE_SIZE, 0xFF));
    EXPECT_EQ(index(table.get()), nullptr);
    EXPECT_EQ(index(table.get()), nullptr) << "nor the next time";
    patchFile(indexPath(), 0, sound);
    EXPECT_NE(index(table.get()), nullptr);
}

TEST_F(SideIndexTest, CutAnywhereAnswersAsTheTableOrNotAtAll) {
    writeBlocks(30);
    build();
    writeBlocks(9);
    build();
    const Bytes sound = readFile(indexPath());
    int used = 0;
    for (std::size_t size = 0; size < sound.size(); size += 1500) {
        writeFile(indexPath(), cutAt(sound, size));
        used += covered() > 0 ? 1 : 0;
        ASSERT_EQ(indexFault(written, true), "") << size << " bytes";
    }
    EXPECT_GT(used, 0);
    EXPECT_LE(covered(), 39U);
}

TEST_F(SideIndexTest, WithOverwrittenPlacesAnswersAsTheTableOrNotAtAll) {
    const std::uint32_t seed = testSeed();
    std::mt19937 random(seed);
    writeBlocks(30);
    build();
    writeBlocks(9);
    build();
    const Bytes sound = readFile(indexPath());
    const auto below = [&random](std::size_t count) { return static_cast<std::size_t>(random()) % count; };
    for (int i = 0; i < 150; ++i) {
        Bytes damaged = sound;
        const std::size_t pages = sound.size() / INDEX_PAGE_SIZE;
        for (std::size_t times = 1 + below(3); times > 0; --times) {
            switch (below(3)) {
                case 0:  // a byte
                    damaged[below(sound.size())] ^= static_cast<std::uint8_t>(1 + below(255));
                    break;
                case 1: {  // a page takes the place of another one
                    const auto from = sound.begin() + static_cast<std::ptrdiff_t>(below(pages) * INDEX_PAGE_SIZE);
                    std::copy_n(from, INDEX_PAGE_SIZE,
                                damaged.begin() + static_cast<std::ptrdiff_t>(below(pages) * INDEX_PAGE_SIZE));
                    break;
                }
                default: {  // zeros
                    const std::size_t at = below(sound.size() - 600);
                    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), 1 + below(600), 0);
                }
            }
        }
        writeFile(indexPath(), damaged);
        ASSERT_EQ(indexFault(written, true), "") << "damage number " << i;
    }
}

TEST_F(SideIndexTest, ThatTheSystemRefusesToReadIsNotUsed) {
    writeBlocks(3);
    build();
    const MessageTablePtr table = openReader();
    {
        FaultPlatform platform;
        platform.failAll(FileCall::open, EMFILE);
        EXPECT_EQ(index(table.get()), nullptr);
    }
    for (int n = 1; n <= 3; ++n) {
        const MessageTablePtr fresh = openReader();
        FaultPlatform platform;
        platform.failFrom(FileCall::readAt, n, EIO);
        EXPECT_EQ(index(fresh.get()), nullptr) << "from read " << n << " on";
    }
    EXPECT_NE(index(table.get()), nullptr);
    FaultPlatform platform;
    platform.limitTransfer(100);
    EXPECT_NE(index(table.get()), nullptr) << "it is read in pieces";
}

}  // namespace
}  // namespace tabulo::internal::test
