#include <gtest/gtest.h>

#include <iostream>

#include "tests/api/api_test.h"
#include "tests/api/random_query.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::testEffort;
using internal::test::testSeed;

constexpr int tablesPerRun = 60;
constexpr int queriesPerTable = 25;

class ApiRandomQueries : public ::testing::Test {
  protected:
    // Begins a table of this number; its random numbers follow from the seed and the number alone.
    void beginTable(std::uint32_t seed, int number) {
        trace = "table " + std::to_string(number) + " of a run with " + internal::test::TEST_SEED_VARIABLE + "=" +
                std::to_string(seed);
        random.emplace(seed + static_cast<std::uint32_t>(number) * 7919U);
        table.emplace(directory.file("t" + std::to_string(number)), randomLayout(*random));
    }
    void store(std::int32_t count) {
        for (std::int32_t i = 0; i < count; ++i) {
            table->append(randomMessage(*random, *table));
        }
    }
    ModelQuery someQuery() {
        std::string fault;
        ModelQuery model = randomQuery(*random, *table, &fault);
        EXPECT_EQ(fault, "") << trace;
        refused += model.refused;
        return model;
    }

    // Asks one query, and compares with what it says of every message.
    void expectAnswer(Reader& reader, const ModelQuery& model) {
        const std::vector<std::size_t> expected = model.expected(*table);
        const Query copy = model.query;
        Messages messages = reader.messages(random->percent(50) ? model.query : copy);
        EXPECT_EQ(walkFault(messages, *table, expected), "");
        selected += static_cast<std::int64_t>(expected.size());
        asked += static_cast<std::int64_t>(table->count());
        skipped += messages.blocksSkipped();
        EXPECT_GE(messages.messagesRead(), static_cast<std::int64_t>(expected.size()));
        const auto blocks = static_cast<std::int64_t>(table->blockCount());
        if (model.inverted) {
            EXPECT_EQ(messages.blocksSkipped(), 0);
        }
        if (!model.from.has_value() && !model.before.has_value()) {
            EXPECT_EQ(messages.blocksRead() + messages.blocksSkipped(), blocks);
        } else {
            EXPECT_LE(messages.blocksRead() + messages.blocksSkipped(), blocks);
        }
    }

    const TemporaryDirectory directory;
    std::string trace;
    std::optional<Random> random;
    std::optional<StoredTable> table;
    std::int64_t selected = 0;
    std::int64_t asked = 0;
    std::int64_t skipped = 0;
    std::int64_t refused = 0;
};

TEST_F(ApiRandomQueries, SelectWhatTheirConditionsSay) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; number < tablesPerRun * testEffort(); ++number) {
        beginTable(seed, number);
        store(random->below(40));
        if (random->percent(50)) {
            table->writer.close();
        }
        Reader reader(table->writer.path());
        for (int i = 0; i < queriesPerTable; ++i) {
            const ModelQuery model = someQuery();
            SCOPED_TRACE(trace + ", query " + std::to_string(i) + ": " + model.words);
            expectAnswer(reader, model);
            if (HasFailure()) {
                return;
            }
        }
    }
    std::cout << 100 * selected / asked << "% of the messages selected, " << skipped << " blocks skipped, " << refused
              << " conditions refused\n";
    EXPECT_GE(selected * 100, asked * 10) << "the queries hardly select anything";
    EXPECT_LE(selected * 100, asked * 80) << "the queries hardly leave anything out";
    EXPECT_GE(skipped, tablesPerRun) << "hardly any block was skipped";
    EXPECT_GE(refused, 1) << "no two conditions excluded each other";
}

TEST_F(ApiRandomQueries, GoOnWithWhatIsStoredSince) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; number < tablesPerRun * testEffort(); ++number) {
        beginTable(seed, number);
        store(random->below(20));
        Reader reader(table->writer.path());
        std::vector<ModelQuery> models;
        std::vector<Messages> ranges;
        std::vector<std::size_t> given;
        for (int i = 0; i < 6; ++i) {
            models.push_back(someQuery());
            ranges.push_back(reader.messages(models.back().query));
            given.push_back(0);
        }
        for (int part = 0; part < 4; ++part) {
            for (std::size_t i = 0; i < models.size(); ++i) {
                SCOPED_TRACE(trace + ", part " + std::to_string(part) + ", query: " + models[i].words);
                std::vector<std::size_t> expected = models[i].expected(*table);
                if (models[i].backward) {
                    // It has come to the beginning in the first part.
                    expected = part == 0 ? expected : std::vector<std::size_t>{};
                } else {
                    expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(given[i]));
                    given[i] += expected.size();
                }
                ASSERT_EQ(walkFault(ranges[i], *table, expected), "");
            }
            store(random->below(9));
        }
    }
}

// With a few of the messages taken from each of several ranges in turn, while more are stored.
TEST_F(ApiRandomQueries, OfOneReaderDoNotDisturbOneAnother) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; number < tablesPerRun * testEffort(); ++number) {
        beginTable(seed, number);
        store(random->between(5, 40));
        Reader reader(table->writer.path());
        std::vector<ModelQuery> models;
        std::vector<Messages> ranges;
        std::vector<std::vector<std::size_t>> expected;
        for (int i = 0; i < 4; ++i) {
            models.push_back(someQuery());
            ranges.push_back(reader.messages(models.back().query));
            expected.push_back(models.back().expected(*table));
        }
        for (std::size_t step = 0; step <= table->count(); ++step) {
            for (std::size_t i = 0; i < models.size(); ++i) {
                SCOPED_TRACE(trace + ", step " + std::to_string(step) + ", query: " + models[i].words);
                const MessageView* message = ranges[i].next();
                ASSERT_EQ(message != nullptr, step < expected[i].size());
                if (message != nullptr) {
                    ASSERT_EQ(viewFault(*message, *table, expected[i][step]), "");
                }
            }
        }
    }
}

}  // namespace
}  // namespace tabulo::test
