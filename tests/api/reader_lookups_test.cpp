#include <gtest/gtest.h>

#include <limits>

#include "tabulo/reader.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::Random;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

class ApiReaderLookUps : public TableTest {
  protected:
    // The first message at or above the id, found by looking at every one; the end without one.
    static Position placeOfUniformId(const StoredTable& table, std::int32_t uniformId) {
        for (std::size_t i = 0; i < table.count(); ++i) {
            if (table.messages[i].uniformId >= uniformId) {
                return table.place(i);
            }
        }
        return table.end();
    }

    // What the look-ups of a table's reader must tell, by the messages that are in it.
    static void expectAnswersOf(const StoredTable& table, Reader& reader) {
        std::array<std::optional<std::int32_t>, messageClassCount> lastIds;
        std::optional<SequencePoint> good;
        std::optional<SequencePoint> first;
        std::optional<SequencePoint> last;
        for (const StoredMessage& message : table.messages) {
            const std::optional<MessageClass> kind = classOf(message.id);
            if (kind.has_value()) {
                std::optional<std::int32_t>& highestId = lastIds[static_cast<std::size_t>(*kind)];
                highestId = std::max(highestId.value_or(message.id), message.id);
            }
            const bool toCounterparty = kind == MessageClass::appTo;
            if (message.seqNum > 0 && message.prevSeqNum != 0 && toCounterparty && !message.possDup) {
                first = SequencePoint{message.prevSeqNum, message.time};
            }
            if (message.seqNum < 0 && toCounterparty && !message.outOfSequence) {
                last = SequencePoint{message.seqNum, message.time};
            }
            if (message.seqNum > 0 && kind != MessageClass::resent && !message.outOfSequence) {
                good = SequencePoint{message.seqNum, message.time};
            }
        }
        for (std::size_t c = 0; c < messageClassCount; ++c) {
            EXPECT_EQ(reader.lastId(static_cast<MessageClass>(c)), lastIds[c]) << "of class " << c;
        }
        const std::int32_t uniformId = table.count() == 0 ? 0 : table.messages.back().uniformId;
        EXPECT_EQ(reader.lastUniformId(), uniformId == 0 ? std::nullopt : std::optional(uniformId));
        EXPECT_EQ(reader.lastGood(), good);
        EXPECT_EQ(reader.firstPending(), first);
        EXPECT_EQ(reader.lastPending(), last);
    }

    static void expectPlacesOf(const StoredTable& table, Reader& reader) {
        EXPECT_EQ(reader.begin(), table.place(0));
        EXPECT_EQ(reader.end(), table.end());
        for (std::size_t i = 0; i < table.count(); ++i) {
            EXPECT_EQ(reader.positionOf(static_cast<std::int64_t>(i)), table.place(i)) << "of message " << i;
        }
        EXPECT_EQ(reader.positionOf(static_cast<std::int64_t>(table.count())), std::nullopt);
        EXPECT_EQ(reader.positionOf(static_cast<std::int64_t>(table.count()) + 1), std::nullopt);
        EXPECT_EQ(reader.positionOf(std::numeric_limits<std::int64_t>::max()), std::nullopt);
        for (const StoredMessage& message : table.messages) {
            for (const std::int32_t id : {message.uniformId - 1, message.uniformId, message.uniformId + 1}) {
                EXPECT_EQ(reader.positionOfUniformId(id), placeOfUniformId(table, id)) << "of uniform id " << id;
            }
        }
        for (const std::int32_t id : {lowest, -1, 0, 1, highest}) {
            EXPECT_EQ(reader.positionOfUniformId(id), placeOfUniformId(table, id)) << "of uniform id " << id;
        }
    }
};

TEST_F(ApiReaderLookUps, TellOfTablesOfEverySizeOpenAndClosed) {
    for (std::int32_t count = 0; count <= 10; ++count) {
        SCOPED_TRACE(count);
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        Reader reader(table.writer.path());
        expectAnswersOf(table, reader);
        expectPlacesOf(table, reader);
        table.writer.close();
        expectAnswersOf(table, reader);
        expectPlacesOf(table, reader);
        Reader later(table.writer.path());
        expectAnswersOf(table, later);
        expectPlacesOf(table, later);
    }
}

