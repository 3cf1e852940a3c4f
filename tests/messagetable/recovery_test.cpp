#include <gtest/gtest.h>

#include <algorithm>

#include "messagetable/message_lookup.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class Recovery : public TableImageTest {
  protected:
    // Places a damaged file, recovers it and compares it with the file of a table closed with the messages 1 to `last`.
    void expectRecoveredTo(const Bytes& damaged, std::int32_t last) {
        place(damaged);
        log.clear();
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(recoveries(), 1U) << "the file was not taken for a damaged one";
        EXPECT_EQ(difference(fileBytes(), closedImage(shape, simpleMessages(1, last, shape))), "");
    }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    Bytes unclosed(std::int32_t last) const { return unclosedImage(shape, simpleMessages(1, last, shape)); }
    Bytes footerless(std::int32_t last) const { return footerlessImage(shape, simpleMessages(1, last, shape)); }
};

TEST_F(Recovery, AFileThatWasClosedIsNotRecovered) {
    for (const std::int32_t last : {0, 3, 4, 6}) {
        place(closed(last));
        ASSERT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(log.warnings(), std::vector<std::string>{}) << last << " messages";
        EXPECT_EQ(difference(fileBytes(), closed(last)), "") << last << " messages";
    }
}

TEST_F(Recovery, AFileThatWasClosedIsNotRecoveredBehindALossOfPowerEither) {
    FilePlatform startedSince = filePlatform();
    startedSince.writtenBeforeStart = [](int) { return true; };
    const FilePlatform* before = filePlatform_install(&startedSince);
    for (const std::int32_t last : {0, 3, 4, 6, 9}) {
        place(closed(last));
        EXPECT_EQ(recover(), NO_ERROR);
        EXPECT_EQ(log.warnings(), std::vector<std::string>{}) << last << " messages";
        EXPECT_EQ(difference(fileBytes(), closed(last)), "") << last << " messages";
    }
    filePlatform_install(before);
}

TEST_F(Recovery, BehindALossOfPowerTheClosedBlocksHaveToEndWhereTheHeaderSays) {
    // The first block's length leads over the second one, to a footer that the open block's message quotes.
    const TableMap places = map(9);
    const Bytes sound = closed(9);
    const std::size_t footer = places.frame(4).end;
    Bytes quoted(sound.begin() + static_cast<std::ptrdiff_t>(footer),
                 sound.begin() + static_cast<std::ptrdiff_t>(places.blockStarts[1]));
    std::vector<Message> messages = simpleMessages(1, 9, shape);
    messages[8].strings[0] = std::string(quoted.size(), 'q');
    Bytes bytes = closedImage(shape, messages);
    const Bytes wanted(quoted.size(), 'q');
    const auto begin = std::search(bytes.begin(), bytes.end(), wanted.begin(), wanted.end());
    ASSERT_NE(begin, bytes.end());
    const std::size_t start = places.blockStarts[0];
    const auto end = static_cast<std::size_t>(begin - bytes.begin()) + quoted.size();
    putU64(&quoted, quoted.size() - 8, end - start);
    std::copy(quoted.begin(), quoted.end(), begin);
    putU64(&bytes, start, end - start);

    FilePlatform startedSince = filePlatform();
    startedSince.writtenBeforeStart = [](int) { return true; };
    const FilePlatform* before = filePlatform_install(&startedSince);
    place(bytes);
    (void)recover();
    EXPECT_FALSE(log.warnings().empty()) << "the header is not to be trusted";
    filePlatform_install(before);
}

TEST_F(Recovery, AFullBlockWithoutItsFooterIsClosedAlsoWhenTheHeaderCountsItsMessages) {
    for (const std::int32_t last : {4, 8}) {
        Bytes bytes = footerless(last);
        putU64(&bytes, map(last).storedDataEnd(), bytes.size());
        putU32(&bytes, map(last).storedMessageCount(), static_cast<std::uint32_t>(last));
        expectRecoveredTo(bytes, last);
    }
}

