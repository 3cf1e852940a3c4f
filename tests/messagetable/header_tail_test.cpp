#include "messagetable/header_tail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "messagetable/message_table.h"
#include "tests/messagetable/expected_bytes.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

constexpr BlockInfo BLOCK_INFO{0x1112131415161718, 0x2122232425262728};
constexpr DataInfo DATA_INFO{0x3132333435363738, 0x41424344};

mthStaticIndexes someIndexes() {
    mthStaticIndexes indexes;
    indexes.connMsgIds = {1, 2, 3, 4, 5};
    indexes.lastUniform = 6;
    indexes.seqNums = {{{7, 8}, {9, 10}, {11, 12}}};
    return indexes;
}

TailRecords someRecords() {
    return {BLOCK_INFO, DATA_INFO, someIndexes()};
}

Bytes someTail() {
    return ExpectedBytes()
        .hex("18 17 16 15 14 13 12 11 28 27 26 25 24 23 22 21")
        .hex("38 37 36 35 34 33 32 31 44 43 42 41")
        .i32(1)
        .i32(2)
        .i32(3)
        .i32(4)
        .i32(5)
        .i32(6)
        .i32(7)
        .i64(8)
        .i32(9)
        .i64(10)
        .i32(11)
        .i64(12)
        .bytes();
}

// A table with a replica put in by hand, and a tail filled with values that are easily seen.
class HeaderTail88 : public MessageTableTest {
  protected:
    void SetUp() override {
        open(OpenMode::create);
        ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
        addReplica(table.get(), replica());
        before = fileBytes();
        ASSERT_EQ(headerTail_fill(table->tail.get(), someRecords()), NO_ERROR);
        log.clear();
        platform.clear();
    }
    void TearDown() override { table.reset(); }
    std::string replica() const { return path() + ".1"; }
    // The file as it has to be behind a save.
    Bytes saved() const {
        Bytes bytes = before;
        const Bytes tail = someTail();
        std::copy(tail.begin(), tail.end(), bytes.begin() + 52);
        return bytes;
    }
    static std::string dropped(int index, ErrorCode code) {
        return warningLine("tv_saveData", "Replica " + std::to_string(index) +
                                              " closed due to file write error: " + getErrorMessage(code));
    }

    FaultPlatform platform;
    LogCapture log;
    Bytes before;
};

TEST_F(HeaderTail88, IsTheThreeRecordsInTheirOrder) {
    const KSVByteStream* stream = table->tail->stream.get();
    ASSERT_EQ(byteStream_writeMark(stream), 88);
    EXPECT_EQ(toHex(std::span(byteStream_buffer(stream), 88)), toHex(someTail()));
}

TEST_F(HeaderTail88, FilledAgainStartsAnew) {
    ASSERT_EQ(headerTail_fill(table->tail.get(), {}), NO_ERROR);
    EXPECT_EQ(byteStream_writeMark(table->tail->stream.get()), 88);
}

TEST_F(HeaderTail88, IsWrittenInPlaceToEveryFileWithOneWriteEach) {
    ASSERT_EQ(tv_saveData(table->tail.get()), NO_ERROR);
    EXPECT_EQ(platform.sequence(), "writeAt writeAt");
    for (const RecordedCall& call : platform.calls(FileCall::writeAt)) {
        EXPECT_EQ(call.offset, 52);
        EXPECT_EQ(call.length, 88);
    }
    EXPECT_EQ(toHex(fileBytes()), toHex(saved()));
    EXPECT_EQ(toHex(readFile(replica())), toHex(saved()));
    EXPECT_TRUE(log.all().empty()) << log.all().front();
}

TEST_F(HeaderTail88, OfAFileThatFailsDropsItNamesItAndGoesOn) {
    platform.failNth(FileCall::writeAt, 1, EIO);
    EXPECT_EQ(tv_saveData(table->tail.get()), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->storage->activeCount, 1);
    EXPECT_EQ(toHex(fileBytes()), toHex(before));
    EXPECT_EQ(toHex(readFile(replica())), toHex(saved()));
}

TEST_F(HeaderTail88, ThatNoFileTakesGivesTheLastCodeAndCutsNothing) {
    platform.failAll(FileCall::writeAt, EIO);
    EXPECT_EQ(tv_saveData(table->tail.get()), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{dropped(0, FILE_FLUSH_ERROR), dropped(1, FILE_FLUSH_ERROR)}));
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(fileBytes().size(), before.size());
}

TEST_F(HeaderTail88, WithoutAnActiveFileIsAWriteError) {
    platform.failAll(FileCall::writeAt, EIO);
    ASSERT_EQ(tv_saveData(table->tail.get()), FILE_FLUSH_ERROR);
    EXPECT_EQ(tv_saveData(table->tail.get()), FILE_WRITE_ERROR);
}

