// Closed blocks whose length word has become 0: what walks deliver of them, and how they end.
#include <gtest/gtest.h>

#include <algorithm>

#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"

namespace tabulo::internal::test {
namespace {

using Events = std::vector<std::string>;

constexpr std::int32_t LAST = 13;  // three closed blocks of four messages and one message of the open one

// The listener of a read by ids that fills a record; its result is the walk's.
MessageListener listenerOf(WalkRecord* record) {
    return {record, record->visitor().onMessage, [](void*, ErrorCode code) { return code; }};
}

class ZeroLengthWord : public TableImageTest {
  protected:
    ZeroLengthWord()
        : messages(simpleMessages(1, LAST, shape)),
          places(mapOf(shape, messages)),
          whole(closedImage(shape, messages)) {}

    std::size_t blockStart(std::size_t number) const { return places.blockStarts.at(number - 1); }
    std::size_t footerEnd(std::size_t number) const { return blockStart(number + 1); }
    static void zero(Bytes* bytes, std::size_t start, std::size_t end) {
        std::fill(bytes->begin() + static_cast<std::ptrdiff_t>(start),
                  bytes->begin() + static_cast<std::ptrdiff_t>(end), 0);
    }
    void zeroFrame(Bytes* bytes, std::size_t number) const {
        zero(bytes, places.frame(number).start, places.frame(number).end);
    }
    // The whole table with the second block's length word 0.
    Bytes wordless() const {
        Bytes bytes = whole;
        putU64(&bytes, blockStart(2), 0);
        return bytes;
    }
    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
    }
    void expectForward(ErrorCode code, const Events& events) {
        WalkRecord record;
        EXPECT_EQ(walkForward(table.get(), &record), code) << "forward";
        EXPECT_EQ(record.events, events) << "forward";
    }
    // From the open block on, wherever the header says that it is.
    void expectBackward(ErrorCode code, const Events& events) {
        WalkRecord record;
        EXPECT_EQ(walkBackward(table.get(), &record, static_cast<std::int64_t>(places.openBlockStart)), code)
            << "backward";
        EXPECT_EQ(record.events, events) << "backward";
    }
    // The events of the first block forward, and of the open and the third block backward, with more behind them.
    static Events behindBlock1(const Events& more) { return joined({{"block 1..4"}, messageEvents(1, 4), more}); }
    static Events inFrontOfBlock3(const Events& more) {
        return joined({{"block 13..13", "message 13", "block 9..12"}, messageEvents(12, 9), more});
    }

    const std::vector<Message> messages;
    const TableMap places;
    const Bytes whole;
};

TEST_F(ZeroLengthWord, AZeroedStartOfAClosedBlockIsDamageBehindTheMessagesBeforeIt) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(2), places.frame(6).end);
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, behindBlock1({}));
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 7)));
}

TEST_F(ZeroLengthWord, AZeroedFirstBlockIsDamageToo) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(1), places.frame(1).end);
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, {});
    expectBackward(HEADER_CORRUPTED_ERROR,
                   inFrontOfBlock3(joined({{"block 5..8"}, messageEvents(8, 5), messageEvents(4, 2)})));
}

TEST_F(ZeroLengthWord, FramesAreDeliveredUpToTheFirstThatDoesNotDecodeWithoutAConditionBeingAskedOfTheBlock) {
    Bytes bytes = wordless();
    zeroFrame(&bytes, 7);
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, behindBlock1(messageEvents(5, 6)));
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 8)));
    putU32(&bytes, places.frame(7).start, 1);  // lengths that disagree
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, behindBlock1(messageEvents(5, 6)));
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 8)));
}

TEST_F(ZeroLengthWord, AllFramesAreDeliveredInFrontOfAFooterThatDoesNotParse) {
    Bytes bytes = wordless();
    putU32(&bytes, footerEnd(2) - places.footerSize + 72, 9999);  // the first filter's bits
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, behindBlock1(messageEvents(5, 8)));
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 5)));
}

TEST_F(ZeroLengthWord, AllFramesAreDeliveredInFrontOfAFooterThatRepeatsAnotherLength) {
    const std::uint64_t length = footerEnd(2) - blockStart(2);
    for (const std::uint64_t other : {std::uint64_t{0}, length - 1, length + 1, ~std::uint64_t{0}}) {
        SCOPED_TRACE(other);
        Bytes bytes = wordless();
        putU64(&bytes, footerEnd(2) - 8, other);
        read(bytes);
        expectForward(HEADER_CORRUPTED_ERROR, behindBlock1(messageEvents(5, 8)));
        if (other == 0 || other > whole.size()) {
            expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3({}));  // no length leads to the block
        }
    }
}

