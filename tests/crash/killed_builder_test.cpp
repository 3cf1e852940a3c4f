// Builders of a side index that are killed at random moments beside a live writer, also while they merge.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>

#include "index/index_builder.h"
#include "index/side_index.h"
#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/crash/shared_page.h"
#include "tests/crash/signal_points.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int ROUNDS = 30;
#else
constexpr int ROUNDS = 100;
#endif
constexpr int KILLED = 256 + SIGKILL;
constexpr std::int32_t MOST_WRITTEN = 80;  // while one builder works
constexpr std::int32_t LARGEST_TABLE = 1500;
constexpr int LONGEST_LIFE_EXPONENT = 13;  // 2^13 microseconds

struct BuilderState {
    std::atomic<std::int64_t> updates = 0;  // that have covered blocks
    std::atomic<std::int64_t> merges = 0;   // that have made fewer runs
    std::atomic<bool> merging = false;
    SharedProblem problem;
};

using Ids = std::vector<std::int32_t>;

class KilledBuilder : public TableImageTest {
  protected:
    void SetUp() override {
        seed = testSeed();
        random.seed(seed);
        shape.stringNames = {"Symbol", "ClOrdID"};
        shape.numericNames = {"OrderQty"};
        open(OpenMode::create);
        reader = openTable(directory.root(), OpenMode::read, shape);
    }

    // Covers blocks as they are closed, a few in a run, and merges now and then; ends when something fails.
    int buildUntilKilled(std::uint64_t life) const {
        std::mt19937_64 numbers(life);
        const MessageTablePtr built = openTable(directory.root(), OpenMode::read, shape);
        IndexBuilder builder(path(), mt_layout(reader.get()));
        ErrorCode code = builder.open();
        while (code == NO_ERROR) {
            const std::uint32_t before = builder.slot().coveredBlocks;
            code = builder.update(built.get(), numbers() % 4 == 0 ? 1 : 3, {});
            state->updates += builder.slot().coveredBlocks > before ? 1 : 0;
            if (code == NO_ERROR && numbers() % 3 == 0) {
                const std::size_t runs = builder.slot().runs.size();
                state->merging.store(runs > 1);
                code = builder.merge();
                state->merging.store(false);
                state->merges += builder.slot().runs.size() < runs ? 1 : 0;
            }
        }
        return state->problem.report(std::string("a builder ends: ") + getErrorMessage(code));
    }

