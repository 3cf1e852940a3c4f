// Random queries over random tables select exactly what a plain evaluation of each message selects, forward and
// backward, with and without the skipping of blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>

#include "tests/query/plain_query.h"
#include "tests/query/random_query.h"
#include "tests/query/random_table.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr int QUERIES_PER_RUN = 6000;
// One table in so many has blocks of 1000 messages, and fewer queries.
constexpr std::uint32_t TABLES_PER_LARGE_ONE = 30;
constexpr int QUERIES_PER_TABLE = 150;
constexpr int QUERIES_PER_LARGE_TABLE = 30;

// What happened, so that a run that tests little is noticed.
struct Tally {
    int queries = 0;
    int tables = 0;
    int largeTables = 0;
    std::int64_t selected = 0;
    std::int64_t messages = 0;
    std::int64_t emptyBlocks = 0;    // closed blocks without a match, of queries that may skip
    std::int64_t skippedBlocks = 0;  // of those
};

bool sameNumber(const NumericValue& left, const NumericValue& right) {
    return left.type == right.type && (left.type == NumericType::absent || left.longValue == right.longValue);
}

bool isCurrent(const MessageTableIterator* iterator, const Message& message) {
    const MessageMetadata& left = mtIterator_getMetadata(iterator);
    const MessageMetadata& right = message.metadata;
    bool same = left.uniformId == right.uniformId && left.seqNum == right.seqNum &&
                left.prevSeqNum == right.prevSeqNum && left.connMsgId == right.connMsgId &&
                left.timestamp == right.timestamp && left.msgType == right.msgType &&
                left.isPossDupFlag == right.isPossDupFlag && left.isOutOfSequence == right.isOutOfSequence;
    for (std::size_t i = 0; i < message.strings.size(); ++i) {
        const StringField& field = mtIterator_getStringValues(iterator)[i];
        same = same && message.strings[i].has_value() == (field.text != nullptr) &&
               message.strings[i].value_or("") == stringField_bytes(field);
    }
    for (std::size_t i = 0; i < message.numbers.size(); ++i) {
        same = same && sameNumber(message.numbers[i], mtIterator_getNumericValues(iterator)[i]);
    }
    return same;
}

class RandomQueries : public ::testing::TestWithParam<std::uint32_t> {
  protected:
    // Everything that one seed stands for.
    void runSeed(std::uint32_t seed) {
        SCOPED_TRACE(std::string("begin a run with ") + TEST_SEED_VARIABLE + "=" + std::to_string(seed));
        Random random(seed);
        const bool large = seed % TABLES_PER_LARGE_ONE == 0;
        all = randomMessages(&random, large);
        writer.reset();
        writer = openTable(directory.root(), all.layout, OpenMode::create);
        ASSERT_NE(writer, nullptr);
        for (const Message& message : all.messages) {
            ASSERT_EQ(writeMessage(writer.get(), message), NO_ERROR);
        }
        const MessageTablePtr reader = openTable(directory.root(), all.layout, OpenMode::read);
        ASSERT_NE(reader, nullptr);
        tally.tables += 1;
        tally.largeTables += large ? 1 : 0;
        for (int i = 0; i < (large ? QUERIES_PER_LARGE_TABLE : QUERIES_PER_TABLE); ++i) {
            const PlainQuery query = randomQuery(&random, all);
            SCOPED_TRACE("query " + std::to_string(i) + ", blocks of " + std::to_string(all.layout.messagesPerBlock) +
                         ", " + std::to_string(all.messages.size()) + " messages, " + plainQuery_text(query));
            check(random.percent(50) ? writer.get() : reader.get(), query);
            if (HasFailure()) {
                return;
            }
            tally.queries += 1;
        }
        log.clear();
    }

