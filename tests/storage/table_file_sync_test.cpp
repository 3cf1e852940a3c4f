#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <limits>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/storage/system_calls.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

std::string syncLine(std::int64_t elapsed, int flushes) {
    return debugLine("tableFileFlush", "physical sync performed: timeSinceFlush = " + std::to_string(elapsed) +
                                           ", flushesCount = " + std::to_string(flushes));
}

class TableFileSync : public ::testing::Test {
  protected:
    void SetUp() override {
        writeFile(path, pattern(100));
        platform.setNow(1000);
        file = openTableFile(path, OpenMode::write);
        platform.clear();
        log.clear();
    }
    void TearDown() override { tableFileSetSyncPolicy(false, 0, 0); }

    void flush() { ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR); }
    // Flushes until a physical sync; how many flushes that took, -1 after `most`.
    int flushesUntilSync(int most) {
        const int before = platform.count(FileCall::sync);
        for (int i = 1; i <= most; ++i) {
            flush();
            if (platform.count(FileCall::sync) > before) {
                return i;
            }
        }
        return -1;
    }

    FaultPlatform platform;
    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    TableFilePtr file;
    DebugLog log;
};

TEST_F(TableFileSync, OffThereIsNoPhysicalSync) {
    ASSERT_EQ(writeBytes(file, pattern(10)), NO_ERROR);
    EXPECT_EQ(flushesUntilSync(100), -1);
    EXPECT_EQ(file->flushesCount, 100);
    file.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 0);
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 0);
}

TEST_F(TableFileSync, OffTheNumbersDoNotMatter) {
    tableFileSetSyncPolicy(false, 1, 1);
    EXPECT_EQ(flushesUntilSync(100), -1);
}

TEST_F(TableFileSync, OnWithoutNumbersEveryFlushSyncs) {
    tableFileSetSyncPolicy(true, 0, 0);
    flush();
    platform.setNow(1003);
    flush();
    flush();
    EXPECT_EQ(platform.count(FileCall::sync), 3);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{syncLine(1000, 1), syncLine(3, 1), syncLine(0, 1)}));
    EXPECT_EQ(file->flushesCount, 0);
    EXPECT_EQ(file->lastSyncTime, 1003);
}

TEST_F(TableFileSync, ACountOfFiveSyncsAtEveryTenthFlush) {
    tableFileSetSyncPolicy(true, 0, 5);
    EXPECT_EQ(flushesUntilSync(20), 10);
    EXPECT_EQ(flushesUntilSync(20), 10);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{syncLine(1000, 10), syncLine(0, 10)}));
}

TEST_F(TableFileSync, TheDoubledCountDoesNotOverflow) {
    tableFileSetSyncPolicy(true, 0, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(flushesUntilSync(20), -1);
    tableFileSetSyncPolicy(true, 0, std::numeric_limits<std::int32_t>::max() / 2 + 1);
    EXPECT_EQ(flushesUntilSync(20), -1);
}

TEST_F(TableFileSync, AnIntervalSyncsAtTheFirstFlushAndThenWhenItHasPassed) {
    tableFileSetSyncPolicy(true, 10, 0);
    EXPECT_EQ(flushesUntilSync(5), 1) << "nothing was synced yet";
    platform.setNow(1009);
    EXPECT_EQ(flushesUntilSync(5), -1);
    platform.setNow(1010);
    EXPECT_EQ(flushesUntilSync(5), 1);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{syncLine(1000, 1), syncLine(10, 6)}));
}

TEST_F(TableFileSync, WithBothNumbersWhicheverIsDueFirstSyncs) {
    tableFileSetSyncPolicy(true, 10, 2);
    EXPECT_EQ(flushesUntilSync(9), 1) << "the interval";
    EXPECT_EQ(flushesUntilSync(9), 4) << "the count";
    platform.setNow(1020);
    EXPECT_EQ(flushesUntilSync(9), 1) << "the interval";
}

