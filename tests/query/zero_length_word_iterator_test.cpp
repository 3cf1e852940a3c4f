// Iterators over a table with a closed block whose length word has become 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "query/message_table_iterator.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LAST = 13;  // three closed blocks of four messages and one message of the open one

struct Iterated {
    std::vector<std::int32_t> ids;
    ErrorCode code = NO_ERROR;
};

std::vector<std::int32_t> numbers(std::int32_t first, std::int32_t last) {
    std::vector<std::int32_t> list;
    const std::int32_t step = first <= last ? 1 : -1;
    for (std::int32_t n = first; n != last + step; n += step) {
        list.push_back(n);
    }
    return list;
}

using Set = std::function<void(QueryConditions*)>;

// Selects the messages with these sequence numbers.
Set seqNums(std::int32_t first, std::int32_t last) {
    return
        [=](QueryConditions* conditions) { EXPECT_EQ(conditions_setSeqNumRange(conditions, first, last), NO_ERROR); };
}

class ZeroLengthWordUnderAnIterator : public TableImageTest {
  protected:
    ZeroLengthWordUnderAnIterator()
        : messages(simpleMessages(1, LAST, shape)),
          places(mapOf(shape, messages)),
          whole(closedImage(shape, messages)) {}

    static void zero(Bytes* bytes, std::size_t start, std::size_t end) {
        std::fill(bytes->begin() + static_cast<std::ptrdiff_t>(start),
                  bytes->begin() + static_cast<std::ptrdiff_t>(end), 0);
    }
    // The second block without its length word, and without one of its frames.
    Bytes damaged(std::size_t frame) const {
        Bytes bytes = whole;
        putU64(&bytes, places.blockStarts[1], 0);
        zero(&bytes, places.frame(frame).start, places.frame(frame).end);
        return bytes;
    }
    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
    }
    MessageTableIteratorPtr iterate(
        bool backward, const Set& set = [](QueryConditions*) {}) {
        QueryConditionsPtr conditions(conditions_create());
        EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
        set(conditions.get());
        MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions.release()));
        EXPECT_NE(iterator, nullptr) << "the iterator cannot be opened";
        return iterator;
    }
    Iterated ask(
        bool backward, const Set& set = [](QueryConditions*) {}) {
        const MessageTableIteratorPtr iterator = iterate(backward, set);
        Iterated result;
        bool end = false;
        while ((result.code = mtIterator_next(iterator.get(), &end)) == NO_ERROR && !end) {
            result.ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
        EXPECT_TRUE(end) << "an error comes without a message";
        return result;
    }

    const std::vector<Message> messages;
    const TableMap places;
    const Bytes whole;
};

