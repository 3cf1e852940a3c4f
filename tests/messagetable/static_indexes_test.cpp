#include "messagetable/static_indexes.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "core/byte_stream.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"

namespace tabulo::internal::test {
namespace {

// One id of every class.
constexpr std::int32_t APP_TO_ID = 10;
constexpr std::int32_t APP_FROM_ID = 0x1FFFFFFF;
constexpr std::int32_t ADMIN_TO_ID = 0x3FFFFFFF;
constexpr std::int32_t ADMIN_FROM_ID = 0x4FFFFFFF;
constexpr std::int32_t RESENT_ID = 0x5FFFFFFF;

struct Step {
    std::int32_t seqNum = 0;
    std::int32_t prevSeqNum = 0;
    std::int32_t connMsgId = APP_TO_ID;
    std::uint8_t isPossDup = 0;
    std::uint8_t isOutOfSequence = 0;
};

mthStaticIndexes updated(const Step& step, mthStaticIndexes indexes = {}) {
    MessageMetadata metadata;
    metadata.uniformId = 77;
    metadata.seqNum = step.seqNum;
    metadata.prevSeqNum = step.prevSeqNum;
    metadata.connMsgId = step.connMsgId;
    metadata.timestamp = 5000;
    metadata.isPossDupFlag = step.isPossDup;
    metadata.isOutOfSequence = step.isOutOfSequence;
    mthStaticIndexes_update(&indexes, &metadata);
    return indexes;
}

// The pairs that a step sets in fresh indexes, as "FIRST_PEND LAST_PEND LAST_GOOD" numbers; 0 for one left alone.
std::array<std::int32_t, 3> setBy(const Step& step) {
    const mthStaticIndexes indexes = updated(step);
    std::array<std::int32_t, 3> numbers{};
    for (std::size_t kind = 0; kind < numbers.size(); ++kind) {
        numbers[kind] = indexes.seqNums[kind].seqNum;
        EXPECT_EQ(indexes.seqNums[kind].timestamp, numbers[kind] == 0 ? 0 : 5000)
            << "the time stamp of pair " << kind << " goes with its number";
    }
    return numbers;
}

using Numbers = std::array<std::int32_t, 3>;

TEST(StaticIndexes, OfAFreshTableHaveNoIdsAndZeroes) {
    mthStaticIndexes indexes = updated({5, 3});
    mthStaticIndexes_init(&indexes);
    for (const std::int32_t id : indexes.connMsgIds) {
        EXPECT_EQ(id, -1);
    }
    EXPECT_EQ(indexes.lastUniform, 0);
    for (const SeqNumIndex& pair : indexes.seqNums) {
        EXPECT_EQ(pair, (SeqNumIndex{0, 0}));
    }
}

TEST(StaticIndexes, KeepTheHighestIdOfEachClassInClassOrder) {
    mthStaticIndexes indexes;
    for (const std::int32_t id : {APP_TO_ID, APP_FROM_ID, ADMIN_TO_ID, ADMIN_FROM_ID, RESENT_ID}) {
        indexes = updated({1, 0, id}, indexes);
    }
    EXPECT_EQ(indexes.connMsgIds,
              (std::array<std::int32_t, 5>{APP_FROM_ID, APP_TO_ID, ADMIN_FROM_ID, ADMIN_TO_ID, RESENT_ID}));
}

TEST(StaticIndexes, ALowerIdDoesNotLowerItsClass) {
    mthStaticIndexes indexes = updated({1, 0, 20});
    indexes = updated({1, 0, 19}, indexes);
    EXPECT_EQ(indexes.connMsgIds[APP_TO], 20);
    indexes = updated({1, 0, 21}, indexes);
    EXPECT_EQ(indexes.connMsgIds[APP_TO], 21);
}

TEST(StaticIndexes, IdsAtTheBoundariesGoToTheirClass) {
    EXPECT_EQ(updated({1, 0, 0}).connMsgIds[APP_TO], 0);
    EXPECT_EQ(updated({1, 0, 536870910}).connMsgIds[APP_TO], 536870910);
    EXPECT_EQ(updated({1, 0, 536870911}).connMsgIds[APP_FROM], 536870911);
    EXPECT_EQ(updated({1, 0, 2147483647}).connMsgIds[RESENT], 2147483647);
}

TEST(StaticIndexes, AnIdWithoutAClassLeavesTheIdsAloneAndStillIsTheLastUniformId) {
    const mthStaticIndexes indexes = updated({0, 0, -1});
    EXPECT_EQ(indexes.connMsgIds, (std::array<std::int32_t, 5>{-1, -1, -1, -1, -1}));
    EXPECT_EQ(indexes.lastUniform, 77);
}

TEST(StaticIndexes, TheLastUniformIdIsTheLastOneAndNotTheHighest) {
    mthStaticIndexes indexes;
    indexes.lastUniform = 100;
    EXPECT_EQ(updated({1}, indexes).lastUniform, 77);
}

TEST(StaticIndexes, APendingMessageThatWasSentIsFirstPendAndLastGood) {
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3}), (Numbers{-3, 0, 8}));
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = 3}), (Numbers{3, 0, 8})) << "any number but 0 is a pending number";
}

