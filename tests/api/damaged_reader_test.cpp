// Reading tables that are damaged, that fail to be read, or that change under the reader.
#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>
#include <stop_token>

#include "tabulo/reader.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"
#include "tests/support/fault_platform.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::FaultPlatform;
using internal::test::FileCall;
using internal::test::Random;
using Ids = std::vector<std::int32_t>;

class ApiDamagedReader : public TableTest {
  protected:
    // A closed table of ten simple messages; their places are kept.
    void makeTable() {
        StoredTable table(path(), layout, simpleMessages(10));
        places = table.places;
    }
    void patch(std::int64_t offset, const Bytes& bytes) {
        internal::test::patchFile(path().string(), static_cast<std::size_t>(offset), bytes);
    }
    // The ids that come, and the code of the error or "" behind them.
    static std::pair<Ids, std::string> walk(Reader& reader, const Query& query) {
        std::pair<Ids, std::string> seen;
        try {
            Messages messages = reader.messages(query);
            while (messages.next() != nullptr) {
                seen.first.push_back(messages.current()->uniformId());
            }
        } catch (const Error& error) {
            seen.second = error.name();
        }
        return seen;
    }

    // A copy of the table with random bytes mostly where a rule stands: at a length word, a frame or a footer's end.
    Bytes damaged(Random& random, const Bytes& sound) const {
        Bytes bytes = sound;
        for (std::int32_t n = random.between(1, 4); n > 0; --n) {
            const Position& place = places[static_cast<std::size_t>(random.below(11))];
            const std::int64_t near = random.percent(50) ? place.offset : place.block;
            const std::int64_t offset = random.percent(20) ? random.below(static_cast<std::int32_t>(sound.size()))
                                                           : near + random.between(-9, 40);
            for (std::int64_t i = offset; i < offset + random.between(1, 12); ++i) {
                if (i >= 0 && i < static_cast<std::int64_t>(bytes.size())) {
                    bytes[static_cast<std::size_t>(i)] =
                        random.percent(50) ? std::uint8_t{0} : static_cast<std::uint8_t>(random.bits());
                }
            }
        }
        if (random.percent(20)) {
            bytes.resize(static_cast<std::size_t>(random.below(static_cast<std::int32_t>(bytes.size()))));
        }
        return bytes;
    }

    std::vector<Position> places;
};

TEST_F(ApiDamagedReader, IsNotConcernedByADamagedBlockBehindThePlaceUpToWhichItIsAsked) {
    makeTable();
    patch(places[3].block, internal::test::pattern(8, 77));
    Reader reader(path());
    using Walk = std::pair<Ids, std::string>;
    EXPECT_EQ(walk(reader, Query()), Walk(idsUpTo(3), "HEADER_CORRUPTED_ERROR"));
    EXPECT_EQ(walk(reader, Query().before(places[3])), Walk(idsUpTo(3), ""));
    EXPECT_EQ(walk(reader, Query().before(places[3]).backward()), Walk({3, 2, 1}, ""));
    EXPECT_EQ(walk(reader, Query().before(places[2])), Walk(idsUpTo(2), ""));
}

TEST_F(ApiDamagedReader, IsNotConcernedByADamagedBlockInFrontOfThePlaceFromWhichItIsAsked) {
    makeTable();
    patch(places[3].block, internal::test::pattern(8, 77));
    Reader reader(path());
    using Walk = std::pair<Ids, std::string>;
    EXPECT_EQ(walk(reader, Query().backward()), Walk({10, 9, 8, 7}, "HEADER_CORRUPTED_ERROR"));
    EXPECT_EQ(walk(reader, Query().from(places[6])), Walk({7, 8, 9, 10}, ""));
    EXPECT_EQ(walk(reader, Query().from(places[6]).backward()), Walk({10, 9, 8, 7}, ""));
    EXPECT_EQ(walk(reader, Query().from(places[7]).backward()), Walk({10, 9, 8}, ""));
}

TEST_F(ApiDamagedReader, CountsNoMessagesOverADamagedBlock) {
    makeTable();
    patch(places[3].block, internal::test::pattern(8, 77));
    Reader reader(path());
    Messages messages = reader.messages(Query().from(places[6]));
    ASSERT_NE(messages.next(), nullptr);
    EXPECT_TABULO_ERROR(headerCorrupted, static_cast<void>(messages.current()->ordinal()));
}

