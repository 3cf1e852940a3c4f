// A table cut, or left by a crash, at every byte: what is recovered is the longest whole prefix of its messages, as if
// the table had been closed there.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/messagetable/table_image.h"

namespace tabulo::test {
namespace {

constexpr std::int32_t MESSAGES = 11;  // two closed blocks of four and three messages of the open one
constexpr std::int32_t APPENDED = 5;   // closes a block wherever writing goes on

class CutEverywhere : public TableImageTest {
  protected:
    void SetUp() override {
        shape.summarisedStringFieldCount = 1;  // short footers: there are bytes enough
        messages = simpleMessages(1, MESSAGES + APPENDED, shape);
        places = mapOf(shape, simpleMessages(1, MESSAGES, shape));
        for (std::int32_t count = 0; count <= MESSAGES + APPENDED; ++count) {
            closed.push_back(closedImage(shape, simpleMessages(1, count, shape)));
        }
        unclosed = unclosedImage(shape, simpleMessages(1, MESSAGES, shape));
    }

    std::int32_t wholeMessages(std::size_t size) const {
        return static_cast<std::int32_t>(std::count_if(places.frames.begin(), places.frames.end(),
                                                       [size](const TableMap::Frame& f) { return f.end <= size; }));
    }
    const Bytes& closedWith(std::int32_t count) const { return closed.at(static_cast<std::size_t>(count)); }