TEST(StaticIndexes, FirstPendNeedsAPositiveNumberAPreviousOneAndAnOutgoingApplicationMessage) {
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = 0}), (Numbers{0, 0, 8}));
    EXPECT_EQ(setBy({.seqNum = 0, .prevSeqNum = -3}), (Numbers{0, 0, 0}));
    EXPECT_EQ(setBy({.seqNum = -8, .prevSeqNum = -3}), (Numbers{0, -8, 0}));
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3, .connMsgId = APP_FROM_ID}), (Numbers{0, 0, 8}));
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3, .connMsgId = ADMIN_TO_ID}), (Numbers{0, 0, 8}));
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3, .connMsgId = -1}), (Numbers{0, 0, 8}));
}

TEST(StaticIndexes, APossibleDuplicateIsKeptOutOfFirstPendOnly) {
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3, .isPossDup = 1}), (Numbers{0, 0, 8}));
    EXPECT_EQ(setBy({.seqNum = -8, .isPossDup = 1}), (Numbers{0, -8, 0}));
}

TEST(StaticIndexes, AMessageOutOfSequenceIsKeptOutOfLastPendAndLastGoodOnly) {
    EXPECT_EQ(setBy({.seqNum = 8, .prevSeqNum = -3, .isOutOfSequence = 1}), (Numbers{-3, 0, 0}));
    EXPECT_EQ(setBy({.seqNum = -8, .isOutOfSequence = 1}), (Numbers{0, 0, 0}));
}

TEST(StaticIndexes, LastPendNeedsANegativeNumberOfAnOutgoingApplicationMessage) {
    EXPECT_EQ(setBy({.seqNum = -8}), (Numbers{0, -8, 0}));
    EXPECT_EQ(setBy({.seqNum = 0}), (Numbers{0, 0, 0}));
    for (const std::int32_t id : {APP_FROM_ID, ADMIN_TO_ID, ADMIN_FROM_ID, RESENT_ID, -1}) {
        EXPECT_EQ(setBy({.seqNum = -8, .connMsgId = id}), (Numbers{0, 0, 0})) << id;
    }
}

TEST(StaticIndexes, LastGoodTakesAnyClassButResent) {
    for (const std::int32_t id : {APP_TO_ID, APP_FROM_ID, ADMIN_TO_ID, ADMIN_FROM_ID, -1}) {
        EXPECT_EQ(setBy({.seqNum = 8, .connMsgId = id}), (Numbers{0, 0, 8})) << id;
    }
    EXPECT_EQ(setBy({.seqNum = 8, .connMsgId = RESENT_ID}), (Numbers{0, 0, 0}));
}

TEST(StaticIndexes, ThePairsHoldTheNewestNumberAndNotTheHighest) {
    mthStaticIndexes indexes;
    indexes.seqNums = {{{-1, 9000}, {-100, 9000}, {100, 9000}}};
    EXPECT_EQ(updated({8, -3}, indexes).seqNums[FIRST_PEND], (SeqNumIndex{-3, 5000}));
    EXPECT_EQ(updated({-8}, indexes).seqNums[LAST_PEND], (SeqNumIndex{-8, 5000}));
    EXPECT_EQ(updated({8}, indexes).seqNums[LAST_GOOD], (SeqNumIndex{8, 5000}));
}

