#include "messagetable/table_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "messagetable/frame_cursor.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

using Events = std::vector<std::string>;

class TableWalk : public TableImageTest {
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

TEST_F(TableWalk, ForwardAsksForEachBlockAndThenForItsMessages) {
    read(closed(10));
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events, joined({{"block 1..4"},
                                     messageEvents(1, 4),
                                     {"block 5..8"},
                                     messageEvents(5, 8),
                                     {"block 9..10"},
                                     messageEvents(9, 10)}));
    EXPECT_EQ(record.messages, simpleMessages(1, 10, shape));
}

TEST_F(TableWalk, BackwardOverAnOpenBlockOfThreeMessages) {
    read(closed(3));
    EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events, joined({{"block 1..3"}, messageEvents(3, 1)}));
}

TEST_F(TableWalk, BackwardAsksForTheOpenBlockFirst) {
    shape.numericNames = {"Price"};
    read(closed(10));
    EXPECT_EQ(walkBackward(table.get(), &record, static_cast<std::int64_t>(map(10).openBlockStart)), NO_ERROR);
    EXPECT_EQ(record.events, joined({{"block 9..10"},
                                     messageEvents(10, 9),
                                     {"block 5..8"},
                                     messageEvents(8, 5),
                                     {"block 1..4"},
                                     messageEvents(4, 1)}));
    std::reverse(record.messages.begin(), record.messages.end());
    EXPECT_EQ(record.messages, simpleMessages(1, 10, shape));
}

TEST_F(TableWalk, AnOpenBlockWithoutMessagesIsNotAskedAbout) {
    read(closed(8));
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events.back(), "message 8");
    record = WalkRecord{};
    EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events.front(), "block 5..8");
    EXPECT_EQ(record.events.size(), 10U);
}

TEST_F(TableWalk, ATableWithoutMessagesAsksNothing) {
    read(closed(0));
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events, Events{});
}

TEST_F(TableWalk, CanBeginAtAnyBlock) {
    read(closed(10));
    const auto second = static_cast<std::int64_t>(map(10).blockStarts[1]);
    EXPECT_EQ(walkForward(table.get(), &record, second), NO_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(5, 10, shape));
    record = WalkRecord{};
    EXPECT_EQ(walkBackward(table.get(), &record, second), NO_ERROR);
    EXPECT_EQ(record.messages.size(), 8U);
    EXPECT_EQ(record.events.front(), "block 5..8");
}

TEST_F(TableWalk, TheAnswerStopToABlockEndsTheWalk) {
    read(closed(10));
    record.answers["block 5..8"] = Visit::stop;
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events, joined({{"block 1..4"}, messageEvents(1, 4), {"block 5..8"}}));
    record.events.clear();
    EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events, joined({{"block 9..10"}, messageEvents(10, 9), {"block 5..8"}}));
}

TEST_F(TableWalk, TheAnswerStopToAMessageEndsTheWalk) {
    read(closed(10));
    record.answers["message 6"] = Visit::stop;
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events.back(), "message 6");
    record.events.clear();
    EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.events.back(), "message 6");
}

TEST_F(TableWalk, TheAnswerSkipBlockPassesItsMessages) {
    read(closed(10));
    for (const char* block : {"block 1..4", "block 5..8", "block 9..10"}) {
        record = WalkRecord{};
        record.answers[block] = Visit::skipBlock;
        EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
        const auto others = static_cast<std::size_t>(std::string(block) == "block 9..10" ? 8 : 6);
        EXPECT_EQ(record.messages.size(), others) << block << " forward";
        EXPECT_EQ(record.events.size(), others + 3) << block << " forward";
        record = WalkRecord{};
        record.answers[block] = Visit::skipBlock;
        EXPECT_EQ(walkBackward(table.get(), &record), NO_ERROR);
        EXPECT_EQ(record.messages.size(), others) << block << " backward";
        EXPECT_EQ(record.events.size(), others + 3) << block << " backward";
    }
}

TEST_F(TableWalk, AnErrorOfTheOperationIsTheWalksResult) {
    read(closed(10));
    for (const char* event : {"block 5..8", "message 7", "message 9", "block 1..4"}) {
        for (const auto walk : {walkForward, walkBackward}) {
            record = WalkRecord{};
            record.failures[event] = JNI_ERROR;
            EXPECT_EQ(walk(table.get(), &record, -1), JNI_ERROR) << event;
            EXPECT_EQ(record.events.back(), event);
        }
    }
}