TEST_F(Recovery, AFileThatWasNotClosedGetsTheTailOfAClosedOneAndLosesNothing) {
    for (const std::int32_t last : {1, 3, 5, 7, 11}) {
        expectRecoveredTo(unclosed(last), last);
    }
    EXPECT_TRUE(others().empty()) << "nothing was damaged, so nothing is to be saved";
}

TEST_F(Recovery, TheWarningNamesTheTableAndItsOldAndNewSize) {
    const Bytes damaged = cutAt(unclosed(3), map(3).dataEnd - 10);
    place(damaged);
    ASSERT_EQ(recover(), NO_ERROR);
    const std::vector<std::string> expected = {warningLine(
        "tsX_openReplica", "Table " + path() + " was recovered, old size: " + std::to_string(damaged.size()) +
                               ", new size: " + std::to_string(map(2).dataEnd))};
    EXPECT_EQ(log.warnings(), expected);
}

TEST_F(Recovery, AHeaderThatWouldBeLargerThanHeadersMayBeIsNotBuiltAnew) {
    const Bytes cut = cutAt(closed(3), 30);
    for (const std::size_t length : {500U, 1000U}) {
        shape.stringNames.assign(12, std::string(length, 'n'));
        place(cut);
        EXPECT_EQ(recover(), length == 500U ? NO_ERROR : WRONG_PARAMETER_ERROR) << length << " bytes a name";
        EXPECT_EQ(fileBytes() == cut, length == 1000U) << length << " bytes a name";
    }
}

TEST_F(Recovery, AFileCutInTheMiddleOfAFrameEndsBehindItsLastCompleteFrame) {
    const TableMap places = map(7);
    place(cutAt(closed(7), places.frame(7).start + 20));
    open(OpenMode::write);
    EXPECT_EQ(fileBytes().size(), places.frame(6).end);
    EXPECT_EQ(table->records.dataInfo.messageCount, 6) << "only complete frames count";
    EXPECT_EQ(table->records.dataInfo.dataEnd, places.frame(6).end);
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, places.openBlockStart);
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 6, shape));
}

TEST_F(Recovery, TheThousandthFrameWithoutItsFooterGetsFooterAndBlockLengthAndTheNextWriteStartsABlock) {
    shape = defaultShape();
    const TableMap places = map(1001);
    place(footerless(1000));
    open(OpenMode::write);
    ASSERT_NE(table, nullptr);
    const Bytes recovered = fileBytes();
    EXPECT_EQ(difference(recovered, closed(1000)), "");
    EXPECT_EQ(u64At(recovered, 140), recovered.size() - 140) << "the block's length word";
    EXPECT_EQ(u64At(recovered, recovered.size() - 8), recovered.size() - 140) << "the footer's last field";
    ASSERT_EQ(writeSimple(1001, 1001), NO_ERROR);
    const Bytes after = fileBytes();
    EXPECT_EQ(u64At(after, places.blockStarts[1]), 0U) << "the length word of the new block";
    EXPECT_EQ(after.size(), places.blockStarts[1] + 8 + frameOf(simpleMessage(1001)).size());
}

TEST_F(Recovery, AClosedLastBlockWithNothingBehindItIsWhereTheFileAndItsDataEnd) {
    Bytes damaged = closed(8);
    putU64(&damaged, map(8).storedDataEnd(), 1);
    place(damaged);
    open(OpenMode::write);
    EXPECT_EQ(table->records.blockInfo.lastBlockEnd, damaged.size());
    EXPECT_EQ(table->records.dataInfo.dataEnd, damaged.size());
    EXPECT_EQ(table->records.dataInfo.messageCount, 8);
    EXPECT_EQ(difference(fileBytes(), closed(8)), "");
}

TEST_F(Recovery, AStrayZeroWordBehindTheLastClosedBlockIsRemoved) {
    expectRecoveredTo(concatenated(closed(8), Bytes(8, 0)), 8);
    expectRecoveredTo(concatenated(closed(0), Bytes(8, 0)), 0);
    EXPECT_TRUE(others().empty()) << "zero bytes are not worth saving";
}

