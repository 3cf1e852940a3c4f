#include <gtest/gtest.h>

#include <stdexcept>

#include "tabulo/session_info.h"
#include "tabulo/table_info.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::Random;
using ApiCountByClass = TableTest;

// The counts by looking at every message.
ClassCounts countsOf(const std::vector<StoredMessage>& messages) {
    ClassCounts counts;
    for (const StoredMessage& message : messages) {
        const std::optional<MessageClass> kind = classOf(message.id);
        (kind.has_value() ? counts.messages[static_cast<std::size_t>(*kind)] : counts.withoutClass) += 1;
        counts.total += 1;
    }
    return counts;
}

void expectCounts(const ClassCounts& counts, const ClassCounts& expected) {
    EXPECT_EQ(counts.messages, expected.messages);
    EXPECT_EQ(counts.withoutClass, expected.withoutClass);
    EXPECT_EQ(counts.total, expected.total);
    EXPECT_EQ(counts.complete, expected.complete);
}

TEST_F(ApiCountByClass, CountsTablesOfEverySizeOpenAndClosed) {
    for (std::int32_t count = 0; count <= 10; ++count) {
        SCOPED_TRACE(count);
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        expectCounts(countByClass(table.writer.path()), countsOf(table.messages));
        table.writer.close();
        const ClassCounts counts = countByClass(table.writer.path());
        EXPECT_EQ(counts.messages, (std::array<std::int64_t, 5>{0, count, 0, 0, 0}));
        EXPECT_EQ(counts.total, count);
        EXPECT_TRUE(counts.complete);
    }
}

TEST_F(ApiCountByClass, CountsEachClassByTheEndsOfItsRange) {
    const StoredTable table(path(), layout,
                            {{.id = 0},
                             {.id = 536870910},
                             {.id = 536870911},
                             {.id = 1073741822},
                             {.id = 1073741823},
                             {.id = 1342177278},
                             {.id = 1342177279},
                             {.id = 1610612734},
                             {.id = 1610612735},
                             {.id = 2147483647},
                             {.id = 5},
                             {.id = -1},
                             {.id = std::numeric_limits<std::int32_t>::min()},
                             {.id = -1}});
    const ClassCounts counts = countByClass(path());
    EXPECT_EQ(counts.messages, (std::array<std::int64_t, 5>{2, 3, 2, 2, 2}));
    EXPECT_EQ(counts.withoutClass, 3);
    EXPECT_EQ(counts.total, 14);
}

TEST_F(ApiCountByClass, AgreesWithALookAtEveryMessageOfRandomTables) {
    const std::uint32_t seed = internal::test::testSeed();
    Random random(seed);
    for (int t = 0; t < 30 * internal::test::testEffort(); ++t) {
        SCOPED_TRACE("table " + std::to_string(t) + " of seed " + std::to_string(seed));
        layout.messagesPerBlock = random.between(1, 7);
        StoredTable table(directory.file("r" + std::to_string(t)), layout);
        const std::int32_t count = random.below(50);
        for (std::int32_t n = 0; n < count; ++n) {
            table.append({.id = static_cast<std::int32_t>(random.bits())});
        }
        expectCounts(countByClass(table.writer.path()), countsOf(table.messages));
    }
}

TEST_F(ApiCountByClass, EndsWhenItIsAskedToStopAndSaysSo) {
    const StoredTable table(path(), layout, simpleMessages(60));
    std::stop_source source;
    source.request_stop();
    ClassCounts counts = countByClass(path(), {.stop = source.get_token()});
    EXPECT_FALSE(counts.complete);
    EXPECT_EQ(counts.total, 0);
    std::stop_source later;
    std::int64_t looked = 0;
    counts = countByClass(path(), {.stop = later.get_token(), .progress = [&](const Progress& progress) {
                                       looked = progress.messages;
                                       if (progress.messages >= 6) {
                                           later.request_stop();
                                       }
                                   }});
    EXPECT_FALSE(counts.complete);
    EXPECT_GE(counts.total, 6);
    EXPECT_LE(counts.total, 12) << "it went on for more than a block";
    EXPECT_EQ(counts.messages[static_cast<std::size_t>(MessageClass::appTo)], counts.total);
    EXPECT_LE(looked, counts.total);
}

TEST_F(ApiCountByClass, TellsItsProgressAndGivesWhatTheCallbackThrowsToTheCaller) {
    const StoredTable table(path(), layout, simpleMessages(30));
    std::int64_t done = 0;
    int calls = 0;
    const ClassCounts counts = countByClass(path(), {.progress = [&](const Progress& progress) {
                                                calls += 1;
                                                EXPECT_GE(progress.done, done);
                                                EXPECT_LE(progress.done, progress.total);
                                                EXPECT_LE(progress.messages, 30);
                                                done = progress.done;
                                            }});
    EXPECT_EQ(counts.total, 30);
    EXPECT_GE(calls, 9);
    EXPECT_GT(done, 0);
    EXPECT_THROW(static_cast<void>(
                     countByClass(path(), {.progress = [](const Progress&) { throw std::runtime_error("enough"); }})),
                 std::runtime_error);
}

TEST_F(ApiCountByClass, ThrowsAtDamageAndForFilesThatAreNoMessageTables) {
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(countByClass(path())));
    const std::vector<std::int32_t> tags = {1};
    SessionInfo::create(directory.file("session"), tags).close();
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(countByClass(directory.file("session"))));
    std::int64_t damaged = 0;
    {
        const StoredTable table(path(), layout, simpleMessages(8));
        damaged = table.place(4).offset;
    }
    const Bytes before = fileBytes();
    EXPECT_EQ(countByClass(path()).total, 8);
    EXPECT_EQ(difference(fileBytes(), before), "") << "counting has written";
    internal::test::patchFile(path().string(), static_cast<std::size_t>(damaged) + 35, Bytes{9});
    const Error error = errorOf([&] { static_cast<void>(countByClass(path())); });
    EXPECT_EQ(error.code(), Code::consistency) << "a number of an unknown type";
    EXPECT_EQ(error.offset(), damaged);
    EXPECT_EQ(error.path(), path());
}

}  // namespace
}  // namespace tabulo::test
