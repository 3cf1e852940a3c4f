// A block's length word that lies across a page boundary and of which a writer that was stopped has written one part.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "index/uniform_lookup.h"
#include "messagetable/block_reader.h"
#include "messagetable/message_lookup.h"
#include "query/message_table_iterator.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t PAGE = 4096;
constexpr std::int32_t LAST = 10;

class TornLengthWord : public TableImageTest {
  protected:
    // Ten messages, the second block's length word with `inFront` bytes before a page boundary.
    void make(std::size_t inFront, std::size_t longer = 0) {
        messages = simpleMessages(1, LAST, shape);
        messages[5].strings[2] = *messages[5].strings[2] + std::string(longer, 'y');
        const std::size_t start = mapOf(shape, messages).blockStarts[1];
        messages[0].strings[2] = *messages[0].strings[2] + std::string(2 * PAGE - inFront - start % PAGE, 'x');
        places = mapOf(shape, messages);
        ASSERT_EQ((places.blockStarts[1] + inFront) % PAGE, 0U) << "the test itself";
        whole = unclosedImage(shape, messages);
    }
    // The file with only the bytes of the word in front of the page boundary written, or only those behind it.
    Bytes torn(std::size_t inFront, bool front) const {
        Bytes bytes = whole;
        const auto word = bytes.begin() + static_cast<std::ptrdiff_t>(places.blockStarts[1]);
        const auto boundary = word + static_cast<std::ptrdiff_t>(inFront);
        std::fill(front ? boundary : word, front ? word + 8 : boundary, 0);
        return bytes;
    }
    // Hands over each such file, for every place of the boundary in the word.
    template <typename Check>
    void forEachTear(Check check) {
        for (std::size_t inFront = 1; inFront < 8; ++inFront) {
            make(inFront);
            for (const bool front : {true, false}) {
                SCOPED_TRACE(std::to_string(inFront) + " bytes in front, written " + (front ? "these" : "the others"));
                check(torn(inFront, front));
            }
        }
    }
    void expectWhole(const Bytes& bytes) {
        place(bytes);
        const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, shape);
        std::int32_t id = 0;
        EXPECT_EQ(mt_getLastUniformMessageId(reader.get(), &id), NO_ERROR);
        EXPECT_EQ(id, LAST);
        const ReadMessages forward = readAll(reader.get());
        EXPECT_EQ(forward.code, NO_ERROR) << "forward";
        EXPECT_EQ(forward.messages, messages) << "forward";
        ReadMessages backward = readAllBackward(reader.get());
        std::reverse(backward.messages.begin(), backward.messages.end());
        EXPECT_EQ(backward.code, NO_ERROR) << "backward";
        EXPECT_EQ(backward.messages, messages) << "backward";
        for (const bool iterateBackward : {false, true}) {
            EXPECT_EQ(iterated(reader.get(), iterateBackward), LAST) << (iterateBackward ? "backward" : "forward");
        }
        UniformPlace found;
        EXPECT_EQ(mt_findUniformId(reader.get(), LAST, &found), NO_ERROR);
        EXPECT_EQ(found.offset, static_cast<std::int64_t>(places.frame(LAST).start));
        EXPECT_EQ(found.ordinal, LAST - 1);
    }
    // The messages that an iterator delivers before its end, or -1 when it ends with an error.
    static int iterated(MessageTable* from, bool backward) {
        QueryConditions* conditions = conditions_create();
        EXPECT_EQ(conditions_setIterateBackward(conditions, backward), NO_ERROR);
        const MessageTableIteratorPtr iterator(mtIterator_open(from, conditions));
        int count = 0;
        bool end = false;
        while (mtIterator_next(iterator.get(), &end) == NO_ERROR && !end) {
            count += 1;
        }
        return end ? count : -1;
    }
    void expectRecoveredSilently(const Bytes& bytes) {
        log.clear();
        place(bytes);
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closedImage(shape, messages)), "");
        EXPECT_TRUE(others().empty()) << "saved without need: " << others().begin()->first;
        EXPECT_EQ(warningsOf("mtX_recover"), std::vector<std::string>{});
    }

    std::vector<Message> messages;
    TableMap places;
    Bytes whole;
};

