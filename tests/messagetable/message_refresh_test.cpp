// How a table opened read-only follows its file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "messagetable/message_lookup.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

std::int32_t lastUniform(const MessageTablePtr& table) {
    std::int32_t id = -77;
    EXPECT_EQ(mt_getLastUniformMessageId(table.get(), &id), NO_ERROR);
    return id;
}

class Refresh : public TableImageTest {
  protected:
    Bytes closed(std::int32_t last) const { return closedImage(shape, simpleMessages(1, last, shape)); }
    Bytes unclosed(std::int32_t last) const { return unclosedImage(shape, simpleMessages(1, last, shape)); }
    TableMap map(std::int32_t last) const { return mapOf(shape, simpleMessages(1, last, shape)); }
    MessageTablePtr openReader() const { return openTable(directory.root(), OpenMode::read, shape); }
};

TEST_F(Refresh, AReaderSeesWhatWasWrittenBehindTheLastSaveOfTheTail) {
    for (std::int32_t last = 0; last <= 13; ++last) {
        place(unclosed(last));
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(lastUniform(reader), last);
        EXPECT_EQ(reader->records.staticIndexes.seqNums[LAST_GOOD], (SeqNumIndex{last, std::int64_t{1000} * last}));
    }
}

TEST_F(Refresh, AReaderFollowsAWriterMessageByMessage) {
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    for (std::int32_t n = 1; n <= 30; ++n) {
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        ASSERT_EQ(lastUniform(reader), n) << "message " << n << " was acknowledged";
        ASSERT_EQ(reader->records.staticIndexes, table->records.staticIndexes);
        ASSERT_EQ(mt_openBlockStart(reader.get()), mt_openBlockStart(table.get()));
    }
}

TEST_F(Refresh, AReaderThatWasNotAskedForLongCatchesUp) {
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 0);
    ASSERT_EQ(writeSimple(1, 23), NO_ERROR);
    EXPECT_EQ(lastUniform(reader), 23);
    EXPECT_EQ(mt_openBlockStart(reader.get()), mt_openBlockStart(table.get()));
}

TEST_F(Refresh, AReaderFollowsAWriterThatDropsTheTable) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 10), NO_ERROR);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 10);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(lastUniform(reader), 0);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    EXPECT_EQ(lastUniform(reader), 2);
}

TEST_F(Refresh, AnUnchangedFileIsReadOnceAndThenOnlyItsTail) {
    place(unclosed(10));
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 10);
    for (int i = 0; i < 3; ++i) {
        FaultPlatform platform;
        EXPECT_EQ(lastUniform(reader), 10);
        ASSERT_EQ(platform.count(FileCall::readAt), 1);
        EXPECT_EQ(platform.calls(FileCall::readAt)[0].offset, static_cast<std::int64_t>(map(10).tail()));
        EXPECT_EQ(platform.calls(FileCall::readAt)[0].length, 88);
    }
}

TEST_F(Refresh, AMessageThatWasAppendedIsReadAndNotTheOpenBlockAgain) {
    shape.messagesPerBlock = 1000;
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 900), NO_ERROR);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 900);
    const std::int64_t before = tableFileCachedSize(tableStorage_master(table->storage.get()));
    ASSERT_EQ(writeSimple(901, 902), NO_ERROR);
    FaultPlatform platform;
    EXPECT_EQ(lastUniform(reader), 902);
    const std::vector<RecordedCall> reads = platform.calls(FileCall::readAt);
    ASSERT_EQ(reads.size(), 2U) << "the tail, and what is new";
    EXPECT_EQ(reads[1].offset, before - static_cast<std::int64_t>(frameOf(simpleMessage(900, shape)).size()))
        << "the message before is looked at, so that another table in its place is noticed";
}

TEST_F(Refresh, ATableThatWasDroppedAndFilledBeyondTheReadersPlaceIsReadAnew) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 2);
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    ASSERT_EQ(writeSimple(4, 6), NO_ERROR);
    EXPECT_EQ(lastUniform(reader), 6);
    EXPECT_EQ(reader->records.staticIndexes, table->records.staticIndexes) << "nothing of the dropped messages is left";
}

TEST_F(Refresh, TheFirstRefreshReadsAlsoAFileWhoseTailIsUpToDate) {
    place(closed(10));
    const MessageTablePtr reader = openReader();
    FaultPlatform platform;
    EXPECT_EQ(lastUniform(reader), 10);
    EXPECT_GE(platform.count(FileCall::readAt), 3) << "the tail, the last footer, the open block";
}

TEST_F(Refresh, AnotherLastBlockEndIsReasonToReadAgain) {
    Bytes bytes = closed(8);
    putU64(&bytes, map(8).storedLastBlockEnd(), map(8).blockStarts[1]);
    place(bytes);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 8);
    place(closed(8));  // the same size, the tail of a writer that came to save it
    FaultPlatform platform;
    EXPECT_EQ(lastUniform(reader), 8);
    EXPECT_GE(platform.count(FileCall::readAt), 2);
}