TEST_F(ZeroLengthWord, AllFramesAndTheRightFooterAreATornWord) {
    for (const std::size_t block : {1U, 2U, 3U}) {
        Bytes bytes = whole;
        putU64(&bytes, blockStart(block), 0);
        read(bytes);
        expectForward(NO_ERROR, joined({{"block 1..4"},
                                        messageEvents(1, 4),
                                        {"block 5..8"},
                                        messageEvents(5, 8),
                                        {"block 9..12"},
                                        messageEvents(9, 12),
                                        {"block 13..13", "message 13"}}));
        expectBackward(
            NO_ERROR,
            inFrontOfBlock3(joined({{"block 5..8"}, messageEvents(8, 5), {"block 1..4"}, messageEvents(4, 1)})));
    }
}

// Where the header does not tell that the block is closed.

TEST_F(ZeroLengthWord, TheTrailingLengthBehindItSaysThatABlockIsClosedWhateverTheHeaderSays) {
    Bytes bytes = wordless();
    zeroFrame(&bytes, 6);
    putU64(&bytes, places.storedLastBlockEnd(), 0);
    read(bytes);
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 7)));
    zero(&bytes, blockStart(1), places.frame(1).end);
    read(bytes);
    expectBackward(HEADER_CORRUPTED_ERROR, inFrontOfBlock3(messageEvents(8, 7)));
}

TEST_F(ZeroLengthWord, ATrailingLengthThatLeadsBackwardToZerosInsideABlockIsDamage) {
    // The second block's footer has zeros where its filters end, and the length behind it leads to there.
    Bytes bytes = whole;
    const std::size_t zeros = blockStart(2) - 500;
    ASSERT_EQ(u64At(bytes, zeros), 0U) << "the test itself";
    putU64(&bytes, footerEnd(2) - 8, footerEnd(2) - zeros);
    read(bytes);
    WalkRecord record;
    EXPECT_EQ(walkBackward(table.get(), &record), HEADER_CORRUPTED_ERROR);
    EXPECT_GE(record.messages.size(), 5U);
}

TEST_F(ZeroLengthWord, ABlockThatNothingSaysIsClosedIsAnOpenOneWithDamageBehindItsFrames) {
    Bytes noTrailingLength = wordless();
    zeroFrame(&noTrailingLength, 7);
    Bytes atTheBlock = noTrailingLength;
    Bytes beyondTheFile = noTrailingLength;
    Bytes betweenBlocks = noTrailingLength;
    Bytes noEarlierWord = noTrailingLength;
    putU64(&noTrailingLength, places.openBlockStart - 8, 0);
    putU64(&atTheBlock, places.storedLastBlockEnd(), blockStart(2));
    putU64(&beyondTheFile, places.storedLastBlockEnd(), whole.size() + 1);
    putU64(&betweenBlocks, places.storedLastBlockEnd(), places.openBlockStart - 1);
    putU64(&noEarlierWord, places.storedLastBlockEnd(), 0);
    putU64(&noEarlierWord, blockStart(1), 0);
    for (const Bytes& bytes : {noTrailingLength, atTheBlock, beyondTheFile, betweenBlocks, noEarlierWord}) {
        table.reset();
        place(bytes);
        table = createTable(directory.root(), shape);
        ASSERT_EQ(mt_open(table.get(), OpenMode::read), NO_ERROR);
        expectForward(CONSISTENCY_ERROR, behindBlock1(joined({{"block 5..6"}, messageEvents(5, 6)})));
    }
}

TEST_F(ZeroLengthWord, ALastBlockEndThatLiesAtAnEarlierBlockStillSaysThatWhatIsInFrontOfItIsClosed) {
    Bytes bytes = wordless();
    zeroFrame(&bytes, 7);
    putU64(&bytes, places.storedLastBlockEnd(), blockStart(3));
    read(bytes);
    expectForward(HEADER_CORRUPTED_ERROR, behindBlock1(messageEvents(5, 6)));
}

TEST_F(ZeroLengthWord, ZerosUpToTheFilesEndAreTheEndOfTheDataAsLongAsNoLengthStandsBehindThem) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(3), bytes.size());
    read(bytes);
    expectForward(NO_ERROR, behindBlock1(joined({{"block 5..8"}, messageEvents(5, 8)})));
}

// What follows from it.

TEST_F(ZeroLengthWord, LookupsTellTheDamageThatTheyCannotStepOver) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(3), places.frame(10).end);
    read(bytes);
    std::int32_t id = -1;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(mt_getLastMessageId(table.get(), 0, &id), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(mt_getLastGoodMsgSeqNum(table.get(), 0, &id, nullptr), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(id, -1);
}

TEST_F(ZeroLengthWord, LookupsDoNotNeedABlockInFrontOfTheLastOne) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(2), places.frame(6).end);
    read(bytes);
    std::int32_t id = -1;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), NO_ERROR);
    EXPECT_EQ(id, LAST);
}