TEST_F(TornLengthWord, AReadThatTheSystemRefusesIsNoDamage) {
    make(1);
    place(torn(1, true));
    for (int n = 1;; ++n) {
        const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, shape);
        FaultPlatform platform;
        platform.failNth(FileCall::readAt, n, EIO);
        const ReadMessages read = readAll(reader.get());
        if (platform.count(FileCall::readAt) < n) {
            EXPECT_GT(n, 4) << "the block is read in fewer steps than there are";
            break;
        }
        EXPECT_EQ(read.code, FILE_READ_ERROR) << "read " << n;
    }
}

TEST_F(TornLengthWord, IsReadAsOneThatIsNotWrittenYet) {
    forEachTear([this](const Bytes& bytes) { expectWhole(bytes); });
}

TEST_F(TornLengthWord, IsReadWhateverStandsWhereItsPartPoints) {
    shape.numericNames = {"Price", "OrderQty", "LastQty"};
    for (std::size_t longer = 300; longer < 560; longer += 5) {
        SCOPED_TRACE(longer);
        make(1, longer);
        expectWhole(torn(1, false));
    }
}

TEST_F(TornLengthWord, IsNoExcuseForADamagedFooterBehindARightWord) {
    for (std::size_t inFront = 1; inFront < 8; ++inFront) {
        make(inFront);
        Bytes damaged = whole;
        putU32(&damaged, places.openBlockStart - places.footerSize + 72, 9999);  // the first filter's bits
        place(damaged);
        const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, shape);
        EXPECT_EQ(readAll(reader.get()).code, HEADER_CORRUPTED_ERROR) << inFront;
        EXPECT_EQ(readAllBackward(reader.get()).code, HEADER_CORRUPTED_ERROR) << inFront;
    }
}

TEST_F(TornLengthWord, IsRewrittenByRecoveryWithoutACopy) {
    forEachTear([this](const Bytes& bytes) { expectRecoveredSilently(bytes); });
}

TEST_F(TornLengthWord, IsDamageWhereTheBlockOrItsFooterDoesNotAgree) {
    make(1);
    const std::size_t start = places.blockStarts[1];
    Bytes otherPart = torn(1, true);
    otherPart[start] ^= 0x01;
    Bytes otherFooter = torn(1, true);
    otherFooter[places.openBlockStart - 8] ^= 0x01;
    Bytes noFrame = torn(1, true);
    putU32(&noFrame, places.frame(6).end - 4, 1);
    const Bytes noFooter = cutAt(torn(1, true), places.openBlockStart - 1);
    for (const Bytes& bytes : {otherPart, otherFooter, noFrame, noFooter}) {
        place(bytes);
        const MessageTablePtr reader = openTable(directory.root(), OpenMode::read, shape);
        const ReadMessages forward = readAll(reader.get());
        EXPECT_EQ(forward.code, HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(forward.messages.size(), 4U);
    }
}

TEST(LengthWord, IsTornAtAPageBoundaryOnly) {
    constexpr std::uint64_t LENGTH = 0x0102030405060708;
    EXPECT_TRUE(lengthWord_isTorn(4095, 0x08, LENGTH));
    EXPECT_TRUE(lengthWord_isTorn(4095, 0x0102030405060700, LENGTH));
    EXPECT_TRUE(lengthWord_isTorn(2 * 4096 - 7, 0x02030405060708, LENGTH));
    EXPECT_TRUE(lengthWord_isTorn(2 * 4096 - 7, 0x0100000000000000, LENGTH));
    EXPECT_FALSE(lengthWord_isTorn(4095, 0x0708, LENGTH)) << "torn elsewhere";
    EXPECT_FALSE(lengthWord_isTorn(4094, 0x08, LENGTH)) << "torn elsewhere";
    EXPECT_FALSE(lengthWord_isTorn(4096, 0x08, LENGTH)) << "within a page";
    EXPECT_FALSE(lengthWord_isTorn(4088, 0x08, LENGTH)) << "within a page";
    EXPECT_FALSE(lengthWord_isTorn(4088, 0, LENGTH)) << "within a page";
    EXPECT_FALSE(lengthWord_isTorn(4095, 0x09, LENGTH)) << "another length";
    EXPECT_FALSE(lengthWord_isTorn(4094, 0x0708, 0x0708)) << "the word is whole";
}

}  // namespace
}  // namespace tabulo::internal::test