TEST_F(Refresh, AReaderGoesOnBehindABlockThatTheTailTakesForOpen) {
    for (const std::size_t block : {std::size_t{0}, std::size_t{1}}) {
        Bytes bytes = closed(10);
        putU64(&bytes, map(10).storedLastBlockEnd(), map(10).blockStarts[block]);
        place(bytes);
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(lastUniform(reader), 10);
        EXPECT_EQ(mt_openBlockStart(reader.get()), static_cast<std::int64_t>(map(10).openBlockStart));
    }
}

TEST_F(Refresh, ALastBlockEndOfZeroIsTheHeadersEnd) {
    for (const std::uint64_t stored : {0U, 1U, 139U}) {
        Bytes bytes = closed(3);
        putU64(&bytes, map(3).storedLastBlockEnd(), stored);
        place(bytes);
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(lastUniform(reader), 3) << "lastBlockEnd " << stored;
        EXPECT_EQ(reader->records.blockInfo.lastBlockEnd, 140U) << "lastBlockEnd " << stored;
    }
}

TEST_F(Refresh, AnImplausibleTailIsReadTwiceAndThenReplacedByTheLengthWords) {
    struct Damage {
        std::size_t offset;
        std::uint64_t value;
    };
    const TableMap places = map(10);
    const std::vector<Damage> damages = {
        {places.storedLastBlockEnd(), places.dataEnd + 1}, {places.storedLastBlockEnd(), std::uint64_t{1} << 63},
        {places.storedLastBlockEnd(), ~std::uint64_t{0}},  {places.storedDataEnd(), places.dataEnd + 1},
        {places.storedDataEnd(), ~std::uint64_t{0}},       {places.storedMessageCount() - 4, 0xffffffff00000000}};
    for (const Damage& damage : damages) {
        Bytes bytes = closed(10);
        place(bytes);
        const MessageTablePtr reader = openReader();
        ASSERT_NE(reader, nullptr);
        putU64(&bytes, damage.offset, damage.value);
        place(bytes);
        FaultPlatform platform;
        EXPECT_EQ(lastUniform(reader), 10) << damage.value << " at " << damage.offset;
        EXPECT_EQ(mt_openBlockStart(reader.get()), static_cast<std::int64_t>(places.openBlockStart));
        int tailReads = 0;
        for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
            tailReads += call.offset == static_cast<std::int64_t>(places.tail()) ? 1 : 0;
        }
        EXPECT_EQ(tailReads, 2) << damage.value << " at " << damage.offset;
    }
}

TEST_F(Refresh, ATailThatDoesNotFitTheFileIsReplacedByTheLengthWords) {
    const TableMap places = map(10);
    for (const std::uint64_t wrong : {places.frame(1).end, places.frame(6).start, places.openBlockStart - 1,
                                      places.openBlockStart + 1, places.openBlockStart + 8, places.dataEnd}) {
        Bytes bytes = closed(10);
        putU64(&bytes, places.storedLastBlockEnd(), wrong);
        place(bytes);
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(lastUniform(reader), 10) << "lastBlockEnd " << wrong;
        EXPECT_EQ(mt_openBlockStart(reader.get()), static_cast<std::int64_t>(places.openBlockStart));
        EXPECT_EQ(reader->records.staticIndexes.connMsgIds[APP_TO], 10);
    }
}

TEST_F(Refresh, ABlockEndInsideATextIsNotFollowedThoughTheTextNamesABlock) {
    std::vector<Message> messages = simpleMessages(1, 10, shape);
    messages[8].strings[2] = std::string(20'000, '.');
    const TableMap places = mapOf(shape, messages);
    Bytes bytes = closedImage(shape, messages);
    const std::size_t end = places.frame(9).start + 10'000;
    putU64(&bytes, end - 8, end - places.blockStarts[1]);
    putU64(&bytes, places.storedLastBlockEnd(), end);
    place(bytes);
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 10);
    EXPECT_EQ(mt_openBlockStart(reader.get()), static_cast<std::int64_t>(places.openBlockStart));
}

TEST_F(Refresh, ATornTailIsNoneOfTheReadersBusiness) {
    const TableMap places = map(7);
    const Bytes whole = unclosed(7);
    for (std::size_t size = places.frame(6).end; size < places.dataEnd; ++size) {
        place(cutAt(whole, size));
        const MessageTablePtr reader = openReader();
        ASSERT_EQ(lastUniform(reader), 6) << "cut to " << size;
        appendFile(path(), slice(whole, size, places.dataEnd));
        ASSERT_EQ(lastUniform(reader), 7) << "after the rest of the frame came";
    }
}