TEST_F(ApiReaderLookUps, AnswerForTheMomentAtWhichTheyAreAsked) {
    StoredTable table(path(), layout);
    Reader reader(path());
    for (std::int32_t n = 0; n <= 20; ++n) {
        expectAnswersOf(table, reader);
        expectPlacesOf(table, reader);
        table.append(simpleMessage(n + 1));
    }
}

TEST_F(ApiReaderLookUps, TellTheHighestIdOfEachClass) {
    const StoredTable table(path(), layout,
                            {{.id = 3},
                             {.id = 536870910},
                             {.id = 4},
                             {.id = 1073741823},
                             {.id = 1342177279},
                             {.id = 1342177280},
                             {.id = -7},
                             {.id = 2147483647}});
    Reader reader(path());
    EXPECT_EQ(reader.lastId(MessageClass::appTo), 536870910);
    EXPECT_EQ(reader.lastId(MessageClass::appFrom), std::nullopt);
    EXPECT_EQ(reader.lastId(MessageClass::adminTo), 1073741823);
    EXPECT_EQ(reader.lastId(MessageClass::adminFrom), 1342177280);
    EXPECT_EQ(reader.lastId(MessageClass::resent), 2147483647);
}

TEST_F(ApiReaderLookUps, TellTheLowestIdOfAClassFromNone) {
    const StoredTable table(path(), layout, {{.id = 0}, {.id = 536870911}});
    Reader reader(path());
    EXPECT_EQ(reader.lastId(MessageClass::appTo), 0);
    EXPECT_EQ(reader.lastId(MessageClass::appFrom), 536870911);
    EXPECT_EQ(reader.lastId(MessageClass::resent), std::nullopt);
}

TEST_F(ApiReaderLookUps, RefuseAClassThatIsNone) {
    const StoredTable table(path(), layout, simpleMessages(1));
    Reader reader(path());
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(reader.lastId(static_cast<MessageClass>(5))));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(reader.lastId(static_cast<MessageClass>(-1))));
}

TEST_F(ApiReaderLookUps, TellNoUniformIdWhenThatOfTheLastMessageIsZero) {
    StoredTable table(path(), layout, {{.uniformId = 5}, {.uniformId = 0}});
    Reader reader(path());
    EXPECT_EQ(reader.lastUniformId(), std::nullopt);
    table.append({.uniformId = -3});
    EXPECT_EQ(reader.lastUniformId(), -3);
    EXPECT_EQ(reader.positionOfUniformId(0), table.place(0));
}

TEST_F(ApiReaderLookUps, TellSequencePointsOnlySinceATime) {
    const StoredTable table(path(), layout,
                            {{.seqNum = -5, .id = 3, .time = 100},
                             {.seqNum = 8, .prevSeqNum = -5, .id = 4, .time = 200},
                             {.seqNum = 9, .id = 536870911, .time = 300}});
    Reader reader(path());
    EXPECT_EQ(reader.lastPending(), (SequencePoint{-5, 100}));
    EXPECT_EQ(reader.lastPending(100), (SequencePoint{-5, 100}));
    EXPECT_EQ(reader.lastPending(101), std::nullopt);
    EXPECT_EQ(reader.firstPending(), (SequencePoint{-5, 200}));
    EXPECT_EQ(reader.firstPending(200), (SequencePoint{-5, 200}));
    EXPECT_EQ(reader.firstPending(201), std::nullopt);
    EXPECT_EQ(reader.lastGood(), (SequencePoint{9, 300}));
    EXPECT_EQ(reader.lastGood(300), (SequencePoint{9, 300}));
    EXPECT_EQ(reader.lastGood(301), std::nullopt);
    EXPECT_EQ(reader.lastGood(std::numeric_limits<std::int64_t>::max()), std::nullopt);
}

TEST_F(ApiReaderLookUps, TellSequencePointsOfNegativeTimes) {
    const StoredTable table(path(), layout,
                            {{.seqNum = -2, .id = 1, .time = std::numeric_limits<std::int64_t>::min()},
                             {.seqNum = 7, .prevSeqNum = -2, .id = 2, .time = -50}});
    Reader reader(path());
    EXPECT_EQ(reader.lastPending(), (SequencePoint{-2, std::numeric_limits<std::int64_t>::min()}));
    EXPECT_EQ(reader.lastPending(0), std::nullopt);
    EXPECT_EQ(reader.firstPending(), (SequencePoint{-2, -50}));
    EXPECT_EQ(reader.firstPending(-50), (SequencePoint{-2, -50}));
    EXPECT_EQ(reader.lastGood(), (SequencePoint{7, -50}));
    EXPECT_EQ(reader.lastGood(-49), std::nullopt);
}