TEST_F(TableFileSync, AClockThatWasSetBackCountsAsDue) {
    tableFileSetSyncPolicy(true, 10, 0);
    ASSERT_EQ(flushesUntilSync(1), 1);
    platform.setNow(999);
    EXPECT_EQ(flushesUntilSync(5), 1);
    EXPECT_EQ(log.lines().back(), syncLine(-1, 1));
    EXPECT_EQ(file->lastSyncTime, 999);
}

TEST_F(TableFileSync, WithoutAnIntervalAClockThatWasSetBackIsNothing) {
    tableFileSetSyncPolicy(true, 0, 5);
    ASSERT_EQ(flushesUntilSync(10), 10);
    platform.setNow(10);
    EXPECT_EQ(flushesUntilSync(9), -1);
}

TEST_F(TableFileSync, EachFileCountsItsOwnFlushes) {
    tableFileSetSyncPolicy(true, 0, 2);
    writeFile(directory.file("trades"), pattern(10));
    const TableFilePtr other = openTableFile(directory.file("trades"), OpenMode::write);
    for (int i = 0; i < 3; ++i) {
        flush();
        ASSERT_EQ(tableFileFlush(other.get()), NO_ERROR);
    }
    EXPECT_EQ(platform.count(FileCall::sync), 0);
    flush();
    EXPECT_EQ(platform.count(FileCall::sync), 1);
}

TEST_F(TableFileSync, TheDataIsHandedToTheSystemBeforeItIsCommitted) {
    tableFileSetSyncPolicy(true, 0, 0);
    ASSERT_EQ(writeBytes(file, pattern(10)), NO_ERROR);
    flush();
    EXPECT_EQ(platform.sequence(), "writeAt sync syncDirectory");
}

TEST_F(TableFileSync, TheResultOfTheCommitIsIgnored) {
    tableFileSetSyncPolicy(true, 0, 0);
    platform.failAll(FileCall::sync, EIO);
    EXPECT_EQ(tableFileFlush(file.get()), NO_ERROR);
    EXPECT_EQ(file->flushesCount, 0);
    EXPECT_EQ(file->lastSyncTime, 1000);
    EXPECT_EQ(log.lines(), std::vector<std::string>{syncLine(1000, 1)});
}

TEST_F(TableFileSync, AFailedFlushIsStillCountedAndCommitted) {
    tableFileSetSyncPolicy(true, 0, 1);
    platform.failAll(FileCall::writeAt, ENOSPC);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(writeBytes(file, pattern(10)), NO_ERROR);
        EXPECT_EQ(tableFileFlush(file.get()), FILE_FLUSH_ERROR);
    }
    EXPECT_EQ(platform.count(FileCall::sync), 1);
    EXPECT_EQ(file->flushesCount, 0);
}

TEST_F(TableFileSync, ThePhysicalSyncIsOfTheDataAndOfThisFile) {
    const SystemCallsGuard guard;
    tableFileSetSyncPolicy(true, 0, 0);
    flush();
    EXPECT_EQ(systemCalls.dataSyncs, 1);
    EXPECT_EQ(systemCalls.fullSyncs, 1) << "of the directory, the first time";
    flush();
    EXPECT_EQ(systemCalls.dataSyncs, 2);
    EXPECT_EQ(systemCalls.fullSyncs, 1);
    EXPECT_EQ(systemCalls.lastSynced, file->stream.descriptor);
}

// The directory of a written file.

TEST_F(TableFileSync, TheDirectoryOfACreatedFileIsSyncedOnceWithoutALine) {
    tableFileSetSyncPolicy(true, 0, 0);
    const SystemCallsGuard guard;
    const std::string createdPath = directory.file("created");
    const TableFilePtr created = openTableFile(createdPath, OpenMode::write);
    log.clear();
    ASSERT_EQ(tableFileFlush(created.get()), NO_ERROR);
    ASSERT_EQ(tableFileFlush(created.get()), NO_ERROR);
    ASSERT_EQ(platform.count(FileCall::syncDirectory), 1);
    EXPECT_EQ(platform.calls(FileCall::syncDirectory)[0].path, createdPath);
    EXPECT_EQ(systemCalls.fullSyncs, 1) << "a directory needs the full sync";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{syncLine(1000, 1), syncLine(0, 1)}));
}

