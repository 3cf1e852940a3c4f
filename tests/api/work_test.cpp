// Long work is watched, and ended from outside.
#include <gtest/gtest.h>

#include <stdexcept>

#include "tabulo/damage.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"

namespace tabulo::test {
namespace {

// What a progress callback was told.
struct ToldProgress {
    std::vector<Progress> told;

    Work work() {
        return {.progress = [this](const Progress& progress) { told.push_back(progress); }};
    }
    // Empty when it never went back, nor beyond its total.
    std::string fault() const {
        Progress last;
        for (const Progress& progress : told) {
            if (progress.done < last.done || progress.messages < last.messages) {
                return "it went back to " + std::to_string(progress.done) + " from " + std::to_string(last.done);
            }
            if (progress.done < 0 || progress.done > progress.total) {
                return std::to_string(progress.done) + " of " + std::to_string(progress.total) + " are done";
            }
            if (last.total != 0 && progress.total != last.total) {
                return "the total has changed";
            }
            last = progress;
        }
        return "";
    }
};

class ApiWork : public TableTest {
  protected:
    static Query direction(bool backward) {
        Query query;
        if (backward) {
            query.backward();
        }
        return query;
    }
};

TEST_F(ApiWork, TellsItsProgressBetweenBlocks) {
    StoredTable table(path(), layout, simpleMessages(16));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        ToldProgress progress;
        Messages messages = reader.messages(direction(backward), progress.work());
        EXPECT_EQ(walkFault(messages, table, numbersOf(0, 16, backward)), "");
        EXPECT_EQ(progress.fault(), "");
        ASSERT_GE(progress.told.size(), 5u) << "between six blocks";
        EXPECT_GE(progress.told.back().messages, 13);
        EXPECT_LE(progress.told.back().messages, 16);
        EXPECT_LE(progress.told.back().total, static_cast<std::int64_t>(fileBytes().size()));
        EXPECT_GE(progress.told.back().total, table.end().offset - table.place(0).offset);
        EXPECT_GE(progress.told.back().done * 2, progress.told.back().total);
    }
}

TEST_F(ApiWork, TellsItsProgressAlsoOverBlocksThatAreSkipped) {
    StoredTable table(path(), layout, simpleMessages(30));
    for (const bool backward : {false, true}) {
        Reader reader(path());  // a new one, that has seen no block yet
        ToldProgress progress;
        Messages messages = reader.messages(direction(backward).uniformIds(1000, std::nullopt), progress.work());
        EXPECT_EQ(walkFault(messages, table, {}), "");
        EXPECT_EQ(messages.blocksSkipped(), 10);
        EXPECT_EQ(progress.fault(), "");
        EXPECT_GE(progress.told.size(), 9u);
    }
}

TEST_F(ApiWork, TellsItsProgressOfTheStretchThatIsAskedFor) {
    StoredTable table(path(), layout, simpleMessages(30));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        ToldProgress progress;
        Query query = direction(backward).from(table.place(12)).before(table.place(24));
        Messages messages = reader.messages(query, progress.work());
        EXPECT_EQ(walkFault(messages, table, numbersOf(12, 24, backward)), "");
        EXPECT_EQ(progress.fault(), "");
        ASSERT_GE(progress.told.size(), 3u);
        EXPECT_LE(progress.told.back().total, table.place(24).offset - table.place(12).block);
    }
}

TEST_F(ApiWork, TellsItsProgressAlsoInTheMidstOfABlockThatIsSalvaged) {
    const Layout large = ordersLayout(10'000);
    Writer::create(path(), large).appendFrames(simpleFrames(large, 1, 3500));
    ToldProgress progress;
    EXPECT_EQ(salvage(path(), {}, {}, progress.work()).messages, 3500);
    EXPECT_EQ(progress.fault(), "");
    std::int64_t before = 0;
    for (const Progress& told : progress.told) {
        EXPECT_LE(told.messages - before, 1000) << "behind " << before << " messages";
        before = told.messages;
    }
    EXPECT_EQ(before, 3500);
}

TEST_F(ApiWork, TellsItsProgressFromBlockToBlock) {
    const StoredTable table(path(), layout, simpleMessages(30));
    Reader reader(path());
    ToldProgress progress;
    std::vector<std::int64_t> begins;
    for (const BlockRecord& block : reader.blocks(progress.work())) {
        begins.push_back(block.offset - reader.begin().block);
    }
    std::vector<std::int64_t> done;
    for (const Progress& told : progress.told) {
        done.push_back(told.done);
    }
    ASSERT_GE(done.size(), begins.size());
    done.resize(begins.size());
    EXPECT_EQ(done, begins) << "told in front of each block: all bytes of those before";
    EXPECT_EQ(progress.fault(), "");
}

TEST_F(ApiWork, TellsItsProgressEveryThousandMessagesInsideLongBlocks) {
    layout = {.messagesPerBlock = 4000, .summarisedTexts = 0};
    StoredTable table(path(), layout);
    std::vector<std::byte> frames;
    for (std::int32_t n = 1; n <= 7500; ++n) {
        encode({.uniformId = n, .seqNum = n}, layout, frames);
    }
    table.writer.appendFrames(frames);
    Reader reader(path());
    for (const bool backward : {false, true}) {
        ToldProgress progress;
        EXPECT_EQ(idsOf(reader.messages(direction(backward), progress.work())).size(), 7500u);
        EXPECT_EQ(progress.fault(), "");
        EXPECT_GE(progress.told.size(), 6u);
        std::int64_t last = 0;
        for (const Progress& told : progress.told) {
            EXPECT_LE(told.messages - last, 1000);
            last = told.messages;
        }
        EXPECT_GE(last, 6500);
        ToldProgress selecting;
        EXPECT_EQ(idsOf(reader.messages(direction(backward).inverted(), selecting.work())).size(), 0u);
        EXPECT_GE(selecting.told.size(), 6u) << "messages that are not wanted are looked at, too";
    }
}

TEST_F(ApiWork, EndsWhenItIsAskedToStop) {
    StoredTable table(path(), layout, simpleMessages(30));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        std::stop_source source;
        Messages messages = reader.messages(direction(backward), {.stop = source.get_token()});
        ASSERT_NE(messages.next(), nullptr);
        source.request_stop();
        int more = 0;
        while (messages.next() != nullptr) {
            more += 1;
        }
        EXPECT_LE(more, 2) << "it went on into another block";
        EXPECT_EQ(messages.ending(), Ending::stopped);
        EXPECT_EQ(messages.current(), nullptr);
        EXPECT_EQ(messages.next(), nullptr);
        EXPECT_EQ(messages.ending(), Ending::stopped);
    }
}