TEST_F(Recovery, AStrayZeroWordGoesAlsoWhenTheHeaderCountsItAsData) {
    Bytes damaged = concatenated(closed(8), Bytes(8, 0));
    putU64(&damaged, map(8).storedDataEnd(), damaged.size());
    expectRecoveredTo(damaged, 8);
}

TEST_F(Recovery, ABlockWhoseFooterIsThereButWhoseLengthWordWasNotPatchedIsClosed) {
    for (const std::int32_t last : {4, 8}) {
        Bytes damaged =
            concatenated(footerless(last), slice(closed(last), map(last).frames.back().end, map(last).dataEnd));
        expectRecoveredTo(damaged, last);
    }
    EXPECT_TRUE(others().empty());
}

TEST_F(Recovery, SeveralBlocksWithoutLengthWordsAreClosedOneAfterAnother) {
    Bytes damaged = closed(14);
    for (const std::size_t start : map(14).blockStarts) {
        putU64(&damaged, start, 0);
    }
    putU64(&damaged, map(14).storedDataEnd(), 0);
    expectRecoveredTo(damaged, 14);
    EXPECT_TRUE(others().empty()) << "length words of 0 are what a crash leaves";
}

TEST_F(Recovery, StoredRecordsAreNotTrusted) {
    const std::vector<Message> messages = simpleMessages(1, 6, shape);
    const Bytes damagedTail = pattern(88, 7);
    Bytes damaged = closed(6);
    std::copy(damagedTail.begin(), damagedTail.end(), damaged.begin() + static_cast<std::ptrdiff_t>(map(6).tail()));
    place(damaged);
    open(OpenMode::write);
    ASSERT_NE(table, nullptr);
    const Bytes recovered = fileBytes();
    EXPECT_EQ(difference(slice(recovered, map(6).tail() + 8, recovered.size()),
                         slice(closed(6), map(6).tail() + 8, recovered.size())),
              "");
    EXPECT_EQ(table->records.staticIndexes.lastUniform, 6);
    EXPECT_EQ(table->records.staticIndexes.seqNums[LAST_GOOD].seqNum, 6);
    EXPECT_EQ(table->records.staticIndexes.connMsgIds[APP_TO], 6);
    EXPECT_EQ(table->records.staticIndexes.connMsgIds[RESENT], -1);
}

TEST_F(Recovery, ALastBlockEndThatIsNoBlocksEndIsFoundAnew) {
    const TableMap places = map(10);
    const std::vector<std::uint64_t> wrongEnds = {0,
                                                  1,
                                                  places.headerSize,
                                                  places.frame(2).start,
                                                  places.blockStarts[1],
                                                  places.openBlockStart + 8,
                                                  places.dataEnd,
                                                  places.dataEnd + 1,
                                                  0x7fffffffffffffff,
                                                  0xffffffffffffffff};
    for (const std::uint64_t wrong : wrongEnds) {
        SCOPED_TRACE("lastBlockEnd " + std::to_string(wrong));
        Bytes damaged = closed(10);
        putU64(&damaged, places.storedLastBlockEnd(), wrong);
        expectRecoveredTo(damaged, 10);
    }
    EXPECT_TRUE(others().empty());
}

TEST_F(Recovery, AnEarlierBlocksEndAsLastBlockEndIsMovedBehindTheClosedBlocks) {
    Bytes damaged = closed(8);
    putU64(&damaged, map(8).storedLastBlockEnd(), map(8).blockStarts[1]);
    expectRecoveredTo(damaged, 8);
}