TEST_F(ZeroLengthWord, ReadingByIdsDeliversWhatStandsBeforeTheDamageAndTellsIt) {
    Bytes bytes = wordless();
    zeroFrame(&bytes, 7);
    read(bytes);
    const std::vector<std::int32_t> ids{2, 6, 7, 8, 11, 13};
    for (const bool backward : {false, true}) {
        WalkRecord record;
        const MessageListener listener = listenerOf(&record);
        EXPECT_EQ(mt_readMessages(table.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener, backward),
                  HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(record.events,
                  backward ? (Events{"message 13", "message 11", "message 8"}) : (Events{"message 2", "message 6"}));
    }
}

TEST_F(ZeroLengthWord, OfTheLastClosedBlockDoesNotKeepReadingByIdsFromWhatStandsBefore) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(3), blockStart(3) + 8);
    zeroFrame(&bytes, 10);
    read(bytes);
    const std::vector<std::int32_t> ids{2, 9, 10, 11, 13};
    WalkRecord record;
    const MessageListener listener = listenerOf(&record);
    const auto count = static_cast<std::int32_t>(ids.size());
    EXPECT_EQ(mt_readMessages(table.get(), ids.data(), count, &listener, false), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.events, (Events{"message 2", "message 9"}));
    record = WalkRecord{};
    EXPECT_EQ(mt_readMessages(table.get(), ids.data(), count, &listener, true), HEADER_CORRUPTED_ERROR);
    EXPECT_LE(record.events.size(), 2U);
    EXPECT_TRUE(std::equal(record.events.begin(), record.events.end(), Events{"message 13", "message 11"}.begin()))
        << "what is delivered backward stands behind the damage";
}

TEST_F(ZeroLengthWord, ReadingByIdsThatNoMessageOfTheBlockHasDoesNotSkipIt) {
    Bytes bytes = wordless();
    zeroFrame(&bytes, 5);
    read(bytes);
    const std::int32_t id = 12;
    WalkRecord record;
    const MessageListener listener = listenerOf(&record);
    EXPECT_EQ(mt_readMessages(table.get(), &id, 1, &listener, false), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(record.events, Events{});
}

TEST_F(ZeroLengthWord, MessagesThatAreStoredBehindTheDamageAreNotHiddenInSilence) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(2), places.frame(6).end);
    place(bytes);
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(14, 18), NO_ERROR);
    const Events behind = joined({{"block 17..18", "message 18", "message 17", "block 13..16"},
                                  messageEvents(16, 13),
                                  {"block 9..12"},
                                  messageEvents(12, 9),
                                  messageEvents(8, 7)});
    for (const bool reader : {false, true}) {
        if (reader) {
            open(OpenMode::read);
        }
        SCOPED_TRACE(reader ? "a reader" : "the writer");
        expectForward(HEADER_CORRUPTED_ERROR, behindBlock1({}));
        WalkRecord record;
        EXPECT_EQ(walkBackward(table.get(), &record), HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(record.events, behind);
    }
}

// Opening for writing knows nothing of the header's end of the last block: a word of 0 is repaired.

TEST_F(ZeroLengthWord, OfTheLastClosedBlockIsWrittenAnewWhenTheTableIsOpenedForWriting) {
    Bytes bytes = whole;
    putU64(&bytes, blockStart(3), 0);
    place(bytes);
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(recoveries(), 1U);
    EXPECT_EQ(difference(fileBytes(), whole), "");
    EXPECT_TRUE(others().empty()) << "saved without need: " << others().begin()->first;
}

TEST_F(ZeroLengthWord, OfAnyBlockIsWrittenAnewByRecovery) {
    Bytes bytes = wordless();
    putU64(&bytes, places.storedDataEnd(), 0);
    place(bytes);
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), whole), "");
    EXPECT_TRUE(others().empty()) << "saved without need: " << others().begin()->first;
}

TEST_F(ZeroLengthWord, WithDamagedFramesBehindItEndsTheTableForRecoveryWhichSavesWhatItCuts) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(2), places.frame(6).end);
    putU64(&bytes, places.storedDataEnd(), 0);
    place(bytes);
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closedImage(shape, simpleMessages(1, 4, shape))), "");
    const std::string copy = shape.name + ".cut-" + std::to_string(blockStart(2));
    ASSERT_EQ(others().size(), 1U);
    EXPECT_EQ(difference(others()[copy], slice(bytes, blockStart(2), bytes.size())), "");
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(5, 6), NO_ERROR);
    expectForward(NO_ERROR, behindBlock1({"block 5..6", "message 5", "message 6"}));
}

}  // namespace
}  // namespace tabulo::internal::test
