// What a builder makes of a table, and how it goes on where it, or another one, has stopped.
#include "index/index_builder.h"

#include <filesystem>

#include "tests/index/indexed_table.h"

namespace tabulo::internal::test {
namespace {

class IndexBuilderTest : public IndexedTableTest {
  protected:
    IndexSlot slot() const {
        const Bytes bytes = readFile(indexPath());
        IndexSlotPages pages;
        std::memcpy(&pages, bytes.data(), sizeof(pages));
        return indexSlot_choose(pages).value_or(IndexSlot{});
    }
    static std::vector<std::uint32_t> blocksOfRuns(const IndexSlot& slot) {
        std::vector<std::uint32_t> blocks;
        for (const IndexRun& run : slot.runs) {
            blocks.push_back(run.blocks);
        }
        return blocks;
    }
    // Changes the message with this uniform id so that its block is damaged.
    void damageFrame(std::int32_t n) const {
        const TableMap map = mapOf(shape, messages(n));
        patchFile(path(), map.frame(static_cast<std::size_t>(n)).start, Bytes{0xFF, 0xFF, 0xFF, 0x7F});
    }
    std::vector<Message> messages(std::int32_t last) const {
        std::vector<Message> all;
        for (std::int32_t n = 1; n <= last; ++n) {
            all.push_back(messageOf(n));
        }
        return all;
    }
    // Puts the table there again with messages first to last of another text.
    void refill(std::int32_t last) {
        ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
        written = 0;
        write(1, last);
    }
};

TEST_F(IndexBuilderTest, CoversTheClosedBlocksAndNotTheOpenOne) {
    write(1, 4 * 5 + 3);
    build();
    EXPECT_EQ(covered(), 5U);
    EXPECT_EQ(indexFault(23), "");
    EXPECT_EQ(slot().runs.size(), 1U);
}

TEST_F(IndexBuilderTest, OfATableWithoutAClosedBlockMakesAnIndexThatNobodyUses) {
    build();
    EXPECT_EQ(covered(), 0U);
    EXPECT_TRUE(std::filesystem::exists(indexPath()));
    write(1, 3);
    build();
    EXPECT_EQ(covered(), 0U);
    write(4, 4);
    build();
    EXPECT_EQ(covered(), 1U);
    EXPECT_EQ(indexFault(4), "");
}

TEST_F(IndexBuilderTest, GoesOnWhereItStopped) {
    const auto builder = openBuilder();
    for (int i = 1; i <= 6; ++i) {
        writeBlocks(i);
        ASSERT_EQ(update(builder.get()), NO_ERROR);
        EXPECT_EQ(indexFault(written), "") << "round " << i;
        EXPECT_EQ(covered(), static_cast<std::uint32_t>(written) / 4);
    }
    EXPECT_EQ(blocksOfRuns(builder->slot()), (std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(IndexBuilderTest, GoesOnWhereAnotherOneStopped) {
    for (int i = 1; i <= 4; ++i) {
        writeBlocks(2);
        build();
    }
    EXPECT_EQ(blocksOfRuns(slot()), (std::vector<std::uint32_t>{2, 2, 2, 2}));
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexBuilderTest, KeepsTheBlocksItHasReadUntilTheyAreEnough) {
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    for (int i = 1; i < 5; ++i) {
        writeBlocks(1);
        ASSERT_EQ(builder->update(table.get(), 5, {}), NO_ERROR);
        EXPECT_EQ(covered(), 0U);
    }
    writeBlocks(1);
    ASSERT_EQ(builder->update(table.get(), 5, {}), NO_ERROR);
    EXPECT_EQ(covered(), 5U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_EQ(builder->slot().runs.size(), 1U);
}

TEST_F(IndexBuilderTest, WithNothingNewWritesNothing) {
    writeBlocks(3);
    const auto builder = openBuilder();
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    const Bytes before = readFile(indexPath());
    write(13, 14);
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    ASSERT_EQ(builder->merge(), NO_ERROR);
    EXPECT_EQ(difference(readFile(indexPath()), before), "");
}

TEST_F(IndexBuilderTest, StoppedInTheMidstCoversWhatItHasRead) {
    writeBlocks(6);
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    int left = 4;
    const IndexProgress progress{
        &left, [](void* owner, std::int64_t, std::int64_t) { return --*static_cast<int*>(owner) >= 0; }};
    ASSERT_EQ(builder->update(table.get(), 1, progress), NO_ERROR);
    EXPECT_EQ(covered(), 4U);
    EXPECT_EQ(indexFault(16), "");
    ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
    EXPECT_EQ(indexFault(24), "");
    EXPECT_EQ(covered(), 6U);
}

TEST_F(IndexBuilderTest, TellsWhereItIsAndHowManyMessagesItHasSeen) {
    writeBlocks(3);
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    struct Seen {
        std::vector<std::int64_t> offsets;
        std::vector<std::int64_t> messages;
    } seen;
    const IndexProgress progress{&seen, [](void* owner, std::int64_t offset, std::int64_t messages) {
                                     static_cast<Seen*>(owner)->offsets.push_back(offset);
                                     static_cast<Seen*>(owner)->messages.push_back(messages);
                                     return true;
                                 }};
    ASSERT_EQ(builder->update(table.get(), 1, progress), NO_ERROR);
    EXPECT_EQ(seen.messages, (std::vector<std::int64_t>{0, 4, 8, 12}));
    const TableMap map = mapOf(shape, messages(12));
    ASSERT_EQ(seen.offsets.size(), 4U);
    EXPECT_EQ(seen.offsets[1], static_cast<std::int64_t>(map.blockStarts[1]));
    EXPECT_EQ(seen.offsets[3], static_cast<std::int64_t>(map.openBlockStart));
}

// A killed builder leaves the pages of a run without the slot that tells of it.
TEST_F(IndexBuilderTest, KilledBetweenARunAndItsSlotLeavesAnIndexOfTheBlocksBefore) {
    writeBlocks(3);
    build();
    const Bytes before = readFile(indexPath());
    writeBlocks(5);
    build();
    const Bytes after = readFile(indexPath());
    ASSERT_GT(after.size(), before.size());
    patchFile(indexPath(), 0, slice(before, 0, INDEX_SLOTS * INDEX_PAGE_SIZE));
    EXPECT_EQ(covered(), 3U);
    EXPECT_EQ(indexFault(written), "");
    build();
    EXPECT_EQ(covered(), 8U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_EQ(difference(readFile(indexPath()), after), "") << "the same run took the same place";
}

// Also in the midst of a run, or of the slot's page.
TEST_F(IndexBuilderTest, KilledAfterAnyNumberOfPagesLeavesAnIndexThatGoesOn) {
    writeBlocks(3);
    build();
    const Bytes before = readFile(indexPath());
    writeBlocks(5);
    build();
    const Bytes after = readFile(indexPath());
    for (std::size_t size = before.size(); size <= after.size(); size += INDEX_PAGE_SIZE / 2) {
        writeFile(indexPath(), concatenated(before, slice(after, before.size(), size)));
        EXPECT_EQ(covered(), 3U);
        EXPECT_EQ(indexFault(written), "") << size;
        build();
        EXPECT_EQ(covered(), 8U) << size;
        EXPECT_EQ(indexFault(written), "") << size;
    }
    for (std::size_t count = 0; count < 2 * INDEX_PAGE_SIZE; count += 512) {  // the newer slot, half written
        Bytes torn = before;
        torn.insert(torn.end(), after.begin() + static_cast<std::ptrdiff_t>(before.size()), after.end());
        std::copy_n(after.begin(), count, torn.begin());
        writeFile(indexPath(), torn);
        EXPECT_TRUE(covered() == 3 || covered() == 8) << covered();
        EXPECT_EQ(indexFault(written), "") << count;
    }
}

TEST_F(IndexBuilderTest, BeginsAnewWhenBothSlotsAreLost) {
    writeBlocks(4);
    build();
    patchFile(indexPath(), 100, Bytes(8, 0x5A));
    patchFile(indexPath(), INDEX_PAGE_SIZE + 100, Bytes(8, 0x5A));
    EXPECT_EQ(covered(), 0U);
    build();
    EXPECT_EQ(covered(), 4U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_FALSE(std::filesystem::exists(newIndexPath()));
}

TEST_F(IndexBuilderTest, BeginsAnewWhenTheTableWasDroppedAndFilledAgain) {
    writeBlocks(6);
    const auto builder = openBuilder();
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    mark = 'd';
    refill(24);
    EXPECT_EQ(covered(), 0U) << "the index is of the messages before";
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), 6U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_EQ(builder->slot().runs.size(), 1U);
}

TEST_F(IndexBuilderTest, BeginsAnewWhenTheTableWasDroppedAndHoldsLess) {
    writeBlocks(6);
    const auto builder = openBuilder();
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    refill(9);
    EXPECT_EQ(covered(), 0U);
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), 2U);
    EXPECT_EQ(indexFault(written), "");
    refill(0);
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), 0U);
}

// The blocks that were read are forgotten, too: the last of them looks the same in the new table.
TEST_F(IndexBuilderTest, ForgetsTheBlocksItHasReadWhenTheTableIsDroppedBeforeTheyAreCovered) {
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    writeBlocks(3);
    ASSERT_EQ(builder->update(table.get(), 16, {}), NO_ERROR);
    ASSERT_EQ(mt_drop(writer.get()), NO_ERROR);
    written = 0;
    mark = 'd';
    write(1, 4);
    mark = 'c';
    write(5, 16);
    ASSERT_EQ(builder->update(table.get(), 4, {}), NO_ERROR);
    EXPECT_EQ(covered(), 4U);
    const MessageTablePtr reader = openReader();
    std::vector<std::uint32_t> found;
    mark = 'd';
    const std::string text = messageOf(2).strings[2].value();
    ASSERT_TRUE(index(reader.get())
                    ->collect(FIRST_TEXT_PART + 2, std::vector<KeyRange>{{keyOf(text), keyOf(text)}}, 10, &found));
    EXPECT_EQ(found, std::vector<std::uint32_t>{1}) << "the second message of the new table";
}

TEST_F(IndexBuilderTest, StopsInFrontOfADamagedBlockAndCoversWhatStandsBefore) {
    writeBlocks(6);
    damageFrame(14);  // of the fourth block
    const auto builder = openBuilder();
    EXPECT_EQ(update(builder.get()), NO_ERROR) << "damage is told where the table is read";
    EXPECT_EQ(covered(), 3U);
    EXPECT_EQ(indexFault(12), "");
    EXPECT_EQ(update(builder.get()), NO_ERROR) << "and again";
    EXPECT_EQ(covered(), 3U);
}

// The last one's text reaches beyond the block: what is there is no frame, and no other one.
TEST_F(IndexBuilderTest, StopsInFrontOfABlockWhoseLastFrameIsTooShortForItsFields) {
    writeBlocks(6);
    const TableMap map = mapOf(shape, messages(16));
    const TableMap::Frame& last = map.frame(16);
    const std::size_t text = last.start + FRAME_FIXED_SIZE + shape.numericNames.size();  // each absent: a byte
    ASSERT_LT(text + 4, last.end);
    patchFile(path(), text, Bytes{0xFF, 0xFF, 0x00, 0x00});
    const auto builder = openBuilder();
    EXPECT_EQ(update(builder.get()), NO_ERROR) << "damage is told where the table is read";
    EXPECT_EQ(covered(), 3U);
}

TEST_F(IndexBuilderTest, StopsInFrontOfABlockWhoseLengthIsDamagedAndCoversWhatStandsBefore) {
    writeBlocks(6);
    const TableMap map = mapOf(shape, messages(24));
    patchFile(path(), map.blockStarts[3], Bytes{0xFF, 0xFF, 0xFF, 0xFF});
    const auto builder = openBuilder();
    EXPECT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), 3U);
    EXPECT_EQ(indexFault(12), "");
}

TEST_F(IndexBuilderTest, BeginsAnewAfterARecoveryThatChangedTheLastCoveredBlock) {
    writeBlocks(6);
    build();
    ASSERT_EQ(covered(), 6U);
    // The last block loses its footer, as by a crash, and is written on after a recovery.
    const TableMap map = mapOf(shape, messages(24));
    writer.reset();
    writeFile(path(), cutAt(readFile(path()), map.frame(24).start));
    EXPECT_EQ(covered(), 0U) << "the footer of the last covered block is gone";
    writer = openTable(directory.root(), OpenMode::write, shape);
    mark = 'd';
    write(24, 24);
    mark = 'c';
    EXPECT_EQ(covered(), 0U) << "it is another one now";
    build();
    EXPECT_EQ(covered(), 6U);
    std::vector<std::uint32_t> found;
    const MessageTablePtr reader = openReader();
    const std::uint32_t before = keyOf(messageOf(24).strings[2].value());
    ASSERT_TRUE(index(reader.get())->collect(FIRST_TEXT_PART + 2, std::vector<KeyRange>{{before, before}}, 10, &found));
    EXPECT_EQ(found, std::vector<std::uint32_t>{}) << "the text that was lost";
}

}  // namespace
}  // namespace tabulo::internal::test
