// A table cut, or left by a crash, at every byte of its last two blocks and of its header: what is recovered is the
// longest whole prefix of its messages, byte for byte as if the table had been closed there.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "tests/damage/damage_guard.h"
#include "tests/damage/memory_table.h"
#include "tests/damage/table_damage.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t APPENDED = 5;            // closes a block wherever writing goes on
constexpr std::int32_t LARGEST = 11;            // two closed blocks of four and three messages of the open one
constexpr unsigned SANITIZED_SHARE = 16;        // under a sanitizer an ordinary run cuts footers at one byte of so many
constexpr std::size_t SMALLEST_RECOVERED = 20;  // bytes of a header: one more than the generic one

// Two kinds of tables: without configured fields, and with fields of both kinds, absent ones among them.
enum class Kind { plain, fields };

class CutTable : public ::testing::TestWithParam<Kind> {
  protected:
    void SetUp() override {
        shape = GetParam() == Kind::plain ? TableShape{} : damageShape();
        shape.messagesPerBlock = 4;
        shape.summarisedStringFieldCount = GetParam() == Kind::plain ? 1 : 0;  // one filter a footer
        messages = GetParam() == Kind::plain ? simpleMessages(1, LARGEST + APPENDED, shape)
                                             : damageMessages(LARGEST + APPENDED);
        for (std::int32_t count = 0; count <= LARGEST + APPENDED; ++count) {
            closed.push_back(writtenTable(&platform, shape, first(count), TableEnd::closed));
            unclosed.push_back(writtenTable(&platform, shape, first(count), TableEnd::unclosed));
        }
        places = mapOf(shape, messages);
        sampled = underSanitizer() && testEffort() == 1;
        random.seed(sampled ? testSeed() : 0);
    }
    void TearDown() override {
        EXPECT_GT(cuts, 0);
        EXPECT_EQ(platform.openCount(), 0U) << "a file was left open";
        reportFigure("cuts", "cuts of a message table", cuts);
    }

    std::vector<Message> first(std::int32_t count) const { return {messages.begin(), messages.begin() + count}; }
    const Bytes& closedWith(std::int32_t count) const { return closed[static_cast<std::size_t>(count)]; }
    const Bytes& unclosedWith(std::int32_t count) const { return unclosed[static_cast<std::size_t>(count)]; }
    std::size_t blockStart(std::size_t number) const { return places.blockStarts.at(number - 1); }
    std::int32_t wholeMessages(std::size_t size) const {
        return static_cast<std::int32_t>(std::count_if(places.frames.begin(), places.frames.end(),
                                                       [size](const TableMap::Frame& f) { return f.end <= size; }));
    }
    // All sizes but most of those inside a footer, where a sanitized run has no time for them.
    bool isWanted(std::size_t size) {
        const bool inFrames = std::any_of(
            places.frames.begin(), places.frames.end(),
            [size](const TableMap::Frame& frame) { return frame.start <= size + 8 && size <= frame.end + 8; });
        return !sampled || inFrames || size <= places.headerSize || random() % SANITIZED_SHARE == 0;
    }
    const Bytes& file() const { return platform.bytes(memoryPath(shape)); }
    void place(const Bytes& bytes) {
        platform.removeAll();
        platform.put(memoryPath(shape), bytes);
        log.clear();
    }
    std::vector<std::string> others() const {
        std::vector<std::string> paths = platform.paths();
        paths.erase(std::find(paths.begin(), paths.end(), memoryPath(shape)));
        return paths;
    }
    // What becomes of a damaged file. A new table that nothing was written to is in order as it is.
    const Bytes& recoveredFrom(const Bytes& damaged, std::int32_t count) const {
        return damaged == unclosedWith(0) ? unclosedWith(0) : closedWith(count);
    }
    ErrorCode openAndRelease(OpenMode mode) const {
        const MessageTablePtr table = createTable(MEMORY_ROOT, shape);
        return mt_open(table.get(), mode);
    }