TEST_F(ApiDamagedReader, TellsOfBytesBehindTheLastMessageOnceAllAreGiven) {
    makeTable();
    const std::int64_t end = places[10].offset;
    internal::test::appendFile(path().string(), internal::test::pattern(100, 5));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        Messages messages = reader.messages(backward ? Query().backward() : Query());
        Ids ids;
        const Error error = errorOf([&] {
            while (messages.next() != nullptr) {
                ids.push_back(messages.current()->uniformId());
            }
        });
        EXPECT_EQ(error.code(), Code::consistency);
        EXPECT_EQ(error.offset(), end) << (backward ? "backward" : "forward");
        EXPECT_EQ(ids, backward ? (Ids{10, 9, 8, 7, 6, 5, 4, 3, 2, 1}) : idsUpTo(10));
    }
    Blocks blocks = reader.blocks();
    for (const std::int32_t count : {3, 3, 3, 1}) {
        ASSERT_NE(blocks.next(), nullptr);
        EXPECT_EQ(blocks.current()->messageCount, count);
    }
    const Error error = errorOf([&] { blocks.next(); });
    EXPECT_EQ(error.code(), Code::consistency);
    EXPECT_EQ(error.offset(), end);
    EXPECT_EQ(reader.positionOf(9), places[9]);
    using Walk = std::pair<Ids, std::string>;
    EXPECT_EQ(walk(reader, Query().before(places[10])), Walk(idsUpTo(10), "")) << "the damage stands behind the place";
    EXPECT_EQ(walk(reader, Query().from(places[0]).backward()),
              Walk({10, 9, 8, 7, 6, 5, 4, 3, 2, 1}, "CONSISTENCY_ERROR"));
}

TEST_F(ApiDamagedReader, AWalkBackwardThatIsStoppedDoesNotTellOfBytesBehindTheLastMessage) {
    makeTable();
    internal::test::appendFile(path().string(), internal::test::pattern(100, 5));
    Reader reader(path());
    std::stop_source stop;
    Messages messages = reader.messages(Query().backward(), {.stop = stop.get_token()});
    ASSERT_NE(messages.next(), nullptr);
    stop.request_stop();
    while (messages.next() != nullptr) {
        ASSERT_GT(messages.current()->uniformId(), 1) << "it was not stopped";
    }
    EXPECT_EQ(messages.ending(), Ending::stopped);
}

// What comes behind damage is not to be had by asking again: the file may have become another one meanwhile.
TEST_F(ApiDamagedReader, BlocksEndAtDamageAlsoWhenThatIsMendedMeanwhile) {
    makeTable();
    const Bytes sound = fileBytes();
    patch(places[3].block, internal::test::pattern(8, 77));
    Reader reader(path());
    Blocks blocks = reader.blocks();
    ASSERT_NE(blocks.next(), nullptr);
    const Error first = errorOf([&] { blocks.next(); });
    EXPECT_EQ(first.code(), Code::headerCorrupted);
    internal::test::writeFile(path().string(), sound);
    const Error again = errorOf([&] { blocks.next(); });
    EXPECT_EQ(again.code(), first.code());
    EXPECT_EQ(again.offset(), first.offset());
}

// Each read of a walk fails once; it goes on when it is asked again.
TEST_F(ApiDamagedReader, LosesAndRepeatsNothingWhenTheSystemFailsAndIsAskedAgain) {
    StoredTable table(path(), layout, simpleMessages(10));
    int failures = 0;
    for (const FileCall call : {FileCall::readAt, FileCall::size}) {
        for (const bool backward : {false, true}) {
            for (int n = 1; n <= 40; ++n) {
                SCOPED_TRACE(std::string(fileCallName(call)) + " " + std::to_string(n) +
                             (backward ? " backward" : " forward"));
                FaultPlatform platform;
                Reader reader(path());
                Messages messages = reader.messages(backward ? Query().backward() : Query());
                platform.clear();
                platform.failNth(call, n, EIO);
                for (const std::size_t index : numbersOf(0, 10, backward)) {
                    const MessageView* message = nullptr;
                    try {
                        message = messages.next();
                    } catch (const Error& error) {
                        failures += 1;
                        EXPECT_EQ(error.systemText(), "Input/output error") << error.what();
                        EXPECT_EQ(error.path(), path());
                        EXPECT_EQ(messages.current(), nullptr);
                        message = messages.next();
                    }
                    ASSERT_NE(message, nullptr);
                    ASSERT_EQ(message->position(), table.place(index));
                    ASSERT_EQ(message->uniformId(), static_cast<std::int32_t>(index) + 1);
                }
            }
        }
    }
    EXPECT_GE(failures, 10);
}