TEST_F(TableWalk, WithoutAMasterFileIsRefused) {
    table = createTable(directory.root(), shape);
    EXPECT_EQ(walkForward(table.get(), &record), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(walkBackward(table.get(), &record), MASTER_INACTIVE_ERROR);
    EXPECT_EQ(record.events, Events{});
}

TEST_F(TableWalk, FramesOfASkippedBlockAreNotReadAndThoseOfOthersInOneRead) {
    read(closed(8));
    const TableMap places = map(8);
    record.answers["block 1..4"] = Visit::skipBlock;
    for (const auto walk : {walkForward, walkBackward}) {
        FaultPlatform platform;
        EXPECT_EQ(walk(table.get(), &record, -1), NO_ERROR);
        int frameReads = 0;
        for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
            const auto position = static_cast<std::size_t>(call.offset);
            EXPECT_FALSE(position >= places.frame(1).start && position < places.frame(4).end)
                << call.length << " bytes at " << call.offset;
            frameReads += position >= places.frame(5).start && position < places.frame(8).end ? 1 : 0;
        }
        EXPECT_EQ(frameReads, 1);
    }
}

TEST_F(TableWalk, OnAWritersHandleDoesNotMoveTheWritersPlace) {
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 6), NO_ERROR);
    std::int32_t next = 7;
    record.onMessage = [&] {
        if (next <= 10) {
            EXPECT_EQ(writeSimple(next, next), NO_ERROR);
            next += 1;
            WalkRecord inner;
            EXPECT_EQ(walkBackward(table.get(), &inner), NO_ERROR);
            EXPECT_EQ(inner.messages.size(), static_cast<std::size_t>(next - 1)) << "a walk inside the walk";
        }
    };
    EXPECT_EQ(walkForward(table.get(), &record), NO_ERROR);
    EXPECT_EQ(record.messages, simpleMessages(1, 10, shape)) << "messages written during the walk come last";
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(10)), "");
}

TEST_F(TableWalk, ABlockBeyondThePieceSizeIsWalkedInPiecesBothWays) {
    shape.messagesPerBlock = 40;
    open(OpenMode::create);
    const std::string text(2 * 1024 * 1024, 't');
    const StringField fields[4] = {{text.data(), 3}, {}, {text.data(), static_cast<std::int32_t>(text.size())}, {}};
    for (std::int32_t n = 1; n <= 40; ++n) {
        MessageMetadata metadata;
        metadata.uniformId = n;
        ASSERT_EQ(mt_writeMessage(table.get(), {metadata, fields, {}}), NO_ERROR);
    }
    struct Seen {
        std::vector<std::int32_t> ids;
        bool whole = true;
    };
    const auto see = [](void* owner, const MessageView& message, Visit*) {
        auto* seen = static_cast<Seen*>(owner);
        seen->ids.push_back(message.metadata.uniformId);
        seen->whole = seen->whole && message.texts[2].length == 2 * 1024 * 1024 &&
                      stringField_bytes(message.texts[2]).find_first_not_of('t') == std::string_view::npos;
        return NO_ERROR;
    };
    const BlockReaderPtr reader(mfr_createReader(table->storage.get(), table->header.layout));
    for (const bool backward : {false, true}) {
        FaultPlatform platform;
        Seen seen;
        const MessageVisitor visitor{&seen, nullptr, see};
        EXPECT_EQ(backward ? mfr_readBackward(reader.get(), mt_openBlockStart(table.get()), visitor)
                           : mfr_readForward(reader.get(), table->storage->headerSize, visitor),
                  NO_ERROR);
        std::vector<std::int32_t> expected;
        for (std::int32_t n = 1; n <= 40; ++n) {
            expected.push_back(backward ? 41 - n : n);
        }
        EXPECT_EQ(seen.ids, expected);
        EXPECT_TRUE(seen.whole) << "a text was not delivered whole";
        for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
            EXPECT_LE(call.length, BLOCK_PIECE_SIZE);
        }
        EXPECT_GE(platform.count(FileCall::readAt), 4) << "the block was read at once";
    }
}

}  // namespace
}  // namespace tabulo::internal::test
