// Losses of power at moments that random work meets rarely.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/messagetable/table_image.h"
#include "tests/power/volatile_disk.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {

namespace {

const std::string ROOT = "/disk/";

class PowerOrder : public ::testing::Test {
  protected:
    PowerOrder() {
        shape_.messagesPerBlock = 4;
        path_ = ROOT + shape_.name;
    }
    ~PowerOrder() override { tableFileSetSyncPolicy(false, 0, 0); }

    static std::vector<std::int32_t> idsOf(const std::vector<Message>& messages) {
        std::vector<std::int32_t> ids;
        for (const Message& message : messages) {
            ids.push_back(message.metadata.uniformId);
        }
        return ids;
    }
    // What the table holds once it is opened for writing.
    std::vector<std::int32_t> idsAfterOpening() {
        const MessageTablePtr table = openTable(ROOT, OpenMode::write, shape_);
        if (table == nullptr) {
            return {};
        }
        const ReadMessages read = readAll(table.get());
        EXPECT_EQ(read.code, NO_ERROR) << getErrorMessage(read.code);
        return idsOf(read.messages);
    }
    // The process ends without closing anything.
    void endProcess(MessageTablePtr& table) {
        disk_.stopNow();
        table.reset();
        disk_.restart();
    }
    // A file that was closed, without some bytes that the disk never took.
    Bytes imageWithZeros(const std::vector<Message>& messages, std::size_t from, std::size_t length) {
        const FilePlatform* disk = filePlatform_install(nullptr);
        Bytes image = closedImage(shape_, messages);
        filePlatform_install(disk);
        std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(from), length, std::uint8_t{0});
        return image;
    }
    void placeWithZeros(const std::vector<Message>& messages, std::size_t from, std::size_t length) {
        disk_.put(path_, imageWithZeros(messages, from, length));
    }

    LogCapture log_;
    TableShape shape_;
    std::string path_;
    VolatileDisk disk_;
};

TEST_F(PowerOrder, ACommitAlsoCommitsTheNameThatAProcessBeforeLeftUncommitted) {
    MessageTablePtr table = openTable(ROOT, OpenMode::write, shape_);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, 2, shape_), NO_ERROR);
    endProcess(table);
    tableFileSetSyncPolicy(true, 0, 0);
    table = openTable(ROOT, OpenMode::write, shape_);
    ASSERT_EQ(writeSimpleMessages(table.get(), 3, 3, shape_), NO_ERROR);
    EXPECT_TRUE(disk_.isNameCommitted(path_))
        << "message 3 is acknowledged with a commit for every flush, but the table's name is not on the disk";
    table.reset();
}

TEST_F(PowerOrder, ACommitAlsoCommitsTheNameOfAnEmptyFileThatAProcessBeforeHasMade) {
    {
        FileStream made;
        ASSERT_EQ(fileStream_open(&made, path_.c_str(), FileAccess::createNew, false), 0);
        ASSERT_EQ(fileStream_close(&made), 0);
    }
    tableFileSetSyncPolicy(true, 0, 0);
    MessageTablePtr table = openTable(ROOT, OpenMode::write, shape_);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, 1, shape_), NO_ERROR);
    EXPECT_TRUE(disk_.isNameCommitted(path_))
        << "message 1 is acknowledged with a commit for every flush, but the table's name is not on the disk";
    table.reset();
}

TEST_F(PowerOrder, AHeaderThatReachedTheDiskBeforeAnEarlierFooterHidesNoMessage) {
    const std::vector<Message> messages = simpleMessages(1, 14, shape_);
    const TableMap map = mapOf(shape_, messages);
    placeWithZeros(messages, map.frame(8).end, map.footerSize);
    EXPECT_EQ(idsAfterOpening(), idsOf(messages));
}

TEST_F(PowerOrder, AHeaderThatReachedTheDiskBeforeAnEarlierLengthWordHidesNoMessage) {
    const std::vector<Message> messages = simpleMessages(1, 14, shape_);
    placeWithZeros(messages, mapOf(shape_, messages).blockStarts[1], 8);
    EXPECT_EQ(idsAfterOpening(), idsOf(messages));
}

TEST_F(PowerOrder, MessagesWrittenBehindAnEarlierBlockThatIsGoneCanBeRead) {
    std::vector<Message> messages = simpleMessages(1, 14, shape_);
    const TableMap map = mapOf(shape_, messages);
    placeWithZeros(messages, map.blockStarts[1], map.blockStarts[2] - map.blockStarts[1]);
    MessageTablePtr table = openTable(ROOT, OpenMode::write, shape_);
    ASSERT_NE(table, nullptr);
    std::vector<Message> expected = readAll(table.get()).messages;
    ASSERT_GE(expected.size(), 4U);
    ASSERT_EQ(writeSimpleMessages(table.get(), 15, 20, shape_), NO_ERROR);
    for (const Message& message : simpleMessages(15, 20, shape_)) {
        expected.push_back(message);
    }
    const ReadMessages read = readAll(table.get());
    EXPECT_EQ(read.code, NO_ERROR);
    EXPECT_EQ(idsOf(read.messages), idsOf(expected)) << "messages were acknowledged and cannot be read";
    table.reset();
}

// The cut of recovery and the first message behind it reach the disk in any order: what was cut must not stand behind
// that message then, or in its place.
TEST_F(PowerOrder, WhatRecoveryHasCutDoesNotComeBackAroundANewMessage) {
    constexpr int LOSSES = 500;
    const std::vector<Message> messages = simpleMessages(11, 17, shape_);
    const Bytes image = imageWithZeros(messages, mapOf(shape_, messages).frame(6).start, 20);
    for (int number = 0; number < LOSSES && !HasFailure(); ++number) {
        Random random(static_cast<Random::result_type>(number));
        disk_.put(path_, image);
        MessageTablePtr table = openTable(ROOT, OpenMode::write, shape_);
        ASSERT_NE(table, nullptr);
        ASSERT_EQ(writeSimpleMessages(table.get(), 21, 21, shape_), NO_ERROR);
        disk_.stopNow();
        table.reset();
        disk_.powerLoss(random, number % 2 == 0 ? Tearing::sector : Tearing::byte);
        const std::vector<std::int32_t> ids = idsAfterOpening();
        EXPECT_EQ(std::count(ids.begin(), ids.end(), 17), 0)
            << "loss " << number << ": recovery had cut message 17, and the disk gives it back";
    }
}

}  // namespace

}  // namespace tabulo::internal::test
