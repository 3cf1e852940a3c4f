// A builder beside other builders, files that are no index, and a system that refuses.
#include <cerrno>
#include <filesystem>

#include "tests/index/indexed_table.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class IndexBuilderFailure : public IndexedTableTest {
  protected:
    // Blocks in several runs, so that a builder has to append, to merge and to rename.
    void fill() {
        writeBlocks(8);
        build(true);
        writeBlocks(8);
    }
    // Opens a builder, covers everything and merges: the first code that is not NO_ERROR.
    ErrorCode work() const {
        const MessageTablePtr table = openReader();
        const auto builder = newBuilder();
        ErrorCode code = builder->open();
        code = code == NO_ERROR ? builder->update(table.get(), 1, {}) : code;
        return code == NO_ERROR ? builder->merge() : code;
    }
    // Lets the n-th call of a kind fail, for each n that there is, while a builder works: it tells, and the index that
    // is left is used or ignored, and mended by the next builder.
    void refuseEach(FileCall call, int error, const std::vector<ErrorCode>& codes, bool mayBeginAnew = false) {
        fill();
        const Bytes before = readFile(indexPath());
        int refused = 0;
        for (int n = 1; n < 500; ++n) {
            SCOPED_TRACE(std::string(fileCallName(call)) + " number " + std::to_string(n));
            std::filesystem::remove(newIndexPath());
            std::filesystem::remove(indexPath());
            writeFile(indexPath(), before);
            const MessageTablePtr table = openReader();
            const auto builder = newBuilder();
            const std::size_t descriptors = openDescriptors();
            ErrorCode code = NO_ERROR;
            bool isThere = false;
            {
                FaultPlatform platform;
                platform.failNth(call, n, error);
                code = builder->open();
                code = code == NO_ERROR ? builder->update(table.get(), 1, {}) : code;
                code = code == NO_ERROR ? builder->merge() : code;
                isThere = platform.count(call) >= n;
            }
            EXPECT_LE(openDescriptors(), descriptors + 1) << "the builder has one file open";
            EXPECT_EQ(indexFault(written, true), "");
            if (!isThere) {
                EXPECT_EQ(code, NO_ERROR) << getErrorMessage(code);
                EXPECT_GT(n, 1) << "no such call is made";
                break;
            }
            refused += code != NO_ERROR ? 1 : 0;
            EXPECT_TRUE(code == NO_ERROR || std::find(codes.begin(), codes.end(), code) != codes.end())
                << getErrorMessage(code);
            EXPECT_TRUE(covered() >= 8 || (mayBeginAnew && covered() == 0)) << "what was covered is lost";
        }
        EXPECT_GT(refused, 0) << "no refusal was told";
        EXPECT_EQ(work(), NO_ERROR);
        EXPECT_EQ(covered(), 16U);
        EXPECT_EQ(indexFault(written), "");
    }
};

TEST_F(IndexBuilderFailure, OneBuilderAtATimeHasAnIndex) {
    writeBlocks(2);
    const auto first = openBuilder();
    const auto second = newBuilder();
    EXPECT_EQ(second->open(), FILE_OPEN_ERROR);
    EXPECT_TRUE(second->isLocked());
    ASSERT_EQ(update(first.get()), NO_ERROR);
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexBuilderFailure, ABuilderThatEndsLetsTheNextOneIn) {
    openBuilder().reset();
    const auto next = newBuilder();
    EXPECT_EQ(next->open(), NO_ERROR);
    EXPECT_FALSE(next->isLocked());
}

// Also when the index was given to a new file: that one is locked before it has the name.
TEST_F(IndexBuilderFailure, ABuilderThatHasMadeANewFileKeepsTheOthersOut) {
    writeBlocks(12);
    build(true);
    const auto first = openBuilder();
    const std::uint64_t before = std::filesystem::file_size(indexPath());
    ASSERT_EQ(first->merge(), NO_ERROR);
    ASSERT_LT(std::filesystem::file_size(indexPath()), before) << "it was made anew";
    const auto second = newBuilder();
    EXPECT_EQ(second->open(), FILE_OPEN_ERROR);
    EXPECT_TRUE(second->isLocked());
    writeBlocks(1);
    ASSERT_EQ(update(first.get()), NO_ERROR);
    EXPECT_EQ(covered(), 13U);
}