TEST_F(Refresh, AMessageThatTakesThePlaceOfATornTailIsSeen) {
    const TableMap places = map(7);
    const std::size_t size = places.frame(6).end + frameOf(bareMessage(77, shape)).size();
    ASSERT_LT(size, places.dataEnd) << "the test itself";
    for (const std::int32_t last : {6, 4}) {  // the open block has messages, or none yet
        const std::size_t end = last == 6 ? places.frame(6).end : places.openBlockStart;
        place(cutAt(unclosed(7), end));
        const Bytes next = concatenated(Bytes(last == 4 ? 8 : 0, 0), frameOf(bareMessage(77, shape)));
        const MessageTablePtr reader = openReader();
        ASSERT_EQ(lastUniform(reader), last);
        appendFile(path(), Bytes(next.size(), 0));
        ASSERT_EQ(lastUniform(reader), last) << "a torn tail";
        patchFile(path(), end, next);
        EXPECT_EQ(lastUniform(reader), 77) << "a message of the torn tail's size, behind message " << last;
    }
}

TEST_F(Refresh, ABlockThatIsBeingClosedIsReadAtEveryByte) {
    const TableMap places = map(8);
    const Bytes whole = unclosed(8);
    Bytes growing = cutAt(whole, places.frame(7).end);
    putU64(&growing, places.blockStarts[1], 0);
    // The tail is that of the first block's close until the second one is closed.
    const Bytes earlier = unclosed(7);
    std::copy_n(earlier.begin(), 140, growing.begin());
    place(growing);
    const MessageTablePtr reader = openReader();
    ASSERT_EQ(lastUniform(reader), 7);
    for (std::size_t size = places.frame(7).end; size < places.dataEnd; ++size) {
        appendFile(path(), slice(whole, size, size + 1));
        ASSERT_EQ(lastUniform(reader), size + 1 >= places.frame(8).end ? 8 : 7) << size + 1 << " bytes";
    }
    patchFile(path(), places.blockStarts[1], slice(whole, places.blockStarts[1], places.blockStarts[1] + 8));
    EXPECT_EQ(lastUniform(reader), 8) << "the length word is patched";
    place(whole);
    EXPECT_EQ(lastUniform(reader), 8) << "the tail is saved";
    EXPECT_EQ(mt_openBlockStart(reader.get()), static_cast<std::int64_t>(places.dataEnd));
}

// A writer that cannot save its tail goes on.
TEST_F(Refresh, AReaderOfAFullBlockGoesOnBehindItThoughTheTailKnowsItAsOpen) {
    const TableMap places = map(10);
    const Bytes whole = unclosed(10);
    Bytes growing = cutAt(whole, places.frame(8).end);
    putU64(&growing, places.blockStarts[1], 0);
    std::copy_n(unclosed(7).begin(), places.headerSize, growing.begin());
    place(growing);
    const MessageTablePtr reader = openReader();
    ASSERT_EQ(lastUniform(reader), 8);
    appendFile(path(), slice(whole, places.frame(8).end, whole.size()));
    patchFile(path(), places.blockStarts[1], slice(whole, places.blockStarts[1], places.blockStarts[1] + 8));
    EXPECT_EQ(lastUniform(reader), 10);
}

TEST_F(Refresh, AFileThatWasExtendedWithZerosAheadOfItsDataIsReadUpToThem) {
    place(concatenated(unclosed(6), Bytes(500, 0)));
    const MessageTablePtr reader = openReader();
    EXPECT_EQ(lastUniform(reader), 6);
}

TEST_F(Refresh, ARefusedReadIsReturnedAndTheNextLookupTriesAgain) {
    place(unclosed(10));
    MessageTablePtr reader = openReader();
    int reads = 0;
    {
        FaultPlatform platform;
        EXPECT_EQ(lastUniform(reader), 10);
        reads = platform.count(FileCall::readAt);
    }
    for (int n = 1; n <= reads; ++n) {
        reader = openReader();
        std::int32_t id = 55;
        {
            FaultPlatform platform;
            platform.failNth(FileCall::readAt, n, EIO);
            EXPECT_EQ(mt_getLastUniformMessageId(reader.get(), &id), FILE_READ_ERROR) << "read " << n;
            EXPECT_EQ(id, 55);
        }
        EXPECT_EQ(lastUniform(reader), 10) << "after read " << n << " had failed";
    }
}

TEST_F(Refresh, AReaderBesideAWriterDoesNotMoveTheWritersPlace) {
    open(OpenMode::create);
    const MessageTablePtr reader = openReader();
    for (std::int32_t n = 1; n <= 13; ++n) {
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        EXPECT_EQ(lastUniform(reader), n);
        EXPECT_EQ(lastUniform(table), n);
        EXPECT_EQ(readAll(table.get()).messages.size(), static_cast<std::size_t>(n));
    }
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(difference(fileBytes(), closed(13)), "");
}

}  // namespace
}  // namespace tabulo::internal::test