    // A reader gets the first messages, as many as there are whole ones at most, and changes nothing.
    void expectReadable(const Bytes& damaged, std::int32_t count) {
        place(damaged);
        const MessageTablePtr table = createTable(MEMORY_ROOT, shape);
        if (mt_open(table.get(), OpenMode::read) == NO_ERROR) {
            const ReadMessages read = readAll(table.get());
            const auto delivered = static_cast<std::int32_t>(read.messages.size());
            EXPECT_EQ(read.messages, first(std::min(delivered, count))) << "opened read-only";
            EXPECT_TRUE(read.code != NO_ERROR || delivered == count)
                << "opened read-only, " << delivered << " of " << count << " messages without an error";
        }
        EXPECT_EQ(difference(file(), damaged), "") << "opened read-only";
        EXPECT_EQ(others(), std::vector<std::string>{}) << "opened read-only";
    }
    void expectRecovered(const Bytes& damaged, std::int32_t count) {
        guard.begin(::testing::UnitTest::GetInstance()->current_test_info()->name());
        cuts += 1;
        expectReadable(damaged, count);
        MessageTablePtr table = openTable(MEMORY_ROOT, OpenMode::write, shape);
        ASSERT_NE(table, nullptr);
        const ReadMessages read = readAll(table.get());
        EXPECT_EQ(read.code, NO_ERROR);
        ASSERT_EQ(read.messages, first(count));
        ASSERT_EQ(table->records.dataInfo.messageCount, count);
        ASSERT_EQ(difference(file(), recoveredFrom(damaged, count)), "") << "right behind the recovery";
        salvaged = others();
        expectSaved(damaged);
        table.reset();
        ASSERT_EQ(openAndRelease(OpenMode::write), NO_ERROR);
        ASSERT_EQ(difference(file(), recoveredFrom(damaged, count)), "") << "opened once more";
        Bytes again = closedWith(count);
        putU64(&again, places.storedDataEnd(), 0);
        platform.put(memoryPath(shape), again);
        ASSERT_EQ(openAndRelease(OpenMode::write), NO_ERROR);
        ASSERT_EQ(difference(file(), closedWith(count)), "") << "recovered once more";
        ASSERT_EQ(others(), salvaged) << "opened and recovered once more";
        expectGoesOn(count);
        EXPECT_EQ(guard.memory(), "");
    }
    // What is saved beside the table is what stood at the offset that the file's name tells.
    void expectSaved(const Bytes& damaged) const {
        const std::string prefix = memoryPath(shape) + ".cut-";
        for (const std::string& path : salvaged) {
            ASSERT_TRUE(path.starts_with(prefix)) << path;
            const Bytes& copy = platform.bytes(path);
            const std::size_t offset = std::stoul(path.substr(prefix.size()));
            EXPECT_EQ(toHex(copy), toHex(slice(damaged, offset, offset + copy.size()))) << path;
        }
    }
    // Writing goes on beyond the next end of a block, and everything is there after it.
    void expectGoesOn(std::int32_t count) {
        MessageTablePtr table = openTable(MEMORY_ROOT, OpenMode::write, shape);
        ASSERT_NE(table, nullptr);
        for (std::int32_t i = count; i < count + APPENDED; ++i) {
            ASSERT_EQ(writeMessage(table.get(), messages[static_cast<std::size_t>(i)]), NO_ERROR);
        }
        ASSERT_EQ(closeTable(table), NO_ERROR);
        ASSERT_EQ(difference(file(), closedWith(count + APPENDED)), "") << "after writing went on";
        ASSERT_EQ(messagesIn(MEMORY_ROOT, shape), first(count + APPENDED));
    }
    // Cuts the file to all sizes from `from` on. What is saved beside the table is the whole of what `mayBeSaved`
    // allows.
    void expectRecoveredFromCuts(
        const Bytes& whole, std::size_t from,
        const std::function<bool(std::size_t)>& isSaved = [](std::size_t) { return false; }) {
        for (std::size_t size = from; size <= whole.size() && !HasFatalFailure() && !tooManyFailures(); ++size) {
            if (!isWanted(size)) {
                continue;
            }
            SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
            expectRecovered(cutAt(whole, size), wholeMessages(size));
            EXPECT_EQ(salvaged.size(), isSaved(size) ? 1U : 0U)
                << "files that were saved: " << ::testing::PrintToString(salvaged);
        }
    }
    // A block that is not whole any more, but still has its length in front: that word is replaced, and saved before.
    std::function<bool(std::size_t)> lengthWordsOf(std::size_t firstBlock, std::size_t lastBlock) const {
        return [this, firstBlock, lastBlock](std::size_t size) {
            bool saved = false;
            for (std::size_t block = firstBlock; block <= lastBlock; ++block) {
                // Less than the word is not worth a copy; behind the last frame only the footer is not whole.
                saved |= size >= places.frame(4 * block - 3).start && size < places.frame(4 * block).end;
            }
            return saved;
        };
    }