TEST_F(ApiDamagedReader, CountsFromTheBeginningAgainWhenTheTableWasDropped) {
    StoredTable table(path(), layout, simpleMessages(11));
    Reader reader(path());
    Messages before = reader.messages(Query().backward());
    ASSERT_EQ(walkFault(before, table, numbersOf(0, 11, true)), "");
    Messages kept = reader.messages(Query().from(table.place(7)));
    ASSERT_EQ(walkFault(kept, table, numbersOf(7, 11)), "");
    table.drop();
    std::vector<StoredMessage> longer = simpleMessages(20);
    for (StoredMessage& message : longer) {
        message.wire = std::string(100, 'x');
    }
    table.appendAll(longer);
    Messages backward = reader.messages(Query().backward());
    EXPECT_EQ(walkFault(backward, table, numbersOf(0, 20, true)), "");
    for (std::size_t from = 0; from <= 20; ++from) {
        Messages behind = reader.messages(Query().from(table.place(from)));
        EXPECT_EQ(walkFault(behind, table, numbersOf(from, 20)), "");
    }
}

TEST_F(ApiDamagedReader, SaysThatItWasNotCompletedWhenTheTableIsDroppedUnderACount) {
    StoredTable table(path(), layout, simpleMessages(30));
    const ClassCounts counts = countByClass(path(), {.progress = [&](const Progress& progress) {
                                                if (progress.messages == 6) {
                                                    table.drop();
                                                }
                                            }});
    EXPECT_LT(counts.total, 30);
    EXPECT_FALSE(counts.complete);
}

// Random bytes over random places: whatever is asked gives an answer or an Error, and comes to an end.
TEST_F(ApiDamagedReader, GivesAnswersOrErrorsWhateverTheFileHolds) {
    makeTable();
    const Bytes sound = fileBytes();
    const std::uint32_t seed = internal::test::testSeed();
    Random random(seed);
    int errors = 0;
    int walks = 0;
    for (int image = 0; image < 400 * internal::test::testEffort(); ++image) {
        SCOPED_TRACE("image " + std::to_string(image) + " of seed " + std::to_string(seed));
        internal::test::writeFile(path().string(), damaged(random, sound));
        try {
            Reader reader(path());
            std::vector<Query> queries = {Query(), Query().backward(), Query().seqNums(4, 8).inverted()};
            for (const Position& place : places) {
                queries.push_back(Query().from(place));
                queries.push_back(Query().before(place).backward());
            }
            for (const Query& query : queries) {
                const auto seen = walk(reader, query);
                EXPECT_LE(seen.first.size(), 200u);
                errors += seen.second.empty() ? 0 : 1;
                walks += 1;
            }
            for (const auto& ask : std::vector<std::function<void()>>{
                     [&] { static_cast<void>(reader.positionOfUniformId(8)); },
                     [&] { static_cast<void>(reader.positionOf(8)); }, [&] { static_cast<void>(reader.end()); },
                     [&] { static_cast<void>(reader.lastUniformId()); },
                     [&] { static_cast<void>(countByClass(path())); },
                     [&] {
                         for (const BlockRecord& block : reader.blocks()) {
                             EXPECT_GT(block.messageCount, 0);
                         }
                     }}) {
                try {
                    ask();
                } catch (const Error&) {
                    errors += 1;
                }
            }
        } catch (const Error&) {
            errors += 1;
        }
    }
    std::cout << errors << " errors, " << walks << " walks\n";
    EXPECT_GT(errors, 100);
    EXPECT_GT(walks, errors / 8);
}

}  // namespace
}  // namespace tabulo::test
