#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ranges>
#include <type_traits>

#include "tabulo/reader.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"

namespace tabulo::test {
namespace {

using ApiMessages = TableTest;

static_assert(std::ranges::input_range<Messages>);
static_assert(std::input_iterator<Messages::Iterator>);
static_assert(std::sentinel_for<std::default_sentinel_t, Messages::Iterator>);
static_assert(std::is_same_v<std::ranges::range_reference_t<Messages>, const MessageView&>);
static_assert(!std::is_copy_constructible_v<Messages> && !std::is_copy_assignable_v<Messages>);
static_assert(std::is_nothrow_move_constructible_v<Messages> && std::is_nothrow_move_assignable_v<Messages>);

TEST_F(ApiMessages, AreAllOfATableInItsOrderOrBackwardWhateverTheirNumber) {
    for (std::int32_t count = 0; count <= 10; ++count) {
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        for (const bool closed : {false, true}) {
            if (closed) {
                table.writer.close();
            }
            Reader reader(table.writer.path());
            for (const bool backward : {false, true}) {
                SCOPED_TRACE(std::to_string(count) + (backward ? " backward" : " forward"));
                Query query;
                if (backward) {
                    query.backward();
                }
                Messages messages = reader.messages(query);
                EXPECT_EQ(walkFault(messages, table, numbersOf(0, table.count(), backward)), "");
            }
        }
    }
}

TEST_F(ApiMessages, AreGivenOneAfterAnother) {
    const StoredTable table(path(), layout, simpleMessages(2));
    Messages messages = Reader(path()).messages();
    EXPECT_EQ(messages.current(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::none);
    const MessageView* first = messages.next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(messages.current(), first);
    EXPECT_EQ(first->uniformId(), 1);
    ASSERT_NE(messages.next(), nullptr);
    EXPECT_EQ(messages.current()->uniformId(), 2);
    EXPECT_EQ(messages.ending(), Ending::none);
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(messages.current(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::data);
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::data);
}

TEST_F(ApiMessages, AreARangeForTheLanguageAndItsLibrary) {
    const StoredTable table(path(), layout, simpleMessages(8));
    Reader reader(path());
    std::vector<std::string> texts;
    for (const MessageView& message : reader.messages()) {
        texts.emplace_back(message.text("ClOrdID").value_or("none"));
    }
    ASSERT_EQ(texts.size(), 8u);
    EXPECT_EQ(texts.front(), "order-1");
    EXPECT_EQ(texts.back(), "order-8");
    Messages counted = reader.messages();
    EXPECT_EQ(std::ranges::count_if(counted, [](const MessageView& message) { return message.possDup(); }), 1);
    Messages taken = reader.messages();
    std::vector<std::int32_t> ids;
    for (const MessageView& message : taken | std::views::filter([](const MessageView& m) {
                                          return m.uniformId() % 2 == 0;
                                      }) | std::views::take(2)) {
        ids.push_back(message.uniformId());
    }
    EXPECT_EQ(ids, (std::vector<std::int32_t>{2, 4}));
    Messages found = reader.messages();
    const auto five = std::ranges::find_if(found, [](const MessageView& m) { return m.uniformId() == 5; });
    ASSERT_NE(five, found.end());
    EXPECT_EQ(five->text("ClOrdID"), "order-5");
    EXPECT_EQ((*five).seqNum(), 5);
    EXPECT_TRUE(Messages::Iterator() == std::default_sentinel);
}

TEST_F(ApiMessages, BeginWithTheMessageAtHand) {
    const StoredTable table(path(), layout, simpleMessages(5));
    Messages messages = Reader(path()).messages();
    messages.next();
    messages.next();
    EXPECT_EQ(messages.begin()->uniformId(), 2);
    EXPECT_EQ(messages.begin()->uniformId(), 2) << "begin has gone on";
    std::vector<std::int32_t> ids;
    for (const MessageView& message : messages) {
        ids.push_back(message.uniformId());
        if (message.uniformId() == 3) {
            break;
        }
    }
    EXPECT_EQ(ids, (std::vector<std::int32_t>{2, 3}));
    EXPECT_EQ(idsOf(std::move(messages)), (std::vector<std::int32_t>{3, 4, 5}));
}

TEST_F(ApiMessages, BeginAgainBehindTheEndWithWhatHasBeenStoredSince) {
    StoredTable table(path(), layout, simpleMessages(5));
    Messages messages = Reader(path()).messages();
    Messages backward = Reader(path()).messages(Query().backward());
    EXPECT_EQ(std::ranges::distance(messages), 5);
    EXPECT_EQ(std::ranges::distance(messages), 0);
    EXPECT_EQ(std::ranges::distance(backward), 5);
    table.appendAll({simpleMessage(6), simpleMessage(7)});
    EXPECT_EQ(std::ranges::distance(backward), 0);
    EXPECT_EQ(idsOf(std::move(messages)), (std::vector<std::int32_t>{6, 7}));
}

TEST_F(ApiMessages, OfAnEmptyTableEndAtOnce) {
    const StoredTable table(path(), layout);
    Reader reader(path());
    for (const bool backward : {false, true}) {
        Messages messages = backward ? reader.messages(Query().backward()) : reader.messages();
        EXPECT_TRUE(messages.begin() == messages.end());
        EXPECT_EQ(messages.ending(), Ending::data);
        EXPECT_EQ(messages.messagesRead(), 0);
        EXPECT_EQ(messages.blocksRead(), 0);
        EXPECT_EQ(messages.blocksSkipped(), 0);
    }
}

TEST_F(ApiMessages, KeepTheirPlaceWhenTheyAreMovedAndSaySoWhenTheyWereMovedFrom) {
    const StoredTable table(path(), layout, simpleMessages(5));
    Reader reader(path());
    Messages messages = reader.messages();
    messages.next();
    const MessageView* second = messages.next();
    Messages moved = std::move(messages);
    EXPECT_EQ(moved.current(), second);
    EXPECT_EQ(viewFault(*moved.current(), table, 1), "");
    EXPECT_EQ(moved.messagesRead(), 2);
    // NOLINTBEGIN: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, messages.next());
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(messages.begin()));
    EXPECT_EQ(messages.current(), nullptr);
    EXPECT_EQ(messages.messagesRead(), 0);
    EXPECT_EQ(messages.blocksRead(), 0);
    EXPECT_EQ(messages.blocksSkipped(), 0);
    EXPECT_NE(messages.ending(), Ending::stopped);
    messages = std::move(moved);
    EXPECT_EQ(walkFault(messages, table, numbersOf(2, 5)), "");
    EXPECT_TABULO_ERROR(tableClosed, moved.next());
    // NOLINTEND
}

TEST_F(ApiMessages, GoOnBehindTheEndWithWhatHasBeenStoredSince) {
    for (std::int32_t first = 0; first <= 7; ++first) {
        for (std::int32_t more = 1; more <= 7; ++more) {
            SCOPED_TRACE(std::to_string(first) + " and " + std::to_string(more));
            const std::string name = std::to_string(first) + "-" + std::to_string(more);
            StoredTable table(directory.file(name), layout, simpleMessages(first));
            Messages messages = Reader(table.writer.path()).messages();
            ASSERT_EQ(walkFault(messages, table, numbersOf(0, table.count())), "");
            for (std::int32_t n = 1; n <= more; ++n) {
                table.append(simpleMessage(first + n));
            }
            const auto stored = static_cast<std::size_t>(first);
            ASSERT_EQ(walkFault(messages, table, numbersOf(stored, table.count())), "");
            table.append(simpleMessage(first + more + 1));
            table.writer.close();
            ASSERT_EQ(walkFault(messages, table, numbersOf(table.count() - 1, table.count())), "");
            EXPECT_EQ(messages.messagesRead(), static_cast<std::int64_t>(table.count()));
        }
    }
}

TEST_F(ApiMessages, BackwardDoNotComeBackFromTheBeginning) {
    StoredTable table(path(), layout, simpleMessages(4));
    Messages messages = Reader(path()).messages(Query().backward());
    EXPECT_EQ(walkFault(messages, table, numbersOf(0, 4, true)), "");
    table.append(simpleMessage(5));
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(messages.ending(), Ending::data);
}

TEST_F(ApiMessages, ThatAreStoredWhileARangeGoesOnAreGivenForwardOnly) {
    StoredTable table(path(), layout, simpleMessages(4));
    Reader reader(path());
    Messages forward = reader.messages();
    Messages backward = reader.messages(Query().backward());
    forward.next();
    backward.next();
    table.appendAll({simpleMessage(5), simpleMessage(6), simpleMessage(7)});
    EXPECT_EQ(walkFault(forward, table, numbersOf(1, 7)), "");
    EXPECT_EQ(walkFault(backward, table, numbersOf(0, 3, true)), "");
}

TEST_F(ApiMessages, CountTheBlocksAndMessagesThatTheyRead) {
    for (std::int32_t count = 0; count <= 10; ++count) {
        StoredTable table(directory.file("t" + std::to_string(count)), layout, simpleMessages(count));
        Reader reader(table.writer.path());
        for (const bool backward : {false, true}) {
            SCOPED_TRACE(count);
            Messages messages = backward ? reader.messages(Query().backward()) : reader.messages();
            ASSERT_EQ(walkFault(messages, table, numbersOf(0, table.count(), backward)), "");
            EXPECT_EQ(messages.blocksRead(), static_cast<std::int64_t>(table.blockCount()));
            EXPECT_EQ(messages.blocksSkipped(), 0);
            EXPECT_EQ(messages.messagesRead(), count);
        }
    }
}

TEST_F(ApiMessages, CountTheBlocksThatNoMessageIsWantedOf) {
    StoredTable table(path(), layout, simpleMessages(10));
    Reader reader(path());
    for (const bool backward : {false, true}) {
        Query query;
        query.seqNums(5, 5);
        if (backward) {
            query.backward();
        }
        Messages messages = reader.messages(query);
        EXPECT_EQ(walkFault(messages, table, {4}), "");
        EXPECT_EQ(messages.blocksRead(), 2) << "the one that holds it, and the open one";
        EXPECT_EQ(messages.blocksSkipped(), 2);
        EXPECT_EQ(messages.messagesRead(), 4);
    }
}

TEST_F(ApiMessages, AreReadNoFurtherThanTheyAreAskedFor) {
    StoredTable table(path(), layout, simpleMessages(10));
    Messages messages = Reader(path()).messages();
    messages.next();
    EXPECT_EQ(messages.blocksRead(), 1);
    EXPECT_EQ(messages.messagesRead(), 1);
}

// What a range gives before its Error, which must tell a place from `first` to `last` and come again when it is asked
// again.
std::vector<std::int32_t> idsBefore(Code code, Messages messages, std::int64_t first, std::int64_t last) {
    std::vector<std::int32_t> ids;
    const Error error = errorOf([&] {
        while (messages.next() != nullptr) {
            ids.push_back(messages.current()->uniformId());
        }
    });
    EXPECT_EQ(error.name(), codeName(code)) << error.what();
    EXPECT_GE(error.offset().value_or(-1), first);
    EXPECT_LE(error.offset().value_or(-1), last);
    EXPECT_EQ(error.table(), "orders");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(messages.current(), nullptr);
        const Error again = errorOf([&] { messages.next(); });
        EXPECT_EQ(again.code(), error.code());
        EXPECT_EQ(again.offset(), error.offset());
        EXPECT_STREQ(again.what(), error.what());
    }
    return ids;
}

TEST_F(ApiMessages, InFrontOfADamagedOneAreGivenBeforeTheError) {
    { const StoredTable table(path(), layout, simpleMessages(10)); }
    const std::vector<Position> places = [&] {
        Reader reader(path());
        std::vector<Position> found;
        for (const MessageView& message : reader.messages()) {
            found.push_back(message.position());
        }
        return found;
    }();
    const std::int64_t damaged = places.at(4).offset;
    // The second length of message 5, which must repeat the first one.
    internal::test::patchFile(path().string(), static_cast<std::size_t>(places.at(5).offset - 4), Bytes{1});
    Reader reader(path());
    EXPECT_EQ(idsBefore(Code::consistency, reader.messages(), damaged, damaged), idsUpTo(4));
    EXPECT_EQ(idsBefore(Code::consistency, reader.messages(Query().backward()), damaged, places.at(5).offset),
              (std::vector<std::int32_t>{10, 9, 8, 7, 6}));
    EXPECT_EQ(idsOf(reader.messages(Query().seqNums(7, 8))), (std::vector<std::int32_t>{7, 8}))
        << "a block that is skipped is not read";
    EXPECT_EQ(idsOf(reader.messages(Query().before(places[3]))), idsUpTo(3));
    EXPECT_EQ(idsOf(reader.messages(Query().from(places[6]))), (std::vector<std::int32_t>{7, 8, 9, 10}));
    EXPECT_EQ(idsOf(reader.messages(Query().from(places[6]).backward())), (std::vector<std::int32_t>{10, 9, 8, 7}));
}

TEST_F(ApiMessages, InFrontOfADamagedBlockAreGivenBeforeTheError) {
    std::int64_t block = 0;
    {
        const StoredTable table(path(), layout, simpleMessages(10));
        block = table.place(3).block;
    }
    internal::test::patchFile(path().string(), static_cast<std::size_t>(block), internal::test::pattern(8, 77));
    Reader reader(path());
    EXPECT_EQ(idsBefore(Code::headerCorrupted, reader.messages(), block, block), idsUpTo(3));
    const Error error = errorOf([&] { idsOf(reader.messages(Query().inverted().seqNums(1, 2))); });
    EXPECT_EQ(error.code(), Code::headerCorrupted);
}

TEST_F(ApiMessages, EndAtAMessageThatAStoppedWriterHasBegun) {
    { const StoredTable table(path(), layout, simpleMessages(5)); }
    const std::vector<std::byte> frame = simpleFrames(layout, 6, 6);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(frame.data());
    internal::test::appendFile(path().string(), std::span(bytes, 20));
    Messages messages = Reader(path()).messages();
    while (messages.next() != nullptr) {
    }
    EXPECT_EQ(messages.ending(), Ending::data);
    EXPECT_EQ(messages.messagesRead(), 5);
    internal::test::appendFile(path().string(), std::span(bytes, frame.size()).subspan(20));
    ASSERT_NE(messages.next(), nullptr) << "the rest of the message has come";
    EXPECT_EQ(messages.current()->uniformId(), 6);
}

// Asks to the end; the ids that still came.
std::vector<std::int32_t> idsToTheEnd(Messages& messages) {
    std::vector<std::int32_t> ids;
    while (messages.next() != nullptr) {
        ids.push_back(messages.current()->uniformId());
    }
    return ids;
}

TEST_F(ApiMessages, EndForGoodWhenTheTableIsDroppedUnderThem) {
    for (const bool backward : {false, true}) {
        for (int given = 0; given <= 10; ++given) {
            SCOPED_TRACE(std::to_string(given) + " given " + (backward ? "backward" : "forward"));
            StoredTable table(directory.file(std::to_string(given) + (backward ? "b" : "f")), layout,
                              simpleMessages(10));
            Messages messages = backward ? Reader(table.writer.path()).messages(Query().backward())
                                         : Reader(table.writer.path()).messages();
            for (int i = 0; i < given; ++i) {
                ASSERT_NE(messages.next(), nullptr);
            }
            table.drop();
            std::vector<std::int32_t> rest = idsToTheEnd(messages);
            EXPECT_EQ(messages.current(), nullptr);
            if (given == 0) {
                EXPECT_TRUE(rest.empty());
                EXPECT_NE(messages.ending(), Ending::none);
                continue;
            }
            // Backward it may have read the last block before.
            if (backward && static_cast<std::size_t>(given) + rest.size() == 10) {
                EXPECT_EQ(messages.ending(), Ending::data);
                EXPECT_LE(rest.size(), 2u);
                continue;
            }
            EXPECT_EQ(messages.ending(), Ending::dropped);
            // At most what it had read of the block at hand.
            EXPECT_LE(rest.size(), 2u);
            table.appendAll(simpleMessages(2));
            EXPECT_EQ(idsToTheEnd(messages), idsUpTo(0));
            EXPECT_EQ(messages.ending(), Ending::dropped);
            EXPECT_EQ(idsOf(Reader(table.writer.path()).messages()), idsUpTo(2));
        }
    }
}

}  // namespace
}  // namespace tabulo::test