    void writeOne() {
        last += 1;
        ASSERT_EQ(write(simpleMessage(last, shape)), NO_ERROR);
    }
    void killOneBuilder() {
        const std::uint64_t life = random();
        const int call = random() % 2 == 0 ? 1 + static_cast<int>(random() % (random() % 4 == 0 ? 10 : 120)) : 0;
        state->merging.store(false);
        const ProcessSignal begun;
        ChildProcess builder([&] {
            if (call > 0) {
                killAtCall(call, life);
            }
            begun.raise();
            return buildUntilKilled(life);
        });
        ASSERT_TRUE(begun.await());
        const std::uint64_t longest = std::uint64_t{1} << (random() % (LONGEST_LIFE_EXPONENT + 1));
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % longest);
        const auto fewest = static_cast<std::int32_t>(random() % MOST_WRITTEN);
        std::int32_t written = 0;
        do {
            if (written++ < MOST_WRITTEN) {
                ASSERT_NO_FATAL_FAILURE(writeOne());
            }
            ::usleep(10);
        } while ((written < fewest || std::chrono::steady_clock::now() < end) && !state->problem.isThere());
        ASSERT_EQ(builder.kill(), KILLED) << state->problem.sentence();
        killedMerging += state->merging.load() ? 1 : 0;
    }

    Ids idsOf(QueryConditionsPtr conditions, bool backward) {
        Ids ids;
        EXPECT_EQ(conditions_setIterateBackward(conditions.get(), backward), NO_ERROR);
        const MessageTableIteratorPtr iterator(mtIterator_open(reader.get(), conditions.release()));
        bool end = false;
        while (iterator != nullptr && mtIterator_next(iterator.get(), &end) == NO_ERROR && !end) {
            ids.push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
        EXPECT_TRUE(end) << "an iterator has failed";
        return ids;
    }
    // What look-ups and queries about message n answer.
    std::vector<Ids> answers(std::int32_t n) {
        const Message message = simpleMessage(n, shape);
        std::vector<Ids> all;
        for (const bool backward : {false, true}) {
            for (std::int32_t slot = 0; slot < mt_layout(reader.get()).stringFieldCount - 2; ++slot) {
                QueryConditionsPtr text(conditions_create());
                const std::string value = message.strings[static_cast<std::size_t>(slot)].value_or("none");
                EXPECT_EQ(conditions_addStringFilter(text.get(), slot, false, false), NO_ERROR);
                EXPECT_EQ(conditions_setStringFilterValueCount(text.get(), 1), NO_ERROR);
                EXPECT_EQ(conditions_setStringFilterValue(text.get(), value.c_str(), 0), NO_ERROR);
                all.push_back(idsOf(std::move(text), backward));
            }
            QueryConditionsPtr range(conditions_create());
            EXPECT_EQ(conditions_setSeqNumRange(range.get(), n, n + 9), NO_ERROR);
            all.push_back(idsOf(std::move(range), backward));
        }
        all.push_back({});
        const std::int32_t id = message.metadata.connMsgId;
        const MessageListener listener{&all.back(),
                                       [](void* owner, const MessageView& found, Visit*) {
                                           static_cast<Ids*>(owner)->push_back(found.metadata.uniformId);
                                           return NO_ERROR;
                                       },
                                       [](void*, ErrorCode code) { return code; }};
        EXPECT_EQ(mt_readMessages(reader.get(), &id, 1, &listener, false), NO_ERROR);
        UniformPlace place;
        EXPECT_EQ(mt_findUniformId(reader.get(), n, &place), NO_ERROR);
        all.push_back({static_cast<std::int32_t>(place.offset), static_cast<std::int32_t>(place.ordinal)});
        return all;
    }
    void checkQueries() {
        for (int i = 0; i < 6; ++i) {
            const std::int32_t n = 1 + static_cast<std::int32_t>(random() % static_cast<std::uint32_t>(last + 4));
            mt_useSideIndex(reader.get(), false);
            const std::vector<Ids> without = answers(n);
            mt_useSideIndex(reader.get(), true);
            ASSERT_EQ(answers(n), without) << "about message " << n << " of " << last;
            ASSERT_EQ(without.back().back(), std::min(n, last + 1) - 1) << "the number of message " << n;
        }
        const auto index = sideIndex_of(reader.get(), tableStorage_master(mt_storage(reader.get())));
        used += index != nullptr && index->pagesRead() > 0 ? 1 : 0;
    }
    // Enough for so many rounds: runs were written and merged, merges were hit, and queries have used what was left.
    bool hasBuilt(int rounds) const {
        return state->updates.load() >= rounds / 2 && state->merges.load() >= rounds / 10 &&
               killedMerging >= rounds / 30 && used >= rounds / 2;
    }
    // The next builder finds no lock, and comes to the end.
    void goOn() {
        IndexBuilder builder(path(), mt_layout(reader.get()));
        ASSERT_EQ(builder.open(), NO_ERROR) << (builder.isLocked() ? "the lock of a killed builder is left" : "");
        ASSERT_EQ(builder.update(reader.get(), 1, {}), NO_ERROR);
        ASSERT_EQ(builder.slot().coveredBlocks, static_cast<std::uint32_t>(last / shape.messagesPerBlock));
        ASSERT_EQ(builder.merge(), NO_ERROR);
    }

    std::uint32_t seed = 0;
    std::mt19937_64 random;
    SharedPage<BuilderState> state;
    MessageTablePtr reader;
    std::int32_t last = 0;
    int used = 0;
    int killedMerging = 0;
};

TEST_F(KilledBuilder, LeavesAnIndexThatQueriesMayUseAndTheNextOneGoesOnWith) {
    const int fewest = ROUNDS * testEffort();
    int rounds = 0;
    // A slow machine needs more of them until enough has happened.
    for (; rounds < fewest || (!hasBuilt(fewest) && rounds < 10 * fewest); ++rounds) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(rounds));
        if (last > LARGEST_TABLE) {
            ASSERT_EQ(mt_drop(table.get()), NO_ERROR);  // what is left of the index is of what is gone
            last = 0;
            ASSERT_NO_FATAL_FAILURE(writeOne());
        }
        ASSERT_NO_FATAL_FAILURE(killOneBuilder());
        ASSERT_NO_FATAL_FAILURE(checkQueries());
        if (rounds % 8 == 7) {
            ASSERT_NO_FATAL_FAILURE(goOn());
            ASSERT_NO_FATAL_FAILURE(checkQueries());
        }
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            const std::string name = entry.path().filename().string();
            ASSERT_TRUE(name == shape.name || name == shape.name + ".idx" || name == shape.name + ".idx.new") << name;
        }
    }
    std::cout << rounds << " kills, " << killedMerging << " of them while it merged; " << state->updates.load()
              << " runs written, " << state->merges.load() << " times merged, the index used " << used << " times\n";
    EXPECT_TRUE(hasBuilt(fewest)) << "the builders hardly built or merged, or what is left of them is hardly ever used";
    reportFigure("kills", "kills of a builder of an index", rounds);
}

}  // namespace
}  // namespace tabulo::internal::test
