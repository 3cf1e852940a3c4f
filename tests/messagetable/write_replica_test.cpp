// Writes to a table with several open files. A storage opens the master only, so the others are put in by hand.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "messagetable/message_table.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using Lines = std::vector<std::string>;

std::string dropped(int index, ErrorCode code, const std::string& function = "mfr_writeMessage") {
    return warningLine(
        function, "Replica " + std::to_string(index) + " closed due to file write error: " + getErrorMessage(code));
}

class WriteReplicas : public MessageTableTest {
  protected:
    // A table of `count` messages with two replicas.
    void store(std::int32_t count) {
        open(OpenMode::create);
        addReplica(table.get(), path(1));
        addReplica(table.get(), path(2));
        ASSERT_EQ(writeSimple(1, count), NO_ERROR);
        before = fileBytes();
        log.clear();
        platform.clear();
    }
    using MessageTableTest::path;
    std::string path(int index) const { return index == 0 ? path() : path() + "." + std::to_string(index); }
    Bytes bytes(int index) const { return readFile(path(index)); }
    void expectSame(int index, const Bytes& expected) {
        EXPECT_EQ(toHex(bytes(index)), toHex(expected)) << "file " << index;
    }
    // What the master of an unharmed table holds after this many messages.
    Bytes unharmed(std::int32_t count) {
        const TemporaryDirectory other;
        const MessageTablePtr plain = openTable(other.root(), OpenMode::create, shape);
        EXPECT_EQ(writeSimpleMessages(plain.get(), 1, count, shape), NO_ERROR);
        return readFile(other.file(shape.name));
    }
    // Puts a file that refuses every write, with READ_ONLY_ERROR, in the place of an open one.
    void makeReadOnly(std::size_t index) {
        TableFile*& file = table->storage->files[index];
        ASSERT_EQ(tableFileClose(file), NO_ERROR);
        ASSERT_EQ(tableFileOpen(&file, path(static_cast<int>(index)).c_str(), OpenMode::read, nullptr), NO_ERROR);
        platform.clear();
    }
    void TearDown() override { table.reset(); }

    FaultPlatform platform;
    LogCapture log;
    Bytes before;
};

TEST_F(WriteReplicas, AllGetTheSameBytesMasterFirst) {
    store(0);
    std::vector<int> descriptors;
    for (const TableFile* file : table->storage->files) {
        descriptors.push_back(file->stream.descriptor);
    }
    ASSERT_EQ(writeSimple(1, 1), NO_ERROR);
    std::vector<int> order;
    for (const RecordedCall& call : platform.calls(FileCall::writeAt)) {
        order.push_back(call.descriptor);
    }
    EXPECT_EQ(order, descriptors);
    ASSERT_EQ(writeSimple(2, 7), NO_ERROR);
    EXPECT_TRUE(log.all().empty()) << log.all().front();
    for (const int index : {0, 1, 2}) {
        expectSame(index, unharmed(7));
    }
}

TEST_F(WriteReplicas, AFailedReplicaIsDroppedAndNamedAndTheOthersGetTheMessage) {
    store(1);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    EXPECT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(1, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->storage->activeCount, 2);
    EXPECT_EQ(table->storage->files[1], nullptr);
    EXPECT_EQ(table->records.dataInfo.messageCount, 2);
    ASSERT_EQ(writeSimple(3, 4), NO_ERROR);
    expectSame(0, unharmed(4));
    expectSame(1, before);
    expectSame(2, unharmed(4));
}

TEST_F(WriteReplicas, TheWarningNamesTheFilesNumberAlsoWhenAnEarlierOneIsGone) {
    store(0);
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    ASSERT_EQ(write(simpleMessage(1)), NO_ERROR);
    platform.clear();
    log.clear();
    platform.failNth(FileCall::writeAt, 2, ENOSPC);
    ASSERT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(2, FILE_FLUSH_ERROR)});
}

TEST_F(WriteReplicas, AFailedMasterIsDroppedAndTheReplicasGoOn) {
    store(1);
    platform.failNth(FileCall::writeAt, 1, EIO);
    EXPECT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(0, FILE_FLUSH_ERROR)});
    ASSERT_EQ(writeSimple(3, 4), NO_ERROR);
    EXPECT_EQ(table->records.dataInfo.messageCount, 4);
    expectSame(0, before);
    expectSame(1, unharmed(4));
    expectSame(2, unharmed(4));
}

TEST_F(WriteReplicas, TwoFailedOnesInOneWriteAreBothDropped) {
    store(1);
    platform.failNth(FileCall::writeAt, 1, EIO);
    platform.failNth(FileCall::writeAt, 2, EIO);
    EXPECT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{dropped(0, FILE_FLUSH_ERROR), dropped(1, FILE_FLUSH_ERROR)}));
    EXPECT_EQ(table->storage->activeCount, 1);
    expectSame(2, unharmed(2));
}

