// From where, and up to where, a query is answered.
#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "tabulo/reader.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/support/bytes.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

class ApiMessagePlaces : public TableTest {
  protected:
    // What a query without conditions gives between two places of a table.
    static std::string fault(Reader& reader, const StoredTable& table, std::optional<std::size_t> from,
                             std::optional<std::size_t> before, bool backward) {
        Query query;
        if (backward) {
            query.backward();
        }
        if (from.has_value()) {
            query.from(table.place(*from));
        }
        if (before.has_value()) {
            query.before(table.place(*before));
        }
        Messages messages = reader.messages(query);
        return walkFault(messages, table, numbersOf(from.value_or(0), before.value_or(table.count()), backward));
    }

    static void expectRefused(Reader& reader, const Query& query, const Position& place, const std::string& what) {
        try {
            static_cast<void>(reader.messages(query));
            ADD_FAILURE() << what << " is taken for a place: {" << place.block << ", " << place.offset << "}";
        } catch (const Error& error) {
            EXPECT_EQ(error.code(), Code::vseek) << what << ": " << error.what();
            EXPECT_EQ(error.table(), reader.table());
        }
    }
    static void expectNoPlace(Reader& reader, const Position& place, const std::string& what) {
        expectRefused(reader, Query().from(place), place, what);
        expectRefused(reader, Query().before(place), place, what);
        expectRefused(reader, Query().from(place).backward(), place, what + ", backward");
        expectRefused(reader, Query().before(place).backward(), place, what + ", backward");
    }
};

TEST_F(ApiMessagePlaces, AreNumberedAlsoBehindABlockWhoseLengthWasNotWritten) {
    StoredTable table(path(), layout, simpleMessages(11));
    table.writer.close();
    internal::test::patchFile(path().string(), static_cast<std::size_t>(table.place(3).block), Bytes(8, 0));
    Reader reader(path());
    for (std::size_t from = 0; from < table.count(); ++from) {
        EXPECT_EQ(fault(reader, table, from, std::nullopt, false), "") << "from message " << from;
    }
}

TEST_F(ApiMessagePlaces, AreEndsOfWhatIsGivenInBothDirections) {
    for (std::int32_t count = 0; count <= 8; ++count) {
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        for (const bool closed : {false, true}) {
            if (closed) {
                table.writer.close();
            }
            Reader reader(table.writer.path());
            for (std::size_t from = 0; from <= table.count(); ++from) {
                for (const bool backward : {false, true}) {
                    SCOPED_TRACE(std::to_string(count) + " messages, " + std::to_string(from) +
                                 (backward ? " backward" : " forward"));
                    ASSERT_EQ(fault(reader, table, from, std::nullopt, backward), "");
                    ASSERT_EQ(fault(reader, table, std::nullopt, from, backward), "");
                    for (std::size_t before = 0; before <= table.count(); ++before) {
                        ASSERT_EQ(fault(reader, table, from, before, backward), "") << "before " << before;
                    }
                }
            }
        }
    }
}

TEST_F(ApiMessagePlaces, AreThoseThatMessagesAndLookUpsTell) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    for (const MessageView& message : reader.messages()) {
        const auto index = static_cast<std::size_t>(message.ordinal());
        Messages same = reader.messages(Query().from(message.position()));
        ASSERT_EQ(walkFault(same, table, numbersOf(index, 8)), "");
        Messages behind = reader.messages(Query().from(message.next()));
        ASSERT_EQ(walkFault(behind, table, numbersOf(index + 1, 8)), "");
        Messages inFront = reader.messages(Query().before(message.position()).backward());
        ASSERT_EQ(walkFault(inFront, table, numbersOf(0, index, true)), "");
        Messages upTo = reader.messages(Query().before(message.next()).backward());
        ASSERT_EQ(walkFault(upTo, table, numbersOf(0, index + 1, true)), "");
    }
    Messages all = reader.messages(Query().from(reader.begin()).before(reader.end()));
    EXPECT_EQ(walkFault(all, table, numbersOf(0, 8)), "");
    Messages some = reader.messages(Query().from(reader.positionOfUniformId(4)).before(*reader.positionOf(6)));
    EXPECT_EQ(walkFault(some, table, numbersOf(3, 6)), "");
}

TEST_F(ApiMessagePlaces, OfTheEndStayPlacesWhenMoreIsStored) {
    for (std::int32_t count = 0; count <= 6; ++count) {
        SCOPED_TRACE(count);
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        Reader reader(table.writer.path());
        const Position end = reader.end();
        ASSERT_EQ(end, table.end());
        Messages fromEnd = reader.messages(Query().from(end));
        Messages upToEnd = reader.messages(Query().before(end));
        const auto stored = table.count();
        EXPECT_EQ(walkFault(fromEnd, table, {}), "");
        EXPECT_EQ(walkFault(upToEnd, table, numbersOf(0, stored)), "");
        for (std::int32_t n = 1; n <= 5; ++n) {
            table.append(simpleMessage(count + n));
            EXPECT_EQ(walkFault(fromEnd, table, numbersOf(table.count() - 1, table.count())), "");
            EXPECT_EQ(upToEnd.next(), nullptr) << "what has been stored since stands behind the place";
            EXPECT_EQ(upToEnd.ending(), Ending::data);
            Messages again = reader.messages(Query().from(end));
            EXPECT_EQ(walkFault(again, table, numbersOf(stored, table.count())), "");
            Messages backward = reader.messages(Query().before(end).backward());
            EXPECT_EQ(walkFault(backward, table, numbersOf(0, stored, true)), "");
        }
    }
}