    void check(MessageTable* table, const PlainQuery& query) {
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < all.messages.size(); ++i) {
            if (plainQuery_selects(query, all.messages[i])) {
                expected.push_back(i);
            }
        }
        tally.messages += static_cast<std::int64_t>(all.messages.size());
        tally.selected += static_cast<std::int64_t>(expected.size());
        std::vector<std::size_t> backwards(expected.rbegin(), expected.rend());
        walk(table, query, false, false, expected);
        walk(table, query, true, false, backwards);
        if (plainQuery_leavesOutClosedBlocks(query)) {
            const auto isClosed = [this](std::size_t i) { return i < all.closed; };
            expected.erase(std::remove_if(expected.begin(), expected.end(), isClosed), expected.end());
            backwards.assign(expected.rbegin(), expected.rend());
        }
        walk(table, query, false, true, expected);
        walk(table, query, true, true, backwards);
    }

    void walk(MessageTable* table, const PlainQuery& query, bool backward, bool skipping,
              const std::vector<std::size_t>& expected) {
        SCOPED_TRACE(std::string(backward ? "backward, " : "forward, ") + (skipping ? "skipping" : "reading all"));
        const MessageTableIteratorPtr iterator = openIterator(table, plainQuery_conditions(query, backward));
        ASSERT_NE(iterator, nullptr);
        const WatchedIterator watched(iterator.get(), skipping);
        std::size_t found = 0;
        for (;;) {
            bool end = false;
            ASSERT_EQ(mtIterator_next(iterator.get(), &end), NO_ERROR);
            if (end) {
                break;
            }
            ASSERT_LT(found, expected.size())
                << "one message too many, seqNum " << mtIterator_getMetadata(iterator.get()).seqNum;
            ASSERT_TRUE(isCurrent(iterator.get(), all.messages[expected[found]]))
                << "match " << found << " should be message " << expected[found] << ", seqNum "
                << all.messages[expected[found]].metadata.seqNum << ", and not one with seqNum "
                << mtIterator_getMetadata(iterator.get()).seqNum;
            found += 1;
        }
        ASSERT_EQ(found, expected.size()) << "message " << expected[found] << " did not come";
        const std::size_t perBlock = static_cast<std::size_t>(all.layout.messagesPerBlock);
        ASSERT_EQ(static_cast<std::size_t>(watched.blocksAsked), all.closed / perBlock)
            << "every closed block is asked about once";
        if (query.inverted) {
            ASSERT_EQ(watched.blocksSkipped, 0);
        } else if (skipping) {
            countSkips(expected, watched.blocksSkipped);
        }
    }

    void countSkips(const std::vector<std::size_t>& expected, int skipped) {
        const std::size_t perBlock = static_cast<std::size_t>(all.layout.messagesPerBlock);
        std::vector<bool> holdsMatch(all.closed / perBlock, false);
        for (const std::size_t i : expected) {
            if (i < all.closed) {
                holdsMatch[i / perBlock] = true;
            }
        }
        tally.emptyBlocks += std::count(holdsMatch.begin(), holdsMatch.end(), false);
        tally.skippedBlocks += skipped;
    }

    LogCapture log;
    TemporaryDirectory directory;
    RandomMessages all;
    MessageTablePtr writer;
    Tally tally;
};

TEST_P(RandomQueries, SelectWhatAPlainEvaluationSelects) {
    std::uint32_t seed = testSeed();
    while (tally.queries < QUERIES_PER_RUN * testEffort()) {
        runSeed(seed);
        if (HasFailure()) {
            return;
        }
        seed += 1;
    }
    std::cout << tally.queries << " queries over " << tally.tables << " tables, " << tally.largeTables
              << " of them with blocks of 1000; " << 100 * tally.selected / tally.messages
              << "% of the messages selected; of " << tally.emptyBlocks << " closed blocks without a match "
              << 100 * tally.skippedBlocks / tally.emptyBlocks << "% skipped\n";
    EXPECT_GE(tally.largeTables, 1);
    EXPECT_GE(tally.selected * 100, tally.messages * 5) << "the queries hardly select anything";
    EXPECT_LE(tally.selected * 100, tally.messages * 80) << "the queries hardly leave anything out";
    EXPECT_GE(tally.skippedBlocks * 100, tally.emptyBlocks * 25) << "hardly any block was skipped";
}

// In four parts, so that they can run side by side.
INSTANTIATE_TEST_SUITE_P(Part, RandomQueries, ::testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace tabulo::internal::test
