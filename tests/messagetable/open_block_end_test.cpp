// What stands behind the last whole frame of the open block: the end for now, where a crash can have left it, or
// damage.
#include <gtest/gtest.h>

#include <algorithm>

#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "tests/messagetable/table_image.h"
#include "tests/messagetable/walk_record.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LAST = 7;  // a closed block of four messages and three messages of the open one

class OpenBlockEnd : public TableImageTest {
  protected:
    OpenBlockEnd()
        : messages(simpleMessages(1, LAST, shape)),
          places(mapOf(shape, messages)),
          whole(unclosedImage(shape, messages)) {}

    void read(const Bytes& bytes) {
        table.reset();
        place(bytes);
        open(OpenMode::read);
    }
    // Both walks deliver the first messages and end with this code; lookups and reading by ids tell the same.
    void expectEnd(const Bytes& bytes, std::int32_t last, ErrorCode code) {
        read(bytes);
        const std::vector<Message> expected = simpleMessages(1, last, shape);
        WalkRecord forward;
        EXPECT_EQ(walkForward(table.get(), &forward), code) << "forward";
        EXPECT_EQ(forward.messages, expected) << "forward";
        WalkRecord backward;
        EXPECT_EQ(walkBackward(table.get(), &backward), code) << "backward";
        std::reverse(backward.messages.begin(), backward.messages.end());
        EXPECT_EQ(backward.messages, expected) << "backward";
        std::int32_t id = -1;
        EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), code) << "the last uniform id";
        EXPECT_EQ(id, code == NO_ERROR ? last : -1);
        WalkRecord byIds;
        const MessageListener listener{&byIds, byIds.visitor().onMessage, [](void*, ErrorCode end) { return end; }};
        EXPECT_EQ(mt_readMessages(table.get(), &last, 1, &listener, false), code) << "reading by ids";
        EXPECT_EQ(byIds.messages, std::vector<Message>{messages.at(static_cast<std::size_t>(last) - 1)});
    }

    // Bytes with which no frame begins: the first four are the length of one that is too small.
    static Bytes noBeginning(std::size_t count) {
        Bytes bytes(count);
        bytes.at(0) = 7;
        return bytes;
    }

    const std::vector<Message> messages;
    const TableMap places;
    const Bytes whole;
};

TEST_F(OpenBlockEnd, AZeroedFrameWithAWholeOneBehindItIsDamage) {
    Bytes bytes = whole;
    const TableMap::Frame& frame = places.frame(6);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(frame.start),
              bytes.begin() + static_cast<std::ptrdiff_t>(frame.end), 0);
    expectEnd(bytes, 5, CONSISTENCY_ERROR);
}

TEST_F(OpenBlockEnd, AFrameThatClaimsMoreThanTheFileHasIsDamageWhenAWholeOneStandsInIt) {
    Bytes bytes = whole;
    putU32(&bytes, places.frame(6).start, 1'000'000);
    expectEnd(bytes, 5, CONSISTENCY_ERROR);
}

TEST_F(OpenBlockEnd, BytesThatBeginNoFrameAreDamageFromEightOn) {
    for (std::size_t count = 1; count <= 20; ++count) {
        SCOPED_TRACE(count);
        expectEnd(concatenated(whole, noBeginning(count)), LAST, count < 8 ? NO_ERROR : CONSISTENCY_ERROR);
    }
}

TEST_F(OpenBlockEnd, BytesThatBeginNoFrameAreDamageBehindALengthWordToo) {
    const Bytes closed = unclosedImage(shape, simpleMessages(1, 4, shape));
    for (std::size_t count = 1; count <= 20; ++count) {
        SCOPED_TRACE(count);
        const Bytes bytes = concatenated(concatenated(closed, Bytes(8)), noBeginning(count));
        expectEnd(bytes, 4, count < 8 ? NO_ERROR : CONSISTENCY_ERROR);
    }
}

TEST_F(OpenBlockEnd, ZerosAreTheEndForNowHoweverMany) {
    for (const std::size_t count : {1U, 7U, 8U, 55U, 100U, 5000U}) {
        SCOPED_TRACE(count);
        expectEnd(concatenated(whole, Bytes(count)), LAST, NO_ERROR);
        Bytes one = concatenated(whole, Bytes(count));
        one.back() = 1;
        expectEnd(one, LAST, count < 8 ? NO_ERROR : CONSISTENCY_ERROR);
    }
}

TEST_F(OpenBlockEnd, TheBeginningOfAFrameIsTheEndForNow) {
    for (std::size_t size = places.frame(6).end; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        expectEnd(cutAt(whole, size), 6, NO_ERROR);
    }
}

TEST_F(OpenBlockEnd, AnUnfinishedFooterOfAFullBlockIsTheEndForNow) {
    const std::vector<Message> full = simpleMessages(1, 8, shape);
    const Bytes footerless = footerlessImage(shape, full);
    const Bytes closed = unclosedImage(shape, full);
    for (std::size_t size = footerless.size(); size < closed.size(); size += 97) {
        SCOPED_TRACE(size);
        const Bytes bytes = concatenated(footerless, slice(closed, footerless.size(), size));
        table.reset();
        place(bytes);
        open(OpenMode::read);
        EXPECT_EQ(readAll(table.get()).code, NO_ERROR);
        EXPECT_EQ(readAll(table.get()).messages, full);
        EXPECT_EQ(readAllBackward(table.get()).code, NO_ERROR);
        EXPECT_EQ(readAllBackward(table.get()).messages.size(), full.size());
        std::int32_t id = -1;
        EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), NO_ERROR);
        EXPECT_EQ(id, 8);
    }
}

}  // namespace
}  // namespace tabulo::internal::test