TEST_F(Recovery, ALastBlockEndOfZeroInATableWithoutClosedBlocksIsTheHeadersEnd) {
    const TableMap places = map(3);
    for (const std::uint64_t stored : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{places.headerSize - 1}}) {
        Bytes bytes = closed(3);
        putU64(&bytes, places.storedLastBlockEnd(), stored);
        place(bytes);
        open(OpenMode::write);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(log.warnings(), std::vector<std::string>{}) << "lastBlockEnd " << stored << " needs no recovery";
        EXPECT_EQ(table->records.blockInfo.lastBlockEnd, places.headerSize);
        EXPECT_EQ(table->writer->summary.messageCount, 3) << "the open block was not loaded";
        ASSERT_EQ(closeTable(table), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closed(3)), "");
    }
}

TEST_F(Recovery, BytesBehindTheDataGoAlsoWhenTheHeaderCountsThem) {
    const Bytes zeros(20, 0);
    Bytes damaged = concatenated(closed(6), zeros);
    putU64(&damaged, map(6).storedDataEnd(), damaged.size());
    expectRecoveredTo(damaged, 6);
}

TEST_F(Recovery, AFileThatIsLongerThanItsHeaderSaysIsFollowedToItsEnd) {
    // The header was saved with two messages; a third one was appended by a writer that was killed.
    const Bytes damaged = concatenated(closed(2), frameOf(simpleMessage(3, shape)));
    expectRecoveredTo(damaged, 3);
}

TEST_F(Recovery, WritingGoesOnInTheRecoveredBlockAsIfNothingHadHappened) {
    for (const std::int32_t last : {0, 2, 3, 4, 7, 8}) {
        SCOPED_TRACE(std::to_string(last) + " messages before the crash");
        place(concatenated(unclosed(last), Bytes(5, 0)));
        open(OpenMode::write);
        ASSERT_NE(table, nullptr);
        ASSERT_EQ(writeSimple(last + 1, 13), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        EXPECT_EQ(difference(fileBytes(), closed(13)), "");
    }
}

TEST_F(Recovery, ABlockOfOneMessageIsClosedByEveryMessage) {
    shape.messagesPerBlock = 1;
    expectRecoveredTo(footerless(1), 1);
    expectRecoveredTo(footerless(3), 3);
    expectRecoveredTo(concatenated(unclosed(3), Bytes(8, 0)), 3);
}

TEST_F(Recovery, AFrameLargerThanWhatIsReadAtOnceIsKept) {
    Message large = simpleMessage(2, shape);
    large.strings[3] = std::string(1'000'000, 'x');
    const std::vector<Message> messages = {simpleMessage(1, shape), large, simpleMessage(3, shape)};
    place(unclosedImage(shape, messages));
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(messagesIn(directory.root(), shape), messages);
}

TEST_F(Recovery, AFrameLargerThanWhatIsReadAtOnceAndCutIsDropped) {
    Message large = simpleMessage(2, shape);
    large.strings[3] = std::string(1'000'000, 'x');
    const std::vector<Message> messages = {simpleMessage(1, shape), large};
    const TableMap places = mapOf(shape, messages);
    for (const std::size_t missing : {std::size_t{1}, std::size_t{4}, std::size_t{500'000}, std::size_t{999'990}}) {
        SCOPED_TRACE(std::to_string(missing) + " bytes missing");
        expectRecoveredTo(cutAt(unclosedImage(shape, messages), places.dataEnd - missing), 1);
    }
    EXPECT_TRUE(others().empty());
}

TEST_F(Recovery, FramesOfClosedBlocksAreNeitherReadNorChecked) {
    const TableMap places = map(10);
    Bytes damaged = unclosed(10);
    putU32(&damaged, places.frame(2).end - 4, 0xdeadbeef);  // inside the first block
    place(damaged);
    FaultPlatform platform;
    ASSERT_EQ(recover(), NO_ERROR);
    EXPECT_EQ(fileBytes().size(), places.dataEnd) << "a damaged frame of a closed block costs only itself";
    for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
        for (std::size_t block = 0; block < 2; ++block) {
            // The header is looked at as the file's first 8096 bytes, whatever stands there.
            const auto framesStart = static_cast<std::int64_t>(places.blockStarts[block] + 8);
            const auto framesEnd = static_cast<std::int64_t>(places.frame(4 * block + 4).end);
            const bool touches = call.offset < framesEnd && call.offset + call.length > framesStart;
            EXPECT_FALSE(touches && call.offset != 0)
                << call.length << " bytes at " << call.offset << " are frames of closed block " << block + 1;
        }
    }
}

