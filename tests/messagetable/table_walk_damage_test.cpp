// What walks do at the end of the data, at damage, and at reads that the system refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Events = std::vector<std::string>;

class DamagedTableWalk : public TableImageTest {
  protected:
    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
        ASSERT_NE(table, nullptr);
        record = WalkRecord{};
    }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }

    WalkRecord record;
};

TEST_F(DamagedTableWalk, ADamagedFooterIsReturnedBehindTheMessagesBeforeIt) {
    Bytes bytes = closed(14);
    bytes[map(14).blockStarts[2] - 1] ^= 0x01;  // the second block's trailing length
    read(bytes);
    EXPECT_EQ(walkForward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(1, 4, shape));
    record = WalkRecord{};
    EXPECT_EQ(walkBackward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    std::reverse(record.messages.begin(), record.messages.end());
    EXPECT_EQ(record.messages, simpleMessages(9, 14, shape));
}

TEST_F(DamagedTableWalk, ADamagedLengthWordIsReturnedBehindTheMessagesBeforeIt) {
    Bytes bytes = closed(10);
    putU64(&bytes, map(10).blockStarts[1], 100'000'000);
    read(bytes);
    EXPECT_EQ(walkForward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(1, 4, shape));
    record = WalkRecord{};
    EXPECT_EQ(walkBackward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.messages.size(), 2U);
}

TEST_F(DamagedTableWalk, ATrailingLengthOfZeroEndsABackwardWalkWithAnError) {
    Bytes bytes = closed(10);
    putU64(&bytes, map(10).openBlockStart - 8, 0);
    read(bytes);
    EXPECT_EQ(walkBackward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.messages.size(), 2U);
}

TEST_F(DamagedTableWalk, AFrameThatDoesNotDecodeInAClosedBlockIsReturned) {
    const TableMap places = map(8);
    Bytes bytes = closed(8);
    putU32(&bytes, places.frame(6).end - 4, 0);
    read(bytes);
    EXPECT_EQ(walkForward(table.get(), &record), CONSISTENCY_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(1, 5, shape));
    record = WalkRecord{};
    EXPECT_EQ(walkBackward(table.get(), &record), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, (Events{"block 5..8", "message 8", "message 7"}));
}

TEST_F(DamagedTableWalk, AClosedBlockWhoseFramesEndBeforeItDoesIsInconsistent) {
    // The third frame claims the bytes of the fourth as a text of its own, so that one frame is missing.
    std::vector<Message> messages = simpleMessages(1, 4, shape);
    const TableMap places = mapOf(shape, messages);
    Bytes bytes = closedImage(shape, messages);
    messages[2].strings[3] =
        std::string(places.frame(4).end - places.frame(3).end + messages[2].strings[3]->size(), 'x');
    const Bytes swallowing = frameOf(messages[2]);
    std::copy(swallowing.begin(), swallowing.end(), bytes.begin() + static_cast<std::ptrdiff_t>(places.frame(3).start));
    read(bytes);
    EXPECT_NE(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.messages.size(), 3U);
    record = WalkRecord{};
    EXPECT_NE(walkBackward(table.get(), &record), NO_ERROR);
}

TEST_F(DamagedTableWalk, ATornTailIsTheEndOfTheData) {
    const TableMap places = map(6);
    const Bytes whole = closed(6);
    for (std::size_t size = places.frame(5).end; size < whole.size(); ++size) {
        read(cutAt(whole, size));
        EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR) << "cut to " << size;
        EXPECT_EQ(record.messages, simpleMessages(1, 5, shape)) << "cut to " << size;
        record = WalkRecord{};
        EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR) << "cut to " << size;
        EXPECT_EQ(record.messages.size(), 5U) << "cut to " << size;
    }
}

TEST_F(DamagedTableWalk, ADamagedFrameOfTheOpenBlockIsReturnedBehindTheMessagesBeforeIt) {
    const TableMap places = map(7);
    Bytes bytes = closed(7);
    putU32(&bytes, places.frame(6).end - 4, 1);
    read(bytes);
    EXPECT_EQ(walkForward(table.get(), &record), CONSISTENCY_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(1, 5, shape));
}

TEST_F(DamagedTableWalk, AFullBlockWhoseLengthWordIsNotPatchedYetIsWalkedAndPassed) {
    const TableMap places = map(10);
    for (const std::size_t block : {std::size_t{0}, std::size_t{1}}) {
        Bytes bytes = closed(10);
        putU64(&bytes, places.blockStarts[block], 0);
        read(bytes);
        EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
        EXPECT_EQ(record.messages, simpleMessages(1, 10, shape)) << "block " << block;
        record = WalkRecord{};
        EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
        EXPECT_EQ(record.messages.size(), 10U) << "block " << block;
    }
}

TEST_F(DamagedTableWalk, TheFooterOfAFullBlockWithoutALengthWordIsNoMessage) {
    const TableMap places = map(8);
    Bytes whole = closed(8);
    putU64(&whole, places.blockStarts[1], 0);
    for (std::size_t size = places.frame(8).end; size <= whole.size(); size += 101) {
        read(cutAt(whole, size));
        EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR) << "cut to " << size;
        EXPECT_EQ(record.messages.size(), 8U) << "cut to " << size;
        record = WalkRecord{};
        EXPECT_EQ(walkBackward(table.get(), &record, static_cast<std::int64_t>(places.blockStarts[1])), NO_ERROR);
        EXPECT_EQ(record.messages.size(), 8U) << "cut to " << size;
    }
}

TEST_F(DamagedTableWalk, ARefusedReadIsReturnedWhereverItHappens) {
    read(closed(10));
    for (const auto walk : {walkForward, walkBackward}) {
        int reads = 0;
        {
            FaultPlatform platform;
            EXPECT_EQ(walk(table.get(), &record, -1), NO_ERROR);
            reads = platform.count(FileCall::readAt);
        }
        ASSERT_GE(reads, 7) << "three blocks: their lengths, two footers, their frames";
        for (int n = 1; n <= reads; ++n) {
            FaultPlatform platform;
            platform.failNth(FileCall::readAt, n, EIO);
            record = WalkRecord{};
            EXPECT_EQ(walk(table.get(), &record, -1), FILE_READ_ERROR) << "read " << n;
            EXPECT_LT(record.messages.size(), 10U) << "read " << n;
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