TEST_F(HeaderTail88, BehindAnOffsetThatTheFileDoesNotReachIsASeekErrorThatDropsIt) {
    table->tail->offset = static_cast<std::int64_t>(before.size()) + 1;
    EXPECT_EQ(tv_saveData(table->tail.get()), VSEEK_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{dropped(0, VSEEK_ERROR), dropped(1, VSEEK_ERROR)}));
}

TEST_F(HeaderTail88, DoesNotMoveTheNextMessage) {
    ASSERT_EQ(tv_saveData(table->tail.get()), NO_ERROR);
    ASSERT_EQ(writeSimple(3, 3), NO_ERROR);
    EXPECT_EQ(hexAt(fileBytes(), before.size(), frameOf(simpleMessage(3)).size()), toHex(frameOf(simpleMessage(3))));
}

TEST(HeaderTailParse, GivesBackTheThreeRecords) {
    Bytes tail = someTail();
    KSVByteStream stream;
    byteStream_init(&stream, tail.data(), 88);
    byteStream_resetWrite(&stream, 88);
    TailRecords records;
    ASSERT_EQ(headerTail_parse(&stream, &records), NO_ERROR);
    EXPECT_EQ(records.blockInfo.reserved, BLOCK_INFO.reserved);
    EXPECT_EQ(records.blockInfo.lastBlockEnd, BLOCK_INFO.lastBlockEnd);
    EXPECT_EQ(records.dataInfo.dataEnd, DATA_INFO.dataEnd);
    EXPECT_EQ(records.dataInfo.messageCount, DATA_INFO.messageCount);
    EXPECT_TRUE(records.staticIndexes == someIndexes());
}

TEST(HeaderTailParse, OfFewerBytesIsNotEnoughDataAndChangesNothing) {
    for (std::int32_t length = 0; length < 88; ++length) {
        Bytes tail = someTail();
        KSVByteStream stream;
        byteStream_init(&stream, tail.data(), 88);
        byteStream_resetWrite(&stream, length);
        TailRecords records{{1, 2}, {3, 4}, {}};
        EXPECT_EQ(headerTail_parse(&stream, &records), STREAM_NOT_ENOUGH_DATA_ERROR) << length;
        EXPECT_EQ(records.blockInfo.reserved + records.blockInfo.lastBlockEnd + records.dataInfo.dataEnd, 6U) << length;
        EXPECT_EQ(records.dataInfo.messageCount, 4) << length;
        EXPECT_TRUE(records.staticIndexes == mthStaticIndexes{}) << length;
    }
}

TEST(HeaderTailCreate, WithoutMemoryGivesNone) {
    for (int n = 1; n <= 10; ++n) {
        HeaderTailPtr tail;
        {
            const AllocationFailure failure(n);
            tail = headerTail_create(nullptr, 52);
        }
        if (tail != nullptr) {
            EXPECT_GT(n, 1) << "no allocation at all was seen";
            return;
        }
    }
    FAIL() << "never created";
}

class TailOfATable : public MessageTableTest {};

TEST_F(TailOfATable, StandsBehindTheNamesWhetherCreatedOrOpened) {
    shape.stringNames = {"ClOrdID", ""};
    shape.numericNames = {"Price"};
    open(OpenMode::create);
    const auto expected = static_cast<std::int64_t>(fileBytes().size()) - 88;
    EXPECT_EQ(table->tail->offset, expected);
    open(OpenMode::write);
    EXPECT_EQ(table->tail->offset, expected);
    open(OpenMode::read);
    EXPECT_EQ(table->tail->offset, expected);
}

TEST_F(TailOfATable, KeepsTheReservedWordAsItWasRead) {
    open(OpenMode::create);
    EXPECT_EQ(u64At(fileBytes(), 52), 0U);
    table.reset();
    patchFile(path(), 52, ExpectedBytes().u64(0x8182838485868788).bytes());
    open(OpenMode::write);
    ASSERT_EQ(writeSimple(1, 3), NO_ERROR);
    EXPECT_EQ(u64At(fileBytes(), 52), 0x8182838485868788U);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(u64At(fileBytes(), 52), 0x8182838485868788U);
}

TEST_F(TailOfATable, StoresTheHeadersEndForALastBlockEndOfZeroAtItsNextSave) {
    open(OpenMode::create);
    EXPECT_EQ(u64At(fileBytes(), 60), 0U) << "a new file stores 0";
    ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(u64At(fileBytes(), 60), 140U);
}

}  // namespace
}  // namespace tabulo::internal::test