TEST_F(Recovery, ATableOpenedReadOnlyIsNotRecovered) {
    const Bytes damaged = cutAt(unclosed(7), map(7).dataEnd - 3);
    place(damaged);
    open(OpenMode::read);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{});
    EXPECT_EQ(table->writer->summary.messageCount, 0) << "a reader's open block is read by the first lookup";
    std::int32_t last = 0;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &last), NO_ERROR);
    EXPECT_EQ(last, 6);
    table.reset();
    EXPECT_EQ(difference(fileBytes(), damaged), "");
}

TEST_F(Recovery, AnotherTypeVersionOrLayoutIsRefusedAndNotTouched) {
    struct Refusal {
        std::size_t offset;
        std::uint32_t value;
        ErrorCode code;
    };
    const std::vector<Refusal> refusals = {{0, 0x12345678, SIGNATURE_ERROR},   {13, 900, VERSION_ERROR},
                                           {15, 141, HEADER_CORRUPTED_ERROR},  {19, 12, TABLE_TYPE_ERROR},
                                           {23, 0x12345678, TABLE_TYPE_ERROR}, {36, 5, CONFIG_MISMATCH_ERROR},
                                           {40, 1, HEADER_CORRUPTED_ERROR},    {44, 1, CONFIG_MISMATCH_ERROR}};
    for (const Refusal& refusal : refusals) {
        Bytes damaged = unclosed(6);
        putU32(&damaged, refusal.offset, refusal.value);
        place(damaged);
        EXPECT_EQ(recover(), refusal.code) << "the word at " << refusal.offset;
        EXPECT_EQ(difference(fileBytes(), damaged), "") << "the word at " << refusal.offset;
    }
    EXPECT_TRUE(others().empty());
}

TEST_F(Recovery, ANegativeMessageCountOfAFileThatWasClosedIsACorruptedHeader) {
    Bytes damaged = closed(6);
    putU32(&damaged, map(6).storedMessageCount(), 0xffffffff);
    place(damaged);
    EXPECT_EQ(recover(), HEADER_CORRUPTED_ERROR);
    EXPECT_EQ(difference(fileBytes(), damaged), "");
}

// The capture of the log would allocate, so this one goes without.
TEST(RecoveryWithoutMemory, EndsAndALaterRecoveryGivesTheSameTable) {
    log_setFacility(nullptr);
    TableShape shape;
    const std::vector<Message> messages = simpleMessages(1, 6, shape);
    const Bytes damaged = concatenated(footerlessImage(shape, messages), fromText("beyond the data"));
    const Bytes expected = closedImage(shape, messages);
    ErrorCode code = OUT_OF_MEMORY_ERROR;
    std::int64_t n = 0;
    while (code != NO_ERROR && n < 1000) {
        n += 1;
        const TemporaryDirectory directory;
        writeFile(directory.file(shape.name), damaged);
        MessageTablePtr table = createTable(directory.root(), shape);
        {
            const AllocationFailure failure(n);
            code = mt_open(table.get(), OpenMode::write);
        }
        table.reset();
        EXPECT_TRUE(code == NO_ERROR || code == OUT_OF_MEMORY_ERROR) << "allocation " << n << " gives " << code;
        table = openTable(directory.root(), OpenMode::write, shape);
        table.reset();
        EXPECT_EQ(difference(readFile(directory.file(shape.name)), expected), "") << "without allocation " << n;
    }
    EXPECT_GE(n, 5) << "recovery allocates: its streams, its frame writer, the copy of what it cuts";
}

}  // namespace
}  // namespace tabulo::internal::test