TEST(StaticIndexes, AreStoredInSixtyBytesInTheirOrder) {
    mthStaticIndexes indexes;
    indexes.connMsgIds = {1, 2, 3, 4, -1};
    indexes.lastUniform = 6;
    indexes.seqNums = {{{-7, 0x0102030405060708}, {-8, -1}, {9, 3}}};
    const Bytes expected = fromHex(
        "01 00 00 00  02 00 00 00  03 00 00 00  04 00 00 00  ff ff ff ff  06 00 00 00"
        "f9 ff ff ff  08 07 06 05 04 03 02 01"
        "f8 ff ff ff  ff ff ff ff ff ff ff ff"
        "09 00 00 00  03 00 00 00 00 00 00 00");
    ASSERT_EQ(expected.size(), 60U);
    const ByteStreamPtr stream(byteStream_create(0));
    EXPECT_EQ(mthStaticIndexes_write(&indexes, stream.get()), NO_ERROR);
    EXPECT_EQ(toHex(std::span(byteStream_buffer(stream.get()), 60)), toHex(expected));
    EXPECT_EQ(byteStream_writeMark(stream.get()), 60);
    mthStaticIndexes read;
    EXPECT_EQ(mthStaticIndexes_read(&read, stream.get()), NO_ERROR);
    EXPECT_TRUE(read == indexes);
    EXPECT_EQ(byteStream_unread(stream.get()), 0);
}

TEST(StaticIndexes, CutAnywhereAreNotEnoughDataAndChangeNothing) {
    for (std::int32_t length = 0; length < 60; ++length) {
        Bytes bytes = pattern(60, 1);
        KSVByteStream stream;
        byteStream_init(&stream, bytes.data(), 60);
        ASSERT_EQ(byteStream_resetWrite(&stream, length).bytes, 0);
        mthStaticIndexes read;
        read.lastUniform = 4;
        EXPECT_EQ(mthStaticIndexes_read(&read, &stream), STREAM_NOT_ENOUGH_DATA_ERROR) << length << " bytes";
        mthStaticIndexes expected;
        expected.lastUniform = 4;
        EXPECT_TRUE(read == expected) << length << " bytes changed the indexes";
    }
}

TEST(StaticIndexes, AStreamThatCannotGrowIsAnExtensionError) {
    Bytes room(59);
    KSVByteStream stream;
    byteStream_init(&stream, room.data(), 59);
    const mthStaticIndexes indexes;
    EXPECT_EQ(mthStaticIndexes_write(&indexes, &stream), STREAM_EXTENSION_ERROR);
}

TEST(StaticIndexes, AnyValuesAreAccepted) {
    mthStaticIndexes indexes;
    indexes.connMsgIds = {-5, 2147483647, 0, -2147483647 - 1, 1};
    indexes.lastUniform = -9;
    indexes.seqNums[LAST_GOOD] = {-1, -1};
    EXPECT_EQ(mthStaticIndexes_check(&indexes), NO_ERROR);
}

TEST(StaticIndexesPrint, AFreshTableShowsAllFiveIdsAsMinusOne) {
    DebugLog log;
    const mthStaticIndexes indexes;
    mthStaticIndexes_print(&indexes, nullptr);
    EXPECT_NE(log.text().find("[APP_FROM=-1, APP_TO=-1, ADMIN_FROM=-1, ADMIN_TO=-1, RESENT=-1], lastUniform=0"),
              std::string::npos)
        << log.text();
}

TEST(StaticIndexesPrint, TheLineShowsTheLiteralConversionAndTheNineNumbersInTheirTurn) {
    DebugLog log;
    mthStaticIndexes indexes;
    indexes.connMsgIds = {1, 2, 3, 4, 5};
    indexes.lastUniform = 6;
    indexes.seqNums = {{{7, 0x00000009'00000008}, {10, 11}, {12, 13}}};
    mthStaticIndexes_print(&indexes, "mt_open");
    EXPECT_EQ(log.text(), debugLine("mt_open",
                                    "index: { connMsgIds [APP_FROM=1, APP_TO=2, ADMIN_FROM=3, ADMIN_TO=4, RESENT=5], "
                                    "lastUniform=6, seqNum[FIRST_PEND=(7 | %I64i), LAST_PEND=(8 | %I64i), "
                                    "LAST_GOOD=(10 | %I64i)] }\n"));
    log.clear();
    mthStaticIndexes_print(&indexes, nullptr);
    EXPECT_EQ(log.text().find(debugLine("mthStaticIndexes_print", "index: { ")), 0U)
        << "the line of no named function is its own";
}

}  // namespace
}  // namespace tabulo::internal::test