TEST_F(ApiWork, DoesNotBeginWhenItWasStoppedBefore) {
    StoredTable table(path(), layout, simpleMessages(5));
    Reader reader(path());
    std::stop_source source;
    source.request_stop();
    for (const bool backward : {false, true}) {
        Messages messages = reader.messages(direction(backward), {.stop = source.get_token()});
        EXPECT_EQ(messages.next(), nullptr);
        EXPECT_EQ(messages.ending(), Ending::stopped);
        EXPECT_EQ(messages.blocksRead(), 0);
    }
    Blocks blocks = reader.blocks({.stop = source.get_token()});
    EXPECT_EQ(blocks.next(), nullptr);
    EXPECT_EQ(blocks.ending(), Ending::stopped);
}

TEST_F(ApiWork, EndsAlsoWhenItWaitsForMoreAtTheEndOfTheData) {
    StoredTable table(path(), layout, simpleMessages(5));
    std::stop_source source;
    Messages messages = Reader(path()).messages(Query(), {.stop = source.get_token()});
    EXPECT_EQ(walkFault(messages, table, numbersOf(0, 5)), "");
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::data);
    source.request_stop();
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::stopped);
    table.append(simpleMessage(6));
    EXPECT_EQ(messages.next(), nullptr);
}

TEST_F(ApiWork, EndsInsideAStretchThatGivesNothing) {
    StoredTable table(path(), layout, simpleMessages(60));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        for (const bool skipping : {false, true}) {
            std::stop_source source;
            int calls = 0;
            const Work work{.stop = source.get_token(), .progress = [&](const Progress&) {
                                calls += 1;
                                if (calls == 3) {
                                    source.request_stop();
                                }
                            }};
            Query query = direction(backward).seqNums(1000, std::nullopt);
            if (!skipping) {
                query = direction(backward).possDup(true).text(BuiltInText::wire, TextCondition::below("3"));
            }
            Messages messages = reader.messages(query, work);
            EXPECT_EQ(messages.next(), nullptr);
            EXPECT_EQ(messages.ending(), Ending::stopped);
            EXPECT_LE(messages.blocksRead() + messages.blocksSkipped(), 5);
            EXPECT_LE(calls, 4);
        }
    }
}

struct OwnException : std::runtime_error {
    using std::runtime_error::runtime_error;
};

TEST_F(ApiWork, GivesWhatItsCallbackThrowsToTheCaller) {
    StoredTable table(path(), layout, simpleMessages(30));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        int calls = 0;
        const Work work{.progress = [&](const Progress&) {
            calls += 1;
            if (calls == 2) {
                throw OwnException("enough");
            }
        }};
        Messages messages = reader.messages(direction(backward), work);
        int given = 0;
        EXPECT_THROW(
            {
                while (messages.next() != nullptr) {
                    given += 1;
                }
            },
            OwnException);
        EXPECT_EQ(calls, 2);
        EXPECT_GE(given, 3);
        EXPECT_LE(given, 9);
        EXPECT_EQ(messages.current(), nullptr);
    }
    Messages others = reader.messages();
    EXPECT_EQ(walkFault(others, table, numbersOf(0, 30)), "") << "the reader goes on";
}

TEST_F(ApiWork, OverBlocksTellsItsProgressAndEnds) {
    StoredTable table(path(), layout, simpleMessages(31));
    Reader reader(path());
    ToldProgress progress;
    Blocks all = reader.blocks(progress.work());
    int count = 0;
    while (all.next() != nullptr) {
        count += 1;
    }
    EXPECT_EQ(count, 11);
    EXPECT_EQ(all.ending(), Ending::data);
    EXPECT_EQ(progress.fault(), "");
    EXPECT_GE(progress.told.size(), 10u);
    std::stop_source source;
    Blocks stopped = reader.blocks({.stop = source.get_token()});
    ASSERT_NE(stopped.next(), nullptr);
    source.request_stop();
    EXPECT_EQ(stopped.next(), nullptr);
    EXPECT_EQ(stopped.ending(), Ending::stopped);
    EXPECT_EQ(stopped.current(), nullptr);
    Blocks throwing = reader.blocks({.progress = [](const Progress&) { throw OwnException("enough"); }});
    EXPECT_THROW(
        {
            while (throwing.next() != nullptr) {
            }
        },
        OwnException);
}

}  // namespace
}  // namespace tabulo::test