TEST_F(ZeroLengthWordUnderAnIterator, WithADamagedFrameEndsItWithAnErrorBehindTheMessagesBefore) {
    for (const std::int32_t frame : {5, 6, 8}) {
        SCOPED_TRACE("message " + std::to_string(frame));
        read(damaged(static_cast<std::size_t>(frame)));
        const Iterated forward = ask(false);
        EXPECT_EQ(forward.code, HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(forward.ids, numbers(1, frame - 1));
        const Iterated backward = ask(true);
        EXPECT_EQ(backward.code, HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(backward.ids, numbers(LAST, frame + 1));
    }
}

TEST_F(ZeroLengthWordUnderAnIterator, WithADamagedFooterEndsItBehindAllFrames) {
    Bytes bytes = whole;
    putU64(&bytes, places.blockStarts[1], 0);
    putU32(&bytes, places.blockStarts[2] - places.footerSize + 72, 9999);  // the first filter's bits
    read(bytes);
    EXPECT_EQ(ask(false).code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(ask(false).ids, numbers(1, 8));
    EXPECT_EQ(ask(true).code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(ask(true).ids, numbers(LAST, 5));
}

TEST_F(ZeroLengthWordUnderAnIterator, WithAllFramesAndTheRightFooterChangesNothing) {
    for (std::size_t block = 0; block < 3; ++block) {
        Bytes bytes = whole;
        putU64(&bytes, places.blockStarts[block], 0);
        read(bytes);
        EXPECT_EQ(ask(false).code, NO_ERROR);
        EXPECT_EQ(ask(false).ids, numbers(1, LAST));
        EXPECT_EQ(ask(true).code, NO_ERROR);
        EXPECT_EQ(ask(true).ids, numbers(LAST, 1));
        const Iterated some = ask(false, seqNums(7, 10));
        EXPECT_EQ(some.code, NO_ERROR);
        EXPECT_EQ(some.ids, numbers(7, 10));
    }
}

TEST_F(ZeroLengthWordUnderAnIterator, IsNotSkippedByItsFooterWhenTheBlockIsDamaged) {
    read(damaged(7));
    const Set behind = seqNums(9, 13);
    const Iterated forward = ask(false, behind);
    EXPECT_EQ(forward.code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(forward.ids, std::vector<std::int32_t>{});
    const Set inFront = seqNums(1, 4);
    const Iterated backward = ask(true, inFront);
    EXPECT_EQ(backward.code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(backward.ids, std::vector<std::int32_t>{});
}

TEST_F(ZeroLengthWordUnderAnIterator, DeliversOfADamagedBlockOnlyWhatMatches) {
    read(damaged(8));
    const Set one = seqNums(6, 6);
    const Iterated forward = ask(false, one);
    EXPECT_EQ(forward.code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(forward.ids, std::vector<std::int32_t>{6});
    const auto others = [](QueryConditions* conditions) {
        seqNums(6, 6)(conditions);
        EXPECT_EQ(conditions_setInverted(conditions, true), NO_ERROR);
    };
    EXPECT_EQ(ask(false, others).ids, (std::vector<std::int32_t>{1, 2, 3, 4, 5, 7}));
}

TEST_F(ZeroLengthWordUnderAnIterator, OfTheLastClosedBlockEndsItBehindTheMessagesBeforeToo) {
    Bytes bytes = whole;
    putU64(&bytes, places.blockStarts[2], 0);
    zero(&bytes, places.frame(11).start, places.frame(11).end);
    read(bytes);
    const Iterated forward = ask(false);
    EXPECT_EQ(forward.code, HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(forward.ids, numbers(1, 10));
}

TEST_F(ZeroLengthWordUnderAnIterator, TheErrorStays) {
    read(damaged(6));
    for (const bool backward : {false, true}) {
        const MessageTableIteratorPtr iterator = iterate(backward);
        bool end = false;
        while (mtIterator_next(iterator.get(), &end) == NO_ERROR && !end) {
        }
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(mtIterator_next(iterator.get(), &end), HEADER_CORRUPTED_ERROR);
            EXPECT_TRUE(end);
        }
    }
}

TEST_F(ZeroLengthWordUnderAnIterator, ThatFollowsAWriterIsNotCalledDamagedAtTheEndOfTheData) {
    table.reset();
    place(unclosedImage(shape, simpleMessages(1, 7, shape)));
    open(OpenMode::write);
    const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, shape);
    const MessageTableIteratorPtr iterator(mtIterator_open(reader.get(), conditions_create()));
    std::int32_t delivered = 0;
    for (std::int32_t n = 7; n <= 25; ++n) {
        bool end = false;
        while (delivered < n) {
            ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR) << "behind message " << delivered;
            ASSERT_FALSE(end) << "message " << delivered + 1;
            delivered += 1;
            EXPECT_EQ(mtIterator_getMetadata(iterator.get()).uniformId, delivered);
        }
        ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
        EXPECT_TRUE(end);
        ASSERT_EQ(write(simpleMessage(n + 1, shape)), NO_ERROR);
    }
}

// A writer that was stopped between the last frame of a block and its footer: at the file's very end there is nothing
// to look at again.
TEST_F(ZeroLengthWordUnderAnIterator, OfAFullBlockWithoutItsFooterIsNotReadAgainAtTheEndOfTheFile) {
    const TableMap map = mapOf(shape, simpleMessages(1, 8, shape));
    Bytes bytes = cutAt(unclosedImage(shape, simpleMessages(1, 8, shape)), map.frame(8).end);
    const Bytes before = unclosedImage(shape, simpleMessages(1, 7, shape));
    std::copy_n(before.begin(), map.headerSize, bytes.begin());
    putU64(&bytes, map.blockStarts[1], 0);
    read(bytes);
    const MessageTableIteratorPtr iterator(mtIterator_open(table.get(), conditions_create()));
    bool end = false;
    for (std::int32_t n = 1; n <= 8; ++n) {
        ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
        ASSERT_FALSE(end) << "message " << n;
    }
    const FaultPlatform platform;
    ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
    EXPECT_TRUE(end);
    EXPECT_EQ(platform.count(FileCall::readAt), 0);
}

// Behind the last whole frame of the open block.

TEST_F(ZeroLengthWordUnderAnIterator, AFrameOfTheOpenBlockThatIsZeroedInFrontOfAWholeOneIsAnError) {
    const std::vector<Message> more = simpleMessages(1, 15, shape);
    const TableMap map = mapOf(shape, more);
    Bytes bytes = closedImage(shape, more);
    zero(&bytes, map.frame(14).start, map.frame(14).end);
    read(bytes);
    const Iterated forward = ask(false);
    EXPECT_EQ(forward.code, CONSISTENCY_ERROR);
    EXPECT_EQ(forward.ids, numbers(1, 13));
}

TEST_F(ZeroLengthWordUnderAnIterator, WhatACrashLeavesBehindTheLastFrameIsTheEndForNow) {
    const Bytes shorter = unclosedImage(shape, simpleMessages(1, 7, shape));
    const TableMap map = mapOf(shape, simpleMessages(1, 7, shape));
    const Bytes cut = cutAt(shorter, shorter.size() - 1);
    const Bytes zeros = concatenated(cutAt(shorter, map.frame(6).end), Bytes(500));
    for (const Bytes& bytes : {cut, zeros}) {
        read(bytes);
        for (const bool backward : {false, true}) {
            const Iterated result = ask(backward);
            EXPECT_EQ(result.code, NO_ERROR);
            EXPECT_EQ(result.ids, backward ? numbers(6, 1) : numbers(1, 6));
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