    // What is left of the header's records, when they are not those of the new table that takes their place.
    std::function<bool(std::size_t)> recordsOf(const Bytes& whole) const {
        return [this, whole](std::size_t size) {
            return size < places.headerSize && cutAt(whole, size) != cutAt(unclosedWith(0), size);
        };
    }

    MemoryPlatform platform;
    LogCapture log;
    DamageGuard guard;
    TableShape shape;
    std::vector<Message> messages;
    TableMap places;
    std::vector<Bytes> closed;  // files of tables closed with so many messages
    std::vector<Bytes> unclosed;
    std::vector<std::string> salvaged;
    bool sampled = false;
    std::mt19937 random;
    int cuts = 0;
};

TEST_P(CutTable, InTheLastTwoBlocksWithMessagesInTheOpenOneAndNotClosed) {
    expectRecoveredFromCuts(unclosedWith(11), blockStart(2), lengthWordsOf(2, 2));
}

TEST_P(CutTable, InTheLastTwoBlocksWithMessagesInTheOpenOneAndClosed) {
    expectRecoveredFromCuts(closedWith(11), blockStart(2), lengthWordsOf(2, 2));
}

TEST_P(CutTable, InTheLastTwoBlocksOfWhichTheLastIsJustFullAndNotClosed) {
    expectRecoveredFromCuts(unclosedWith(8), blockStart(1), lengthWordsOf(1, 2));
}

TEST_P(CutTable, InTheLastTwoBlocksOfWhichTheLastIsJustFullAndClosed) {
    expectRecoveredFromCuts(closedWith(8), blockStart(1), lengthWordsOf(1, 2));
}

TEST_P(CutTable, InAnEmptyOpenBlockBehindAFullOne) {
    const Bytes emptyBlock = concatenated(unclosedWith(8), Bytes(8));
    expectRecoveredFromCuts(emptyBlock, blockStart(2), lengthWordsOf(2, 2));
    const Bytes emptyTable = concatenated(unclosedWith(0), Bytes(8));
    expectRecoveredFromCuts(emptyTable, places.headerSize);
}

TEST_P(CutTable, InTheHeaderOfANewTable) {
    expectRecoveredFromCuts(unclosedWith(0), SMALLEST_RECOVERED);
    expectRecoveredFromCuts(closedWith(0), SMALLEST_RECOVERED, recordsOf(closedWith(0)));
}

TEST_P(CutTable, InTheHeaderOfATableWithMessages) {
    for (const Bytes& whole : {unclosedWith(11), closedWith(11)}) {
        expectRecoveredFromCuts(cutAt(whole, places.headerSize), SMALLEST_RECOVERED, recordsOf(whole));
    }
}

TEST_P(CutTable, ToTheGenericHeaderOrLessIsRefusedAndLeftAsItIs) {
    for (const Bytes& whole : {unclosedWith(0), closedWith(11)}) {
        for (std::size_t size = 1; size < SMALLEST_RECOVERED; ++size) {
            SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
            place(cutAt(whole, size));
            EXPECT_EQ(openAndRelease(OpenMode::write), FILE_SIZE_ERROR) << "for writing";
            EXPECT_NE(openAndRelease(OpenMode::read), NO_ERROR) << "read-only";
            EXPECT_EQ(difference(file(), cutAt(whole, size)), "");
            EXPECT_EQ(others(), std::vector<std::string>{}) << "nothing is worth a copy";
            cuts += 1;
        }
    }
}

TEST_P(CutTable, ToNothingIsANewTableForAWriterAndNoneForAReader) {
    place({});
    EXPECT_EQ(openAndRelease(OpenMode::read), FILE_SIZE_ERROR);
    EXPECT_EQ(difference(file(), {}), "");
    EXPECT_EQ(openAndRelease(OpenMode::write), NO_ERROR);
    EXPECT_EQ(difference(file(), unclosedWith(0)), "");
    EXPECT_EQ(others(), std::vector<std::string>{});
    expectGoesOn(0);
    cuts += 1;
}

