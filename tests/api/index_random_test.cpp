// Whatever stands in the file of a table's side index, queries give what they give without one.
#include <gtest/gtest.h>

#include <iostream>

#include "tabulo/index.h"
#include "tests/api/indexed_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::testEffort;
using internal::test::testSeed;

// In each of the parts, which can run side by side.
constexpr int queriesPerRun = 6000;
constexpr int queriesPerContent = 8;
constexpr std::uint32_t partDistance = 104'729;

// What happened, so that a run that tests little is noticed.
struct Tally {
    int queries = 0;
    int tables = 0;
    int spared = 0;         // queries that read fewer blocks or messages than without the index
    int sparedWhole = 0;    // of those with an index as its builder left it,
    int queriesWhole = 0;   // which were so many
    int sparedDamaged = 0;  // of those with a damaged one
    std::int64_t selected = 0;
};

class IndexRandomQueries : public ::testing::TestWithParam<std::uint32_t> {
  protected:
    void askAbout(IndexContent content, const StoredTable& table, const std::optional<Bytes>& bytes) {
        SCOPED_TRACE(trace + ", " + indexContentName(content));
        if (!keptReader.has_value() || random->percent(30)) {
            keptReader.emplace(table.writer.path());
        }
        placeIndex(*random, table.writer.path(), bytes);
        Reader plain(table.writer.path());
        plain.useIndex(false);
        for (int i = 0; i < queriesPerContent && !HasFailure(); ++i) {
            std::string fault;
            const ModelQuery model =
                random->percent(70) ? selectiveQuery(*random, table, &fault) : randomQuery(*random, table, &fault);
            SCOPED_TRACE("query " + std::to_string(i) + ": " + model.words);
            EXPECT_EQ(fault, "");
            expectAnswer(content, table, model, plain);
        }
    }

    void expectAnswer(IndexContent content, const StoredTable& table, const ModelQuery& model, Reader& plain) {
        const std::vector<std::size_t> expected = model.expected(table);
        Messages indexed = keptReader->messages(model.query);
        Messages without = plain.messages(model.query);
        ASSERT_EQ(walkFault(indexed, table, expected), "") << "with the index";
        ASSERT_EQ(walkFault(without, table, expected), "") << "without an index";
        EXPECT_EQ(indexed.blocksRead() + indexed.blocksSkipped(), without.blocksRead() + without.blocksSkipped());
        EXPECT_LE(indexed.blocksRead(), without.blocksRead());
        EXPECT_LE(indexed.messagesRead(), without.messagesRead());
        const bool isSpared =
            indexed.blocksRead() < without.blocksRead() || indexed.messagesRead() < without.messagesRead();
        const bool isWhole = content == IndexContent::whole;
        tally.queries += 1;
        tally.selected += static_cast<std::int64_t>(expected.size());
        tally.spared += isSpared;
        tally.queriesWhole += isWhole;
        tally.sparedWhole += isSpared && isWhole;
        tally.sparedDamaged += isSpared && content > IndexContent::foreign;
        if (content == IndexContent::absent || content == IndexContent::noise) {
            EXPECT_FALSE(isSpared) << "without an index nothing is spared";
        }
    }

    void runTable(std::uint32_t seed, int number) {
        trace = "table " + std::to_string(number) + " of a run with " + internal::test::TEST_SEED_VARIABLE + "=" +
                std::to_string(seed);
        SCOPED_TRACE(trace);
        random.emplace(seed + static_cast<std::uint32_t>(number) * 7919U + GetParam() * partDistance);
        IndexedTable indexed(*random, directory, number);
        keptReader.reset();
        tally.tables += 1;
        for (int i = 0; i < indexContentCount && !HasFailure(); ++i) {
            askOnce(indexed, i);
            if (random->percent(10)) {
                indexed.store(*random, random->between(1, 12));
            }
        }
        // What it says is of a table that is no more.
        indexed.refill(*random);
        for (const IndexContent content : {IndexContent::older, IndexContent::mixed}) {
            askAbout(content, indexed.table, indexBytes(*random, content, indexed.images));
        }
        std::filesystem::remove(indexed.path());
    }
    void askOnce(const IndexedTable& indexed, int number) {
        const auto content = static_cast<IndexContent>((number * 7 + 1) % indexContentCount);
        askAbout(content, indexed.table, indexBytes(*random, content, indexed.images));
    }

    const TemporaryDirectory directory;
    std::string trace;
    std::optional<Random> random;
    std::optional<Reader> keptReader;
    Tally tally;
};

TEST_P(IndexRandomQueries, AnswerAsWithoutWhateverTheIndexHolds) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; tally.queries < queriesPerRun * testEffort() && !HasFailure(); ++number) {
        runTable(seed, number);
    }
    std::cout << tally.queries << " queries over " << tally.tables << " tables, " << tally.selected
              << " messages selected; the index spared something to " << tally.spared << ", and to "
              << tally.sparedWhole << " of " << tally.queriesWhole << " when it was whole, to " << tally.sparedDamaged
              << " when it was damaged\n";
    EXPECT_GE(tally.spared * 100, tally.queries * 5) << "the index is hardly ever used";
    EXPECT_GE(tally.sparedWhole * 100, tally.queriesWhole * 20) << "a whole index is hardly ever used";
    EXPECT_GE(tally.sparedDamaged, 20) << "what is left of a damaged index is hardly ever used";
    internal::test::reportFigure("index", "random queries", tally.queries);
}

INSTANTIATE_TEST_SUITE_P(Part, IndexRandomQueries, ::testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace tabulo::test