TEST_F(ApiMessagePlaces, OfTheNewestCallHold) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    Query query;
    query.from(table.place(6)).from(table.place(2)).before(table.place(3)).before(table.place(5));
    Messages messages = reader.messages(query);
    EXPECT_EQ(walkFault(messages, table, numbersOf(2, 5)), "");
}

TEST_F(ApiMessagePlaces, AreCheckedWhenTheQueryIsAskedAndNotBefore) {
    StoredTable table(path(), layout, simpleMessages(2));
    Reader reader(path());
    const Query query = Query().from({table.place(0).block, table.end().offset + 8});
    EXPECT_TABULO_ERROR(vseek, static_cast<void>(reader.messages(query)));
    const Query negative = Query().before({-1, -1});
    EXPECT_TABULO_ERROR(vseek, static_cast<void>(reader.messages(negative)));
}

// Every offset of the file with every block: only true places are taken.
TEST_F(ApiMessagePlaces, WhereNoMessageCanStandAreRefused) {
    layout = {.messagesPerBlock = 2, .summarisedTexts = 0};
    for (const std::int32_t count : {0, 1, 3, 4}) {
        StoredTable table(directory.file("t" + std::to_string(count)), layout);
        for (std::int32_t n = 1; n <= count; ++n) {
            table.append({.uniformId = n, .seqNum = n});
        }
        Reader reader(table.writer.path());
        std::set<std::pair<std::int64_t, std::int64_t>> places;
        std::set<std::int64_t> blocks = {0, 1, -1};
        for (const Position& place : table.places) {
            places.emplace(place.block, place.offset);
            blocks.insert({place.block - 1, place.block, place.block + 1, place.block + 8});
        }
        const auto size = static_cast<std::int64_t>(std::filesystem::file_size(table.writer.path()));
        for (const std::int64_t block : blocks) {
            for (std::int64_t offset = -2; offset <= size + 20; ++offset) {
                if (!places.contains({block, offset})) {
                    const Position place{block, offset};
                    expectRefused(reader, Query().from(place), place, "no message's place");
                    expectRefused(reader, Query().before(place).backward(), place, "no message's place");
                }
                if (HasFailure()) {
                    return;
                }
            }
        }
        for (std::size_t i = 0; i <= table.count(); ++i) {
            EXPECT_EQ(fault(reader, table, i, std::nullopt, false), "");
        }
    }
}

TEST_F(ApiMessagePlaces, ThatAreHostileAreRefused) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    const Position first = table.place(0);
    expectNoPlace(reader, {lowest, lowest}, "the lowest number");
    expectNoPlace(reader, {highest, highest}, "the highest number");
    expectNoPlace(reader, {highest - 8, highest}, "the highest number");
    expectNoPlace(reader, {lowest, first.offset}, "a negative block");
    expectNoPlace(reader, {first.block, highest}, "an offset beyond the file");
    expectNoPlace(reader, {highest, first.offset}, "a block beyond the file");
    expectNoPlace(reader, {0, 8}, "the header");
    expectNoPlace(reader, {}, "no position at all");
    expectNoPlace(reader, {first.block - 8, first.offset - 8}, "the header's end");
    expectNoPlace(reader, {first.block, first.block}, "a length word");
    expectNoPlace(reader, {table.place(3).block, table.place(2).offset}, "a message of the block in front");
    expectNoPlace(reader, {table.place(3).block, table.place(6).offset}, "a message of the block behind");
    expectNoPlace(reader, {table.place(2).block, table.place(2).offset + 1}, "the inside of a message");
    const std::int64_t length = table.place(2).offset - table.place(1).offset;
    expectNoPlace(reader, {table.place(2).block, table.place(2).offset + length + 4}, "the inside of a footer");
    expectNoPlace(reader, {table.end().block, table.end().offset + 1}, "a place behind the end");
    expectNoPlace(reader, {table.end().offset, table.end().offset + 8}, "a block behind the open one");
}

TEST_F(ApiMessagePlaces, ARefusalTellsWhatStandsThere) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    const auto told = [&](const Position& place) {
        return errorOf([&] { static_cast<void>(reader.messages(Query().from(place))); }).detail();
    };
    const Position place = table.place(3);
    EXPECT_NE(told({place.block, place.block + 7}).find("messages stand behind their block's length"),
              std::string::npos)
        << told({place.block, place.block + 7});
    EXPECT_NE(told({place.block + 1, place.block + 9}).find("no block begins there"), std::string::npos)
        << told({place.block + 1, place.block + 9});
}