// The files that a killed writer leaves: the header's records of the last closed block, a length word of 0 in front of
// the open block, and any number of bytes of the last append.
class CrashedTable : public CutTable {
  protected:
    // What is appended for message `number`.
    Bytes append(std::int32_t number) const {
        const TableMap::Frame& frame = places.frame(static_cast<std::size_t>(number));
        const std::size_t start = frame.start - (number % shape.messagesPerBlock == 1 ? 8 : 0);
        const std::size_t end = frame.end + (number % shape.messagesPerBlock == 0 ? places.footerSize : 0);
        Bytes bytes = slice(closedWith(LARGEST + APPENDED), start, end);
        std::fill_n(bytes.begin(), frame.start - start, 0);
        return bytes;
    }
    void expectRecoveredFromCrashesIn(std::int32_t number) {
        SCOPED_TRACE("in the append of message " + std::to_string(number));
        const Bytes before = unclosedWith(number - 1);
        expectRecoveredFromCuts(concatenated(before, append(number)), before.size() + 1);
        for (const std::string& line : log.warnings()) {
            EXPECT_EQ(line.find("are damaged"), std::string::npos) << "what a killed writer leaves is no damage";
        }
    }
};

TEST_P(CrashedTable, InAnAppendInsideABlockOrAtItsBeginning) {
    for (const std::int32_t number : {1, 2, 5, 6, 7, 9, 10, 11}) {
        expectRecoveredFromCrashesIn(number);
    }
}

TEST_P(CrashedTable, InTheAppendThatFillsTheFirstBlock) {
    expectRecoveredFromCrashesIn(4);
}

TEST_P(CrashedTable, InTheAppendThatFillsALaterBlock) {
    expectRecoveredFromCrashesIn(8);
}

TEST_P(CrashedTable, BesideTheWriteOfABlocksLengthWord) {
    Bytes damaged = concatenated(unclosedWith(7), append(8));
    expectRecovered(damaged, 8);
    EXPECT_EQ(salvaged, std::vector<std::string>{}) << "in front of it";
    const auto word = static_cast<std::ptrdiff_t>(blockStart(2));
    std::copy_n(closedWith(8).begin() + word, 8, damaged.begin() + word);
    expectRecovered(damaged, 8);
    EXPECT_EQ(salvaged, std::vector<std::string>{}) << "behind it";
}

TEST_P(CrashedTable, InTheWriteOfTheHeadersRecords) {
    const auto tail = static_cast<std::ptrdiff_t>(places.tail());
    for (std::size_t count = 0; count <= 88 && !HasFatalFailure(); ++count) {
        SCOPED_TRACE(std::to_string(count) + " bytes of the records written");
        Bytes damaged = unclosedWith(11);
        std::copy_n(closedWith(11).begin() + tail, count, damaged.begin() + tail);
        place(damaged);
        MessageTablePtr table = openTable(MEMORY_ROOT, OpenMode::write, shape);
        ASSERT_NE(table, nullptr);
        ASSERT_EQ(readAll(table.get()).messages, first(11));
        ASSERT_EQ(table->records.staticIndexes.lastUniform, 11);
        for (std::int32_t i = 11; i < 11 + APPENDED; ++i) {
            ASSERT_EQ(writeMessage(table.get(), messages[static_cast<std::size_t>(i)]), NO_ERROR);
        }
        ASSERT_EQ(closeTable(table), NO_ERROR);
        // All but the stored message count, which records that were written in part can get wrong.
        const Bytes& expected = closedWith(11 + APPENDED);
        const std::size_t behindCount = places.storedMessageCount() + 4;
        ASSERT_EQ(difference(slice(file(), behindCount, file().size()), slice(expected, behindCount, expected.size())),
                  "");
        ASSERT_EQ(difference(cutAt(file(), behindCount - 4), cutAt(expected, behindCount - 4)), "");
        EXPECT_EQ(others(), std::vector<std::string>{});
        cuts += 1;
    }
}

std::string kindName(const ::testing::TestParamInfo<Kind>& info) {
    return info.param == Kind::plain ? "WithoutConfiguredFields" : "WithFieldsOfBothKinds";
}

INSTANTIATE_TEST_SUITE_P(Tables, CutTable, ::testing::Values(Kind::plain, Kind::fields), kindName);
INSTANTIATE_TEST_SUITE_P(Tables, CrashedTable, ::testing::Values(Kind::plain, Kind::fields), kindName);

}  // namespace
}  // namespace tabulo::internal::test