TEST_F(WriteReplicas, AFailureBehindASuccessDoesNotMakeTheWriteFail) {
    store(1);
    platform.failNth(FileCall::writeAt, 3, EIO);
    EXPECT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(2, FILE_FLUSH_ERROR)});
}

TEST_F(WriteReplicas, WhenAllFailTheLastOnesCodeIsTheResultAndNothingIsCounted) {
    store(1);
    makeReadOnly(2);
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(write(simpleMessage(2)), READ_ONLY_ERROR);
    EXPECT_EQ(log.warnings(),
              (Lines{dropped(0, FILE_FLUSH_ERROR), dropped(1, FILE_FLUSH_ERROR), dropped(2, READ_ONLY_ERROR)}));
    EXPECT_EQ(table->storage->activeCount, 0);
    EXPECT_EQ(table->records.dataInfo.messageCount, 1);
    EXPECT_EQ(table->writer->summary.messageCount, 1);
    for (const int index : {0, 1, 2}) {
        expectSame(index, before);
    }
}

TEST_F(WriteReplicas, WhenAllFailAnEarlierCodeIsNotTheResult) {
    store(1);
    makeReadOnly(0);
    platform.failAll(FileCall::writeAt, ENOSPC);
    EXPECT_EQ(write(simpleMessage(2)), FILE_FLUSH_ERROR);
    EXPECT_EQ(log.warnings().at(0), dropped(0, READ_ONLY_ERROR));
}

TEST_F(WriteReplicas, AReplicaThatFailsBehindPartOfAMessageIsCutBack) {
    store(1);
    platform.limitTransfer(50);  // a simple message takes two calls
    platform.failNth(FileCall::writeAt, 4, ENOSPC);
    EXPECT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(1, FILE_FLUSH_ERROR)});
    expectSame(0, unharmed(2));
    expectSame(1, before);
    expectSame(2, unharmed(2));
}

TEST_F(WriteReplicas, AReplicaWhoseLengthWordFailsLosesMessageAndFooterAndTheOthersCloseTheirBlock) {
    store(2);
    platform.failNth(FileCall::writeAt, 4, EIO);
    EXPECT_EQ(write(simpleMessage(3)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(1, FILE_FLUSH_ERROR)});
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, fileBytes().size());
    expectSame(0, unharmed(3));
    expectSame(1, before);
    expectSame(2, unharmed(3));
}

TEST_F(WriteReplicas, ABlockIsClosedAlsoWhenOnlyALaterFileTookIt) {
    store(2);
    platform.failNth(FileCall::writeAt, 2, EIO);  // the master's length word
    platform.failNth(FileCall::writeAt, 5, EIO);  // the first replica took message and length; the second's message
    EXPECT_EQ(write(simpleMessage(3)), NO_ERROR);
    EXPECT_EQ(log.warnings(), (Lines{dropped(0, FILE_FLUSH_ERROR), dropped(2, FILE_FLUSH_ERROR)}));
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, bytes(1).size());
    EXPECT_EQ(table->records.dataInfo.dataEnd, bytes(1).size());
    expectSame(0, before);
    expectSame(1, unharmed(3));
    expectSame(2, before);
}

TEST_F(WriteReplicas, AFailedTailSaveDropsThatFileOnlyAndCutsNothing) {
    store(2);
    platform.failNth(FileCall::writeAt, 8, EIO);  // 3 messages, 3 length words, the master's tail: the first replica's
    EXPECT_EQ(write(simpleMessage(3)), NO_ERROR);
    EXPECT_EQ(log.warnings(), Lines{dropped(1, FILE_FLUSH_ERROR, "tv_saveData")});
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
    EXPECT_EQ(table->storage->activeCount, 2);
    expectSame(0, unharmed(3));
    EXPECT_EQ(bytes(1).size(), unharmed(3).size());
    expectSame(2, unharmed(3));
}

TEST_F(WriteReplicas, ADroppedFileIsUnlockedAndClosed) {
    store(1);
    platform.failNth(FileCall::writeAt, 2, EIO);
    ASSERT_EQ(write(simpleMessage(2)), NO_ERROR);
    EXPECT_EQ(platform.count(FileCall::unlock), 1);
    EXPECT_EQ(platform.count(FileCall::close), 1);
    TableFile* file = nullptr;
    EXPECT_EQ(tableFileOpen(&file, path(1).c_str(), OpenMode::write, nullptr), NO_ERROR);
    EXPECT_EQ(tableFileClose(file), NO_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