    void expectRecovered(const Bytes& damaged, std::int32_t count) {
        place(damaged);
        open(TABLE_FILE_WRITE);
        ASSERT_NE(table, nullptr);
        const ReadMessages read = readAll(table.get());
        EXPECT_EQ(read.code, NO_ERROR);
        ASSERT_EQ(read.messages, std::vector<Message>(messages.begin(), messages.begin() + count));
        ASSERT_EQ(table->dataInfo.messageCount, count);
        ASSERT_EQ(difference(fileBytes(), closedWith(count)), "") << "right behind the recovery";
        ASSERT_EQ(writeSimple(count + 1, count + APPENDED), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        ASSERT_EQ(difference(fileBytes(), closedWith(count + APPENDED)), "") << "after writing went on";
        // A file that recovery has been over is recovered once more.
        Bytes again = closedWith(count);
        putU64(&again, places.storedDataEnd(), 0);
        place(again);
        ASSERT_EQ(recover(), NO_ERROR);
        ASSERT_EQ(difference(fileBytes(), closedWith(count)), "") << "after a second recovery";
    }
    void expectRecoveredFromCuts(const Bytes& whole, std::size_t first, std::size_t last) {
        for (std::size_t size = first; size <= last && !HasFatalFailure(); ++size) {
            SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
            expectRecovered(cutAt(whole, size), wholeMessages(size));
        }
    }

    std::vector<Message> messages;
    TableMap places;
    std::vector<Bytes> closed;  // files of tables closed with so many messages
    Bytes unclosed;
};

TEST_F(CutEverywhere, InTheOpenBlockOfAFileThatWasNotClosed) {
    expectRecoveredFromCuts(unclosed, places.openBlockStart, places.dataEnd);
    EXPECT_TRUE(others().empty()) << "a cut append is no damage: " << others().begin()->first;
}

TEST_F(CutEverywhere, InTheOpenBlockOfAFileThatWasClosed) {
    expectRecoveredFromCuts(closedWith(MESSAGES), places.openBlockStart, places.dataEnd - 1);
    EXPECT_TRUE(others().empty()) << "a cut append is no damage: " << others().begin()->first;
}

TEST_F(CutEverywhere, InTheFramesOfTheLastClosedBlock) {
    expectRecoveredFromCuts(unclosed, places.blockStarts[1], places.frame(8).end - 1);
    // Only the length word, which names a block that is not there any more, is replaced by another value.
    for (const auto& [name, bytes] : others()) {
        EXPECT_TRUE(name.starts_with(shape.name + ".cut-" + std::to_string(places.blockStarts[1]))) << name;
    }
}

TEST_F(CutEverywhere, InTheFooterOfTheLastClosedBlock) {
    expectRecoveredFromCuts(unclosed, places.frame(8).end, places.openBlockStart);
    EXPECT_TRUE(others().empty()) << "a cut footer is no damage: " << others().begin()->first;
}

TEST_F(CutEverywhere, InTheHeaderOfANewTable) {
    expectRecoveredFromCuts(closedWith(0), 20, places.headerSize);
}

TEST_F(CutEverywhere, InTheHeaderOfATableWithMessages) {
    expectRecoveredFromCuts(unclosed, 20, places.headerSize);
}

TEST_F(CutEverywhere, InTheGenericHeaderIsNotRecoverable) {
    for (std::size_t size = 1; size < 20; ++size) {
        const Bytes damaged = cutAt(unclosed, size);
        place(damaged);
        EXPECT_EQ(recover(), FILE_SIZE_ERROR) << "cut to " << size << " bytes";
        EXPECT_EQ(difference(fileBytes(), damaged), "") << "cut to " << size << " bytes";
    }
    place({});
    EXPECT_EQ(recover(), NO_ERROR) << "an empty file is a new one";
}

// The files that a killed writer leaves: the header's tail of the last close of a block, a length word of 0 in front of
// the open block, and any number of bytes of the last append.
class CrashEverywhere : public CutEverywhere {
  protected:
    // The file in front of message `number` and what is appended for it.
    Bytes before(std::int32_t number) const { return unclosedImage(shape, simpleMessages(1, number - 1, shape)); }
    Bytes append(std::int32_t number) const {
        const TableMap::Frame& frame = places.frame(static_cast<std::size_t>(number));
        const std::size_t start = frame.start - (number % shape.messagesPerBlock == 1 ? 8 : 0);
        const std::size_t end = frame.end + (number % shape.messagesPerBlock == 0 ? places.footerSize : 0);
        Bytes bytes = slice(unclosed, start, end);
        if (frame.start != start) {
            std::fill_n(bytes.begin(), 8, 0);
        }
        return bytes;
    }
    void expectRecoveredFromCrashIn(std::int32_t number) {
        const Bytes file = before(number);
        const Bytes appended = append(number);
        for (std::size_t count = 1; count <= appended.size() && !HasFatalFailure(); ++count) {
            SCOPED_TRACE(std::to_string(count) + " bytes of message " + std::to_string(number) + " written");
            const Bytes damaged = concatenated(file, cutAt(appended, count));
            expectRecovered(damaged, wholeMessages(damaged.size()));
        }
        EXPECT_TRUE(others().empty()) << "what a killed writer leaves is no damage: " << others().begin()->first;
        EXPECT_EQ(warningsOf("mtX_recover"), std::vector<std::string>{});
    }
};

TEST_F(CrashEverywhere, InTheAppendOfATablesFirstMessage) {
    expectRecoveredFromCrashIn(1);
}

TEST_F(CrashEverywhere, InTheAppendOfAMessageInTheMiddleOfABlock) {
    expectRecoveredFromCrashIn(7);
}

TEST_F(CrashEverywhere, InTheAppendThatClosesABlock) {
    expectRecoveredFromCrashIn(8);
}

TEST_F(CrashEverywhere, InTheAppendThatBeginsABlock) {
    expectRecoveredFromCrashIn(9);
}

TEST_F(CrashEverywhere, InThePatchOfTheLengthWordOfAClosedBlock) {
    Bytes damaged = concatenated(before(8), append(8));
    expectRecovered(damaged, 8);
    std::copy_n(closedWith(8).begin() + static_cast<std::ptrdiff_t>(places.blockStarts[1]), 8,
                damaged.begin() + static_cast<std::ptrdiff_t>(places.blockStarts[1]));
    expectRecovered(damaged, 8);
    EXPECT_TRUE(others().empty());
}

TEST_F(CrashEverywhere, InTheMiddleOfASaveOfTheHeadersTail) {
    for (std::size_t count = 0; count <= 88; ++count) {
        SCOPED_TRACE(std::to_string(count) + " bytes of the tail written");
        Bytes damaged = unclosed;
        std::copy_n(closedWith(MESSAGES).begin() + static_cast<std::ptrdiff_t>(places.tail()), count,
                    damaged.begin() + static_cast<std::ptrdiff_t>(places.tail()));
        place(damaged);
        open(TABLE_FILE_WRITE);
        ASSERT_NE(table, nullptr);
        ASSERT_EQ(readAll(table.get()).messages, simpleMessages(1, MESSAGES, shape));
        ASSERT_EQ(table->staticIndexes.lastUniform, MESSAGES);
        ASSERT_EQ(writeSimple(MESSAGES + 1, MESSAGES + APPENDED), NO_ERROR);
        ASSERT_EQ(closeTable(table), NO_ERROR);
        const Bytes expected = closedWith(MESSAGES + APPENDED);
        // All but the stored message count, which a torn tail can get wrong.
        ASSERT_EQ(difference(slice(fileBytes(), places.storedMessageCount() + 4, expected.size()),
                             slice(expected, places.storedMessageCount() + 4, expected.size())),
                  "");
    }
    EXPECT_TRUE(others().empty());
}

}  // namespace
}  // namespace tabulo::test
