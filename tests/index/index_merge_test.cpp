// Merging runs: what is merged is what one builder would have written in one go, and garbage stays small.
#include <cerrno>
#include <filesystem>

#include "core/system_error.h"
#include "tests/index/indexed_table.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class IndexMerge : public IndexedTableTest {
  protected:
    static std::uint64_t usedPages(const IndexSlot& slot) {
        std::uint64_t used = INDEX_SLOTS;
        for (const IndexRun& run : slot.runs) {
            used += run.pages;
        }
        return used;
    }
    // Every run is at least four times as long as the one behind it.
    static bool keepsRatio(const IndexSlot& slot) {
        for (std::size_t i = 1; i < slot.runs.size(); ++i) {
            if (slot.runs[i - 1].blocks < 4 * slot.runs[i].blocks) {
                return false;
            }
        }
        return true;
    }
};

TEST_F(IndexMerge, MakesOfSeveralRunsTheOneThatIsWrittenInOneGo) {
    writeBlocks(30);
    build();
    const auto atOnce = openBuilder();
    ASSERT_EQ(atOnce->slot().runs.size(), 1U);
    const std::vector<Bytes> expected = runContents(readFile(indexPath()), atOnce->slot());
    std::filesystem::remove(indexPath());
    build(true);
    const auto builder = openBuilder();
    ASSERT_EQ(builder->slot().runs.size(), 30U);
    ASSERT_EQ(builder->merge(), NO_ERROR);
    ASSERT_EQ(builder->slot().runs.size(), 1U);
    const std::vector<Bytes> merged = runContents(readFile(indexPath()), builder->slot());
    ASSERT_EQ(merged.size(), expected.size());
    for (std::size_t i = 0; i < merged.size(); ++i) {
        EXPECT_EQ(difference(merged[i], expected[i]), "") << "page " << i;
    }
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexMerge, KeepsTheRatioOfTheRunsAndEveryAnswer) {
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    for (int i = 1; i <= 60; ++i) {
        writeBlocks(1 + i % 3);
        ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
        ASSERT_EQ(builder->merge(), NO_ERROR);
        ASSERT_TRUE(keepsRatio(builder->slot())) << "round " << i;
        ASSERT_LE(builder->slot().runs.size(), 8U);
        ASSERT_EQ(covered(), static_cast<std::uint32_t>(written) / 4) << "round " << i;
        if (i % 10 == 0) {
            ASSERT_EQ(indexFault(written), "") << "round " << i;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(newIndexPath()));
}

TEST_F(IndexMerge, LeavesNoMoreThanAQuarterOfTheFileAsGarbage) {
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    writeBlocks(1500);  // a merge of what comes is small beside it
    int withGarbage = 0;
    for (int i = 1; i <= 60; ++i) {
        writeBlocks(2);
        ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
        ASSERT_EQ(builder->merge(), NO_ERROR);
        const std::uint64_t pages = std::filesystem::file_size(indexPath()) / INDEX_PAGE_SIZE;
        EXPECT_EQ(pages * INDEX_PAGE_SIZE, builder->bytes());
        const std::uint64_t garbage = pages - usedPages(builder->slot());
        EXPECT_LE(4 * garbage, pages) << "round " << i;
        withGarbage += garbage > 0 ? 1 : 0;
    }
    EXPECT_GT(withGarbage, 0) << "small merges are appended, and leave some";
}

// Runs of more pages than are copied at once.
TEST_F(IndexMerge, IntoANewFileTakesLongRunsAlongPageByPage) {
    shape.messagesPerBlock = 1000;
    begin("large");
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    write(1, 48'000);
    ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
    const std::vector<Bytes> expected = runContents(readFile(indexPath()), builder->slot());
    ASSERT_GT(builder->slot().runs[0].pages, 256U) << "the run is too short for the test";
    bool isNew = false;
    for (int i = 1; i <= 12 && !isNew; ++i) {
        write(written + 1, written + 1000);
        ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
        const std::uint64_t before = builder->bytes();
        ASSERT_EQ(builder->merge(), NO_ERROR);
        isNew = builder->bytes() < before;
    }
    ASSERT_TRUE(isNew) << "no merge has made a new file";
    ASSERT_GT(builder->slot().runs.size(), 1U) << "the long run was merged, too";
    const std::vector<Bytes> copied = runContents(readFile(indexPath()), builder->slot());
    ASSERT_GT(copied.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(difference(copied[i], expected[i]), "") << "page " << i;
    }
    // What is refused from now on is told of the file by its name, which was another one.
    write(written + 1, written + 1000);
    FaultPlatform platform;
    platform.failAll(FileCall::writeAt, ENOSPC);
    systemError_clear();
    EXPECT_EQ(builder->update(table.get(), 1, {}), FILE_WRITE_ERROR);
    EXPECT_STREQ(systemError_refused().path, indexPath().c_str());
}

TEST_F(IndexMerge, OfRunsThatAreLongEnoughDoesNothing) {
    const auto builder = openBuilder();
    ASSERT_EQ(builder->merge(), NO_ERROR) << "there is none";
    for (const int blocks : {16, 4}) {
        writeBlocks(blocks);
        ASSERT_EQ(update(builder.get()), NO_ERROR);
        const Bytes before = readFile(indexPath());
        ASSERT_EQ(builder->merge(), NO_ERROR);
        EXPECT_EQ(difference(readFile(indexPath()), before), "");
    }
    EXPECT_EQ(builder->slot().runs.size(), 2U);
}

TEST_F(IndexMerge, IsDueWhenMoreThanEightRunsHaveGathered) {
    const auto builder = openBuilder();
    for (int i = 1; i <= 9; ++i) {
        writeBlocks(1);
        ASSERT_EQ(update(builder.get()), NO_ERROR);
        EXPECT_EQ(builder->isMergeDue(), i > 8) << i << " runs";
    }
}

// A reader goes on with the file that it has open: the merged runs stand elsewhere.
TEST_F(IndexMerge, MakesRoomForTheRunOfASingleBlock) {
    writeBlocks(static_cast<std::int32_t>(MOST_INDEX_RUNS));
    build(true);
    const auto builder = openBuilder();
    ASSERT_EQ(builder->slot().runs.size(), MOST_INDEX_RUNS);
    writeBlocks(1);
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), MOST_INDEX_RUNS + 1);
    EXPECT_LT(builder->slot().runs.size(), MOST_INDEX_RUNS);
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexMerge, ChangesNothingForAReaderInTheMidstOfAQuery) {
    writeBlocks(40);
    build(true);
    const MessageTablePtr table = openReader();
    const auto before = index(table.get());
    const auto builder = openBuilder();
    ASSERT_EQ(builder->merge(), NO_ERROR);
    std::vector<std::uint32_t> found;
    for (std::int32_t n = 1; n <= written; ++n) {
        ASSERT_TRUE(before->collect(UNIFORM_ID_PART, std::vector<KeyRange>{{keyOf(n), keyOf(n)}}, 10, &found));
        EXPECT_EQ(found, std::vector<std::uint32_t>{static_cast<std::uint32_t>(n - 1)});
    }
    EXPECT_FALSE(before->isCurrent());
    EXPECT_NE(index(table.get()), before) << "the next query uses the merged one";
    EXPECT_EQ(indexFault(written), "");
}

// A damaged page under a merge: what is covered then is covered anew, and a table is never answered wrongly.
TEST_F(IndexMerge, OfARunWithADamagedPageBeginsTheIndexAnew) {
    writeBlocks(12);
    build(true);
    const std::size_t before = openDescriptors();
    {
        const auto builder = openBuilder();
        const IndexRun run = builder->slot().runs.at(5);
        patchFile(indexPath(), (std::size_t{run.firstPage} + run.pages - 1) * INDEX_PAGE_SIZE + 9, Bytes{0x5A, 0xA5});
        static_cast<void>(builder->merge());
        EXPECT_EQ(builder->slot().coveredBlocks, 0U);
        ASSERT_EQ(update(builder.get()), NO_ERROR);
        EXPECT_EQ(builder->slot().coveredBlocks, 12U);
    }
    EXPECT_EQ(covered(), 12U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(newIndexPath()));
}

}  // namespace
}  // namespace tabulo::internal::test