TEST_F(TableFileSync, TheDirectoryOfAFoundFileIsSyncedOnceSinceWhoeverMadeItMayNotHave) {
    tableFileSetSyncPolicy(true, 0, 0);
    flush();
    flush();
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 1);
}

TEST_F(TableFileSync, AnInterruptedSyncOfTheDirectoryIsRepeated) {
    tableFileSetSyncPolicy(true, 0, 0);
    platform.failNth(FileCall::syncDirectory, 1, EINTR);
    flush();
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 2);
}

TEST_F(TableFileSync, WithThePolicyOffNoDirectoryIsSynced) {
    TableFilePtr created = openTableFile(directory.file("created"), OpenMode::create);
    ASSERT_EQ(tableFileFlush(created.get()), NO_ERROR);
    created.reset();
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 0);
}

TEST_F(TableFileSync, AFileCreatedByARelativePathSyncsTheCurrentDirectory) {
    tableFileSetSyncPolicy(true, 0, 0);
    const std::string name = "tabulo-sync-test-" + directory.path().substr(directory.path().size() - 6);
    const SystemCallsGuard guard;
    const TableFilePtr created = openTableFile(name, OpenMode::create);
    ASSERT_EQ(tableFileFlush(created.get()), NO_ERROR);
    EXPECT_EQ(systemCalls.fullSyncs, 1);
    std::filesystem::remove(name);
}

TEST_F(TableFileSync, WithoutMemoryForTheDirectorysNameTheProcessGoesOn) {
    const int result = runInChild([&] {
        TableFile* created = nullptr;
        const std::string createdPath = directory.file("created");
        tableFileSetSyncPolicy(true, 0, 0);
        filePlatform_install(nullptr);
        if (tableFileOpen(&created, createdPath.c_str(), OpenMode::create, nullptr) != NO_ERROR) {
            return 1;
        }
        const AllocationFailure failure(1);
        return tableFileFlush(created) == NO_ERROR ? 0 : 2;
    });
    EXPECT_EQ(result, 0) << "an exception left the flush";
}

// Closing.

TEST_F(TableFileSync, ClosingCommitsFlushesThatNoSyncHasCoveredWithoutALine) {
    tableFileSetSyncPolicy(true, 0, 5);
    ASSERT_EQ(writeBytes(file, pattern(10)), NO_ERROR);
    flush();
    platform.clear();
    file.reset();
    EXPECT_EQ(platform.sequence(), "sync syncDirectory unlock close");
    for (const std::string& line : log.lines()) {
        EXPECT_EQ(line.find("physical sync"), std::string::npos) << line;
    }
}

TEST_F(TableFileSync, ClosingAfterTheLastSyncCommitsNothing) {
    tableFileSetSyncPolicy(true, 0, 0);
    flush();
    platform.clear();
    file.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 0);
}

TEST_F(TableFileSync, ClosingWithThePolicyOffCommitsNothing) {
    flush();
    platform.clear();
    file.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 0);
}

TEST_F(TableFileSync, ClosingAReadOnlyFileCommitsNothing) {
    tableFileSetSyncPolicy(true, 0, 5);
    TableFilePtr reader = openTableFile(path, OpenMode::read);
    ASSERT_EQ(tableFileFlush(reader.get()), NO_ERROR);
    platform.clear();
    reader.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 0);
}

TEST_F(TableFileSync, ClosingACreatedFileBeforeItsFirstSyncCommitsItsNameToo) {
    tableFileSetSyncPolicy(true, 0, 5);
    TableFilePtr created = openTableFile(directory.file("created"), OpenMode::write);
    ASSERT_EQ(tableFileFlush(created.get()), NO_ERROR);
    created.reset();
    EXPECT_EQ(platform.count(FileCall::sync), 1);
    EXPECT_EQ(platform.count(FileCall::syncDirectory), 1);
}

}  // namespace
}  // namespace tabulo::internal::test
