#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/messagetable/table_image.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class Drop : public TableImageTest {
  protected:
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    // A table just created, not yet closed.
    Bytes created() const { return unclosedImage(shape, {}); }
};

TEST_F(Drop, LeavesTheFileOfANewTable) {
    shape.stringNames = {"ClOrdID"};
    shape.numericNames = {"OrderQty", "Price"};
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 10), NO_ERROR);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), created()), "");
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
    EXPECT_EQ(table->records.dataInfo.dataEnd, created().size());
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, created().size());
    EXPECT_EQ(table->records.staticIndexes, mthStaticIndexes{});
    EXPECT_EQ(readAll(table.get()).messages.size(), 0U);
}

TEST_F(Drop, WritingThenBeginsAnew) {
    open(OpenMode::write);
    for (const std::int32_t count : {3, 4, 6}) {
        ASSERT_EQ(writeSimple(1, count), NO_ERROR);
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
        ASSERT_EQ(writeSimple(1, 9), NO_ERROR);
        ASSERT_EQ(mt_close(table.get()), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closed(9)), "") << "dropped with " << count << " messages";
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    }
}

TEST_F(Drop, OfAReadOnlyTableIsRefusedAndChangesNothing) {
    place(closed(6));
    open(OpenMode::read);
    EXPECT_EQ(mt_drop(table.get()), READ_ONLY_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(6)), "");
    EXPECT_EQ(readAll(table.get()).messages, simpleMessages(1, 6, shape));
}

TEST_F(Drop, OfATableThatWasNeverOpenedIsRefused) {
    place(closed(6));
    table = createTable(directory.root(), shape);
    EXPECT_NE(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(6)), "");
}

TEST_F(Drop, KeepsOtherWritersOut) {
    open(OpenMode::write);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(runInChild([&] { return mt_open(createTable(directory.root(), shape).get(), OpenMode::write); }),
              FILE_OPEN_ERROR);
}

TEST_F(Drop, AThousandTimesLeaksNoDescriptor) {
    open(OpenMode::write);
    const std::size_t descriptors = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(writeSimple(1, 1), NO_ERROR) << "before drop " << i;
        ASSERT_EQ(mt_drop(table.get()), NO_ERROR) << "drop " << i;
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(difference(fileBytes(), created()), "");
}

TEST_F(Drop, CutsTheFileBeforeItIsOpenedAnew) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    FaultPlatform platform;
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    ASSERT_GE(platform.count(FileCall::truncate), 1);
    EXPECT_EQ(platform.calls(FileCall::truncate)[0].offset, 140) << "cut back to the header";
    std::vector<std::string> order;
    for (const RecordedCall& call : platform.calls()) {
        if (call.call == FileCall::truncate || call.call == FileCall::close || call.call == FileCall::open) {
            order.emplace_back(fileCallName(call.call));
        }
    }
    ASSERT_GE(order.size(), 3U);
    EXPECT_EQ(std::vector<std::string>(order.begin(), order.begin() + 3),
              (std::vector<std::string>{"truncate", "close", "open"}));
}

TEST_F(Drop, ThatCannotCutTheFileLosesNoMessage) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    ASSERT_EQ(tableFileSeekSet(tableStorage_master(table->storage.get()), 140), NO_ERROR);
    {
        FaultPlatform platform;
        platform.failAll(FileCall::truncate, EIO);
        EXPECT_EQ(mt_drop(table.get()), FILE_TRUNCATE_ERROR);
    }
    EXPECT_EQ(table->records.dataInfo.messageCount, 6);
    ASSERT_EQ(writeSimple(7, 9), NO_ERROR) << "the table is still open";
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(9)), "");
}

TEST_F(Drop, ThatCannotOpenTheFileAnewLeavesATableThatRefusesWrites) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    {
        FaultPlatform platform;
        platform.failAll(FileCall::open, EACCES);
        EXPECT_EQ(mt_drop(table.get()), FILE_OPEN_ERROR);
    }
    EXPECT_EQ(writeSimple(7, 7), FILE_WRITE_ERROR);
    EXPECT_EQ(mt_close(table.get()), NO_ERROR) << "nothing is open that could be saved";
    EXPECT_EQ(mt_open(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 0);
}

TEST_F(Drop, TruncatingTheStorageAloneCutsToTheHeader) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    ASSERT_EQ(mt_truncateStorage(table.get()), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), 140U);
}

}  // namespace
}  // namespace tabulo::internal::test