TEST_F(ApiMessagePlaces, OfAnotherTableAreRefusedWhereNoMessageStandsHere) {
    const StoredTable table(path(), layout, simpleMessages(8));
    StoredMessage longer = simpleMessage(1);
    longer.wire = std::string(100, 'x');
    const StoredTable other(directory.file("other"), layout, {longer, simpleMessage(2), simpleMessage(3), longer});
    Reader reader(path());
    for (const std::size_t i : {1u, 2u, 3u, 4u}) {
        expectNoPlace(reader, other.place(i), "a place of another table");
    }
}

TEST_F(ApiMessagePlaces, AreNotInsideAMessageThatHoldsAWholeTable) {
    std::vector<Position> inner;
    {
        const StoredTable table(directory.file("inner"), layout, simpleMessages(8));
        inner = table.places;
    }
    const Bytes bytes = readFile(directory.file("inner"));
    const std::string copy(bytes.begin() + inner[0].block, bytes.end());
    std::vector<StoredMessage> messages = simpleMessages(8);
    messages[4].wire = copy;
    const StoredTable table(path(), layout, messages);
    const Bytes file = fileBytes();
    const std::string outer(file.begin(), file.end());
    const std::size_t found = outer.find(copy);
    ASSERT_NE(found, std::string::npos);
    const std::int64_t moved = static_cast<std::int64_t>(found) - inner[0].block;
    Reader reader(path());
    for (const Position& place : inner) {
        expectNoPlace(reader, {table.place(4).block, place.offset + moved}, "a message inside another one");
        expectNoPlace(reader, {place.block + moved, place.offset + moved}, "a block inside a message");
    }
    EXPECT_EQ(fault(reader, table, 4, std::nullopt, false), "");
}

TEST_F(ApiMessagePlaces, AreRefusedWhenTheTableWasDroppedAndIsShorter) {
    StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    const Position place = table.place(7);
    EXPECT_NO_THROW(static_cast<void>(reader.messages(Query().from(place))));
    table.drop();
    EXPECT_TABULO_ERROR(vseek, static_cast<void>(reader.messages(Query().from(place))));
    Messages messages = reader.messages(Query().from(reader.begin()));
    table.append(simpleMessage(1));
    EXPECT_EQ(walkFault(messages, table, {0}), "");
}

// What a writer leaves that is stopped in or behind a footer, before it has written the block's length and saved what
// its header says of the last messages: the next message's place may lie beyond the file.
TEST_F(ApiMessagePlaces, LieBehindAFooterWhoseBlockIsNotClosedYet) {
    for (const int missing : {100, 1, 0}) {
        SCOPED_TRACE(std::to_string(missing) + " bytes of the footer are missing");
        const std::filesystem::path file = directory.file("missing" + std::to_string(missing));
        StoredTable table(file, layout, simpleMessages(5));
        Bytes header = readFile(file.string());
        header.resize(static_cast<std::size_t>(table.place(0).block));
        table.append(simpleMessage(6));
        table.writer.close();
        internal::test::patchFile(file.string(), 0, header);
        internal::test::patchFile(file.string(), static_cast<std::size_t>(table.place(3).block), Bytes(8, 0));
        std::filesystem::resize_file(file, static_cast<std::uintmax_t>(table.end().block - missing));
        Reader reader(file);
        const Position end = reader.end();
        EXPECT_EQ(end, table.end());
        for (const bool backward : {false, true}) {
            Messages before = reader.messages(backward ? Query().before(end).backward() : Query().before(end));
            EXPECT_EQ(walkFault(before, table, numbersOf(0, 6, backward)), "");
            Messages from = reader.messages(backward ? Query().from(end).backward() : Query().from(end));
            EXPECT_EQ(walkFault(from, table, {}), "");
        }
        Messages behind = reader.messages(Query().from(end));
        EXPECT_EQ(walkFault(behind, table, {}), "");
        table.writer = Writer::open(file);
        table.append(simpleMessage(7));
        EXPECT_EQ(walkFault(behind, table, {6}), "");
    }
}

TEST_F(ApiMessagePlaces, OrdinalsOfAWalkFromTheBeginningCostNoReads) {
    const StoredTable table(path(), layout, simpleMessages(300));
    const auto reads = [&](bool asks) {
        Reader reader(path());
        const internal::test::FaultPlatform platform;
        for (const MessageView& message : reader.messages()) {
            if (asks && message.uniformId() == 300) {
                EXPECT_EQ(message.ordinal(), 299);
            }
        }
        return platform.count(internal::test::FileCall::readAt);
    };
    EXPECT_EQ(reads(true), reads(false));
}

}  // namespace
}  // namespace tabulo::test
