// The disk of these tests itself: what it keeps, and that it does lose, tear and reorder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "storage/file_stream.h"
#include "tests/power/file_loss.h"
#include "tests/power/volatile_disk.h"

namespace tabulo::internal::test {

namespace {

constexpr int TRIES = 400;
const std::string PATH = "/disk/f";

FileChange writeOf(std::size_t offset, std::size_t length, std::uint8_t value) {
    return {false, offset, Bytes(length, value)};
}

// All files that a loss was seen to leave.
std::set<Bytes> outcomes(const Bytes& committed, const std::vector<FileChange>& pending, Tearing tearing) {
    std::set<Bytes> found;
    for (unsigned i = 0; i < TRIES; ++i) {
        Random random(i);
        found.insert(fileAfterPowerLoss(committed, pending, random, tearing));
    }
    return found;
}

TEST(FileLoss, WhatIsCommittedStays) {
    const Bytes committed = pattern(10000);
    EXPECT_EQ(outcomes(committed, {}, Tearing::byte), std::set<Bytes>{committed});
    for (const Bytes& left : outcomes(committed, {writeOf(10000, 9000, 1)}, Tearing::byte)) {
        ASSERT_GE(left.size(), committed.size());
        ASSERT_TRUE(std::equal(committed.begin(), committed.end(), left.begin()));
    }
}

TEST(FileLoss, PagesOfOneWriteAreThereOrNotInAnyOrder) {
    const auto left = outcomes(Bytes(3 * PAGE_SIZE, 0), {writeOf(0, 3 * PAGE_SIZE, 1)}, Tearing::page);
    EXPECT_EQ(left.size(), 8U) << "three pages, each old or new";
}

TEST(FileLoss, AWriteInsideOnePageIsTornOnlyByADiskThatTearsIt) {
    const Bytes committed(PAGE_SIZE, 0);
    const FileChange change = writeOf(100, 1000, 1);
    EXPECT_EQ(outcomes(committed, {change}, Tearing::page).size(), 2U);
    EXPECT_EQ(outcomes(committed, {change}, Tearing::sector).size(), 8U) << "three sectors, each old or new";
    EXPECT_GT(outcomes(committed, {change}, Tearing::byte).size(), 20U);
}

TEST(FileLoss, ALongerFileHasZerosWhereAPageIsMissing) {
    const Bytes whole(2 * PAGE_SIZE, 1);
    Bytes hole = whole;
    std::fill_n(hole.begin(), PAGE_SIZE, std::uint8_t{0});
    const auto left = outcomes({}, {writeOf(0, 2 * PAGE_SIZE, 1)}, Tearing::page);
    EXPECT_TRUE(left.contains(whole));
    EXPECT_TRUE(left.contains(hole));
    EXPECT_TRUE(left.contains(Bytes()));
    EXPECT_TRUE(left.contains(Bytes(PAGE_SIZE, 1))) << "the length may be one between";
}

TEST(FileLoss, ACutThatIsMissingBringsBackWhatItCutAndNothingElseDoes) {
    const Bytes committed(2 * PAGE_SIZE, 1);
    const auto left = outcomes(committed, {{true, 0, {}}, writeOf(0, 2 * PAGE_SIZE, 2)}, Tearing::page);
    EXPECT_TRUE(left.contains(committed));
    for (const Bytes& file : left) {
        const bool old = std::find(file.begin(), file.end(), 1) != file.end();
        EXPECT_TRUE(!old || file == committed) << "bytes from before the cut beside those of behind it";
    }
}

TEST(VolatileDisk, ANameIsKeptOnlyWhenItsDirectoryWasCommitted) {
    for (const bool committed : {false, true}) {
        int kept = 0;
        for (unsigned i = 0; i < TRIES; ++i) {
            Random random(i);
            VolatileDisk disk;
            FileStream stream;
            ASSERT_EQ(fileStream_open(&stream, PATH.c_str(), FileAccess::createNew, false), 0);
            ASSERT_EQ(fileStream_write(&stream, "abc", 3), 0);
            ASSERT_EQ(fileStream_flush(&stream), 0);
            ASSERT_EQ(fileStream_sync(&stream), 0);
            if (committed) {
                ASSERT_EQ(filePlatform().syncDirectory(PATH.c_str()), 0);
            }
            disk.powerLoss(random, Tearing::page);
            kept += disk.content(PATH).has_value() ? 1 : 0;
        }
        EXPECT_EQ(kept == TRIES, committed);
        EXPECT_GT(kept, 0);
    }
}

TEST(VolatileDisk, AProcessThatStoppedChangesNothingMore) {
    Random random(1);
    VolatileDisk disk;
    FileStream stream;
    ASSERT_EQ(fileStream_open(&stream, PATH.c_str(), FileAccess::createNew, false), 0);
    disk.stopAt(1, random, true);
    (void)fileStream_write(&stream, "abc", 3);  // gathered: the flush tells
    EXPECT_NE(fileStream_flush(&stream), 0);
    const Bytes before = disk.content(PATH).value();
    (void)fileStream_write(&stream, "def", 3);
    EXPECT_NE(fileStream_flush(&stream), 0);
    EXPECT_EQ(disk.content(PATH).value(), before);
    disk.restart();
    FileStream next;
    EXPECT_EQ(fileStream_open(&next, PATH.c_str(), FileAccess::readWrite, false), 0) << "the lock outlived its process";
    EXPECT_EQ(fileStream_close(&next), 0);
}

}  // namespace

}  // namespace tabulo::internal::test