TEST_F(ApiReaderLookUps, AgreeWithWhatInspectTells) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    const TableInfo info = inspect(path());
    for (std::size_t c = 0; c < messageClassCount; ++c) {
        EXPECT_EQ(reader.lastId(static_cast<MessageClass>(c)), info.lastIds[c]);
    }
    EXPECT_EQ(reader.lastUniformId(), info.lastUniformId);
    EXPECT_EQ(reader.lastGood(), info.lastGood);
    EXPECT_EQ(reader.layout(), info.layout);
    EXPECT_EQ(reader.begin().block, info.headerSize);
}

TEST_F(ApiReaderLookUps, RefuseANegativeNumberOfAMessage) {
    const StoredTable table(path(), layout, simpleMessages(4));
    Reader reader(path());
    EXPECT_TABULO_ERROR(indexOutOfBounds, static_cast<void>(reader.positionOf(-1)));
    EXPECT_TABULO_ERROR(indexOutOfBounds,
                        static_cast<void>(reader.positionOf(std::numeric_limits<std::int64_t>::min())));
}

TEST_F(ApiReaderLookUps, FindTheFirstMessageInTheOrderOfTheFileAlsoWhenUniformIdsFallOrRepeat) {
    std::vector<StoredMessage> messages;
    for (const std::int32_t id : {5, 3, 9, 9, 2, 1, 40, 7, 8, -3, 12, 41, 0, 41}) {
        messages.push_back({.uniformId = id});
    }
    const StoredTable table(path(), layout, messages);
    Reader reader(path());
    expectPlacesOf(table, reader);
}

TEST_F(ApiReaderLookUps, AgreeWithALookAtEveryMessageOfRandomTables) {
    const std::uint32_t seed = internal::test::testSeed();
    Random random(seed);
    constexpr std::array<std::int32_t, 7> bases = {0, 536870911, 1073741823, 1342177279, 1610612735, -5, 536870900};
    for (int t = 0; t < 40 * internal::test::testEffort(); ++t) {
        SCOPED_TRACE("table " + std::to_string(t) + " of seed " + std::to_string(seed));
        layout.messagesPerBlock = random.between(1, 7);
        StoredTable table(directory.file("r" + std::to_string(t)), layout);
        Reader reader(table.writer.path());
        std::int32_t uniformId = 0;
        const std::int32_t count = random.below(40);
        for (std::int32_t n = 0; n < count; ++n) {
            uniformId += random.percent(10) ? random.between(-5, 0) : random.between(0, 3);
            table.append({.uniformId = uniformId,
                          .seqNum = random.between(-2, 3),
                          .prevSeqNum = random.percent(70) ? 0 : random.between(-9, 1),
                          .id = bases[static_cast<std::size_t>(random.below(7))] + random.below(20),
                          .time = random.between(-5, 1000),
                          .possDup = random.percent(30),
                          .outOfSequence = random.percent(30)});
            if (random.percent(5)) {
                expectAnswersOf(table, reader);
                expectPlacesOf(table, reader);
            }
        }
        expectAnswersOf(table, reader);
        expectPlacesOf(table, reader);
        if (HasFailure()) {
            return;
        }
    }
}

TEST_F(ApiReaderLookUps, TellOfDamageWhereTheAnswerWouldStandBehindIt) {
    StoredTable table(path(), layout, simpleMessages(9));
    table.writer.close();
    // The second message of the second block: its first length.
    const Position damaged = table.place(4);
    internal::test::patchFile(path().string(), static_cast<std::size_t>(damaged.offset), Bytes(4, 0));
    Reader reader(path());
    EXPECT_EQ(reader.positionOfUniformId(2), table.place(1));
    EXPECT_EQ(reader.positionOfUniformId(9), table.place(8)) << "a closed block behind the damaged one";
    const Error error = errorOf([&] { static_cast<void>(reader.positionOfUniformId(6)); });
    EXPECT_EQ(error.code(), Code::consistency);
    EXPECT_EQ(error.path(), path());
}

}  // namespace
}  // namespace tabulo::test