TEST_F(IndexBuilderFailure, AFileThatIsNoIndexIsLeftByteForByte) {
    writeBlocks(2);
    const std::size_t descriptors = openDescriptors();
    for (const std::size_t size : {1U, 8U, 15U, 4095U, 4096U, 4105U, 8192U, 100'000U}) {
        const Bytes foreign = pattern(size, 9);
        writeFile(indexPath(), foreign);
        const auto builder = newBuilder();
        EXPECT_EQ(builder->open(), SIGNATURE_ERROR) << size << " bytes";
        EXPECT_FALSE(builder->isLocked());
        EXPECT_EQ(difference(readFile(indexPath()), foreign), "");
        EXPECT_EQ(covered(), 0U);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(IndexBuilderFailure, AFileOfTheNewNameThatIsNoIndexIsLeftByteForByte) {
    writeBlocks(12);
    build(true);
    const Bytes foreign = pattern(5000, 9);
    writeFile(newIndexPath(), foreign);
    const auto builder = openBuilder();
    EXPECT_EQ(builder->merge(), SIGNATURE_ERROR);
    EXPECT_EQ(difference(readFile(newIndexPath()), foreign), "");
    EXPECT_EQ(covered(), 12U) << "the index is what it was";
    EXPECT_EQ(indexFault(written), "");
    std::filesystem::remove(newIndexPath());
    EXPECT_EQ(builder->merge(), NO_ERROR);
    EXPECT_EQ(builder->slot().runs.size(), 1U);
}

TEST_F(IndexBuilderFailure, WhatAStoppedBuilderHasLeftUnderTheNewNameIsOverwritten) {
    writeBlocks(12);
    build(true);
    const Bytes left = readFile(indexPath());
    for (const std::size_t size : {std::size_t{0}, INDEX_PAGE_SIZE + 16, 2 * INDEX_PAGE_SIZE, left.size()}) {
        const Bytes index = readFile(indexPath());
        writeFile(newIndexPath(), cutAt(left, size));
        const auto builder = openBuilder();
        EXPECT_EQ(builder->merge(), NO_ERROR) << size << " bytes";
        EXPECT_EQ(indexFault(written), "");
        EXPECT_EQ(builder->slot().runs.size(), 1U);
        std::filesystem::remove(indexPath());
        writeFile(indexPath(), left);
    }
}

TEST_F(IndexBuilderFailure, AnEmptyFileBecomesAnIndex) {
    writeBlocks(2);
    writeFile(indexPath(), {});
    EXPECT_EQ(covered(), 0U);
    build();
    EXPECT_EQ(covered(), 2U);
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexBuilderFailure, WhenTheSizeOfWhatHasToBeBegunAnewIsRefusedThatIsTold) {
    writeBlocks(2);
    build();
    for (const std::size_t page : {std::size_t{0}, std::size_t{1}}) {
        patchFile(indexPath(), page * INDEX_PAGE_SIZE + 100, Bytes(8, 0x5A));
    }
    const Bytes damaged = readFile(indexPath());
    {
        const auto builder = newBuilder();
        FaultPlatform platform;
        platform.failNth(FileCall::size, 1, EIO);
        EXPECT_EQ(builder->open(), FILE_READ_ERROR);
        EXPECT_EQ(platform.count(FileCall::size), 1) << "the test itself";
    }
    EXPECT_EQ(difference(readFile(indexPath()), damaged), "");
    EXPECT_EQ(work(), NO_ERROR);
    EXPECT_EQ(covered(), 2U);
}

TEST_F(IndexBuilderFailure, AFolderOfTheNameIsRefused) {
    std::filesystem::create_directory(indexPath());
    const auto builder = newBuilder();
    EXPECT_EQ(builder->open(), FILE_OPEN_ERROR);
    EXPECT_FALSE(builder->isLocked());
}

TEST_F(IndexBuilderFailure, WithoutAnActiveFileThereIsNothingToCover) {
    const auto builder = openBuilder();
    const MessageTablePtr closed = createTable(directory.root(), shape);
    EXPECT_EQ(builder->update(closed.get(), 1, {}), MASTER_INACTIVE_ERROR);
}

TEST_F(IndexBuilderFailure, WhenAWriteIsRefusedTheIndexIsUsedOrIgnored) {
    refuseEach(FileCall::writeAt, ENOSPC, {FILE_WRITE_ERROR});
}

// A page that cannot be read is as if it were damaged.
TEST_F(IndexBuilderFailure, WhenAReadIsRefusedTheIndexIsUsedOrIgnoredOrBegunAnew) {
    refuseEach(FileCall::readAt, EIO, {FILE_READ_ERROR}, true);
}

// A block that cannot be read is no damaged one. What is untold are looks at whether the table is still the same: one
// at the beginning, and one at each block that stands in front of another one.
TEST_F(IndexBuilderFailure, WhenAReadOfABlockIsRefusedThatIsTold) {
    writeBlocks(3);
    int told = 0;
    int untold = 0;
    for (int n = 1;; ++n) {
        std::filesystem::remove(indexPath());
        const auto builder = openBuilder();
        const MessageTablePtr table = openReader();
        ErrorCode code = NO_ERROR;
        {
            FaultPlatform platform;
            platform.failNth(FileCall::readAt, n, EIO);
            code = builder->update(table.get(), 1, {});
            if (platform.count(FileCall::readAt) < n) {
                break;
            }
        }
        EXPECT_TRUE(code == FILE_READ_ERROR || code == NO_ERROR)
            << "read number " << n << ": " << getErrorMessage(code);
        told += code == FILE_READ_ERROR ? 1 : 0;
        untold += code == NO_ERROR && covered() < 3 ? 1 : 0;
        EXPECT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
        EXPECT_EQ(covered(), 3U) << "read number " << n << " was refused once, and is no more";
    }
    EXPECT_GE(told, 3 * 2) << "of each block the frames and the footer are read";
    EXPECT_LE(untold, 3);
}

TEST_F(IndexBuilderFailure, WhenAnOpeningIsRefusedTheIndexIsUsedOrIgnored) {
    refuseEach(FileCall::open, EMFILE, {FILE_OPEN_ERROR, FILE_READ_ERROR});
}

TEST_F(IndexBuilderFailure, WhenALockIsRefusedTheIndexIsUsedOrIgnored) {
    refuseEach(FileCall::lock, EIO, {FILE_OPEN_ERROR});
}

TEST_F(IndexBuilderFailure, WhenTheRenamingIsRefusedTheIndexIsUsedOrIgnored) {
    refuseEach(FileCall::rename, EACCES, {FILE_WRITE_ERROR});
}

TEST_F(IndexBuilderFailure, WhenACutIsRefusedTheIndexIsUsedOrIgnored) {
    refuseEach(FileCall::truncate, EIO, {FILE_WRITE_ERROR});
}

TEST_F(IndexBuilderFailure, ABuilderThatWasRefusedOnceGoesOn) {
    fill();
    const MessageTablePtr table = openReader();
    const auto builder = openBuilder();
    {
        FaultPlatform platform;
        platform.failAll(FileCall::writeAt, ENOSPC);
        EXPECT_EQ(builder->update(table.get(), 1, {}), FILE_WRITE_ERROR);
        EXPECT_EQ(builder->merge(), FILE_WRITE_ERROR);
        EXPECT_EQ(builder->slot().coveredBlocks, 8U);
    }
    EXPECT_EQ(covered(), 8U);
    EXPECT_EQ(indexFault(written), "");
    ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
    ASSERT_EQ(builder->merge(), NO_ERROR);
    EXPECT_EQ(covered(), 16U);
    EXPECT_EQ(indexFault(written), "");
}

// The builder is used again behind each failure.
TEST_F(IndexBuilderFailure, WithoutMemoryLeavesABuilderThatGoesOn) {
    const MessageTablePtr table = openReader();
    const auto builder = openBuilder();
    int failures = 0;
    for (std::int64_t n = 1; n < 400; ++n) {
        writeBlocks(2);
        bool isWithoutMemory = false;
        {
            const AllocationFailure failure(n);
            try {
                isWithoutMemory = builder->update(table.get(), 1, {}) == OUT_OF_MEMORY_ERROR;
                isWithoutMemory = builder->merge() == OUT_OF_MEMORY_ERROR || isWithoutMemory;
            } catch (const std::bad_alloc&) {
                isWithoutMemory = true;
            }
            if (!failure.happened()) {
                EXPECT_FALSE(isWithoutMemory);
                break;
            }
        }
        failures += isWithoutMemory ? 1 : 0;
        const ErrorCode code = builder->update(table.get(), 1, {});
        ASSERT_EQ(code, NO_ERROR) << "behind allocation " << n << ": " << getErrorMessage(code);
        ASSERT_EQ(covered(), static_cast<std::uint32_t>(written) / 4) << "allocation " << n;
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(indexFault(written), "");
}

TEST_F(IndexBuilderFailure, ShortTransfersMakeTheSameIndex) {
    fill();
    {
        FaultPlatform platform;
        platform.limitTransfer(1000);
        EXPECT_EQ(work(), NO_ERROR);
    }
    EXPECT_EQ(covered(), 16U);
    EXPECT_EQ(indexFault(written), "");
}

// As many blocks are read as memory is meant for, and covered before the next one is read.
TEST_F(IndexBuilderFailure, ARunThatCannotBeWrittenBeforeTheNextBlockIsReadIsTold) {
    shape.stringNames.clear();
    shape.messagesPerBlock = static_cast<std::int32_t>(RUN_MESSAGES / 2) + 1;  // a run has room for one block
    begin("large");
    Message message = bareMessage(1, shape);
    for (std::int32_t n = 1; n <= shape.messagesPerBlock; ++n) {
        message.metadata.uniformId = n;
        ASSERT_EQ(writeMessage(writer.get(), message), NO_ERROR);
    }
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    {
        FaultPlatform platform;
        platform.failNth(FileCall::writeAt, 1, ENOSPC);
        EXPECT_EQ(builder->update(table.get(), 1, {}), FILE_WRITE_ERROR) << "a later write was not refused";
    }
    EXPECT_EQ(covered(), 0U) << "the index is what it was";
    EXPECT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
    EXPECT_EQ(covered(), 1U);
}

// Whoever deletes the index of a builder at work gets another one with what is closed next.
TEST_F(IndexBuilderFailure, ADeletedIndexIsBegunAnewByTheBuilderThatHadIt) {
    writeBlocks(6);
    const auto builder = openBuilder();
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    std::filesystem::remove(indexPath());
    EXPECT_EQ(covered(), 0U);
    writeBlocks(1);
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    EXPECT_EQ(covered(), 7U);
    EXPECT_EQ(indexFault(written), "");
    EXPECT_EQ(builder->merge(), NO_ERROR);
}

TEST_F(IndexBuilderFailure, ABuilderWhoseIndexWasDeletedDoesNotTakeThatOfAnother) {
    writeBlocks(6);
    const auto builder = openBuilder();
    ASSERT_EQ(update(builder.get()), NO_ERROR);
    std::filesystem::remove(indexPath());
    const auto other = openBuilder();
    ASSERT_EQ(update(other.get()), NO_ERROR);
    writeBlocks(1);
    EXPECT_EQ(update(builder.get()), FILE_OPEN_ERROR);
    EXPECT_TRUE(builder->isLocked());
    ASSERT_EQ(update(other.get()), NO_ERROR);
    EXPECT_EQ(covered(), 7U);
    EXPECT_EQ(indexFault(written), "");
}

}  // namespace
}  // namespace tabulo::internal::test
