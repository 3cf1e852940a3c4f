#include "tabulo/reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <type_traits>

#include "tabulo/session_info.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"
#include "tests/support/child_process.h"

namespace tabulo::test {
namespace {

using ApiReader = TableTest;

TEST_F(ApiReader, IsMoveOnlyAndSaysSoWhenItWasMovedFrom) {
    static_assert(!std::is_copy_constructible_v<Reader> && !std::is_copy_assignable_v<Reader>);
    static_assert(!std::is_default_constructible_v<Reader>);
    static_assert(std::is_nothrow_move_constructible_v<Reader> && std::is_nothrow_move_assignable_v<Reader>);
    const StoredTable table(path(), layout, simpleMessages(4));
    Reader reader(path());
    Reader moved = std::move(reader);
    EXPECT_EQ(idsOf(moved.messages()), idsUpTo(4));
    // NOLINTBEGIN: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.path()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.table()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.layout()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.lastId(MessageClass::appTo)));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.lastUniformId()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.lastGood()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.firstPending()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.lastPending()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.begin()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.end()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.positionOfUniformId(1)));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.positionOf(0)));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.messages()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(reader.blocks()));
    reader = std::move(moved);
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(4));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(moved.path()));
    // NOLINTEND
}

TEST_F(ApiReader, OpensATableWithTheLayoutThatItHas) {
    layout.summarisedTexts = 3;
    const StoredTable table(path(), layout, simpleMessages(4));
    Reader reader(path());
    EXPECT_EQ(reader.path(), path());
    EXPECT_EQ(reader.table(), "orders");
    EXPECT_EQ(reader.layout(), layout);
    Messages messages = reader.messages();
    EXPECT_EQ(walkFault(messages, table, numbersOf(0, 4)), "");
}

TEST_F(ApiReader, OpensATableWithTheLayoutThatItMustHave) {
    const StoredTable table(path(), layout, simpleMessages(4));
    Layout writtenOut = layout;
    writtenOut.summarisedTexts = 4;
    EXPECT_EQ(idsOf(Reader(path(), layout).messages()), idsUpTo(4));
    EXPECT_EQ(idsOf(Reader(path(), writtenOut).messages()), idsUpTo(4));
}

TEST_F(ApiReader, RefusesATableOfAnotherLayout) {
    const StoredTable table(path(), layout, simpleMessages(4));
    const Bytes before = fileBytes();
    const auto refuses = [&](Code code, const Layout& other) {
        const Error error = errorOf([&] { static_cast<void>(Reader(path(), other)); });
        EXPECT_EQ(error.name(), codeName(code)) << error.what();
        EXPECT_EQ(error.path(), path());
        EXPECT_EQ(error.table(), "orders");
    };
    Layout other = layout;
    other.texts.push_back("Side");
    refuses(Code::stringFieldsCountMismatch, other);
    other = layout;
    other.texts.clear();
    refuses(Code::stringFieldsCountMismatch, other);
    other = layout;
    other.numbers.push_back("LastPx");
    refuses(Code::numericFieldsCountMismatch, other);
    other = layout;
    other.texts = {"ClOrdID", "Symbol"};
    refuses(Code::stringFieldsNamesMismatch, other);
    other = layout;
    other.texts[1] = "";
    refuses(Code::stringFieldsNamesMismatch, other);
    other = layout;
    other.numbers[1] = "orderqty";
    refuses(Code::numericFieldsNamesMismatch, other);
    other = layout;
    other.messagesPerBlock += 1;
    refuses(Code::configMismatch, other);
    other = layout;
    other.summarisedTexts = 2;
    refuses(Code::configMismatch, other);
    EXPECT_EQ(difference(fileBytes(), before), "");
}

TEST_F(ApiReader, RefusesASessionInfoTable) {
    const std::vector<std::int32_t> tags = {1, 2};
    SessionInfo::create(path(), tags).write(1, 7);
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(Reader(path())));
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(Reader(path(), layout)));
}

TEST_F(ApiReader, RefusesWhatIsNotThere) {
    const Error error = errorOf([&] { static_cast<void>(Reader(path())); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.systemText(), "No such file or directory");
    EXPECT_EQ(error.path(), path());
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Reader(path(), layout)));
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(Reader("")));
    const StoredTable table(path(), layout);
    EXPECT_TABULO_ERROR(wrongParameter,
                        static_cast<void>(Reader(std::filesystem::path(path().string() + std::string("\0x", 2)))));
}

TEST_F(ApiReader, RefusesFilesThatAreNoTables) {
    std::ofstream(path()).close();
    EXPECT_TABULO_ERROR(fileSize, static_cast<void>(Reader(path())));
    std::ofstream(path()) << std::string(500, 'x');
    EXPECT_TABULO_ERROR(signature, static_cast<void>(Reader(path())));
    const StoredTable table(directory.file("sound"), layout, simpleMessages(1));
    const Bytes sound = readFile(directory.file("sound"));
    internal::test::writeFile(path().string(), std::span(sound).first(60));
    EXPECT_TABULO_ERROR(streamNotEnoughData, static_cast<void>(Reader(path())));
}

TEST_F(ApiReader, WritesNothingAndKeepsNoWriterOut) {
    { StoredTable table(path(), layout, simpleMessages(5)); }
    internal::test::appendFile(path().string(), internal::test::pattern(3));  // what a stopped writer leaves
    const Bytes before = fileBytes();
    const auto time = std::filesystem::last_write_time(path());
    Reader reader(path());
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(5));
    EXPECT_EQ(reader.lastUniformId(), 5);
    for (const BlockRecord& block : reader.blocks()) {
        EXPECT_GT(block.messageCount, 0);
    }
    EXPECT_NE(isOpenForWriting(path()), OpenForWriting::yes);
    EXPECT_EQ(difference(fileBytes(), before), "");
    EXPECT_EQ(std::filesystem::last_write_time(path()), time);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
    Writer writer = Writer::open(path());
    writer.append(SimpleMessage(6).message);
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(6));
}

TEST_F(ApiReader, SeesEachMessageAsSoonAsItIsStored) {
    StoredTable table(path(), layout);
    Reader reader(path());
    for (std::int32_t n = 1; n <= 10; ++n) {
        table.append(simpleMessage(n));
        SCOPED_TRACE(n);
        for (const bool backward : {false, true}) {
            Query query;
            if (backward) {
                query.backward();
            }
            Messages messages = reader.messages(query);
            EXPECT_EQ(walkFault(messages, table, numbersOf(0, table.count(), backward)), "");
        }
        EXPECT_EQ(reader.lastUniformId(), n);
        EXPECT_EQ(reader.end(), table.end());
    }
}

TEST_F(ApiReader, GivesEachMessageOnceWhileAnotherProcessWrites) {
    constexpr std::int32_t last = 3000;
    const StoredTable expected(directory.file("expected"), layout, simpleMessages(last));
    Writer::create(path(), layout).close();
    const internal::test::ProcessSignal reading;
    internal::test::ChildProcess child([&] {
        Writer writer = Writer::open(path());
        if (!reading.await()) {
            return 1;
        }
        for (std::int32_t n = 1; n <= last; ++n) {
            writer.append(SimpleMessage(n).message);
        }
        return 0;
    });
    Reader reader(path());
    Messages messages = reader.messages();
    EXPECT_EQ(messages.next(), nullptr);
    reading.raise();
    std::int32_t seen = 0;
    for (std::int32_t asked = 0; seen < last && asked < 100'000'000; ++asked) {
        if (const MessageView* message = messages.next(); message != nullptr) {
            ASSERT_EQ(message->uniformId(), seen + 1);
            ASSERT_EQ(message->position(), expected.place(static_cast<std::size_t>(seen)));
            ASSERT_EQ(message->ordinal(), seen);
            seen += 1;
        } else {
            ASSERT_EQ(messages.ending(), Ending::data);
        }
    }
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(seen, last);
    EXPECT_EQ(messages.next(), nullptr);
    EXPECT_EQ(difference(fileBytes(), readFile(directory.file("expected"))), "");
}

TEST_F(ApiReader, AnswersForOneMomentWhileAnotherProcessWrites) {
    constexpr std::int32_t last = 3000;
    Writer::create(path(), layout).close();
    internal::test::ChildProcess child([&] {
        Writer writer = Writer::open(path());
        for (std::int32_t n = 1; n <= last; ++n) {
            writer.append(SimpleMessage(n).message);
        }
        return 0;
    });
    Reader reader(path());
    std::int32_t seen = 0;
    for (std::int32_t round = 0; seen < last && round < 1'000'000; ++round) {
        const std::int32_t told = reader.lastUniformId().value_or(0);
        ASSERT_GE(told, seen);
        seen = told;
        Messages backward = reader.messages(Query().backward());
        std::int32_t above = 0;
        for (int given = 0; given < 7 && backward.next() != nullptr; ++given) {
            const std::int32_t id = backward.current()->uniformId();
            if (given == 0) {
                ASSERT_GE(id, seen);
            } else {
                ASSERT_EQ(id, above - 1);
            }
            above = id;
        }
        if (seen > 0) {
            Messages forward = reader.messages(Query().from(reader.positionOfUniformId(seen)));
            ASSERT_NE(forward.next(), nullptr);
            ASSERT_EQ(forward.current()->uniformId(), seen);
        }
    }
    EXPECT_EQ(seen, last);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ApiReader, ReadsATableWhoseWriterWasKilled) {
    Writer::create(path(), layout).close();
    const internal::test::ProcessSignal stored;
    const internal::test::ProcessSignal never;
    internal::test::ChildProcess child([&] {
        Writer writer = Writer::open(path());
        for (std::int32_t n = 1; n <= 8; ++n) {
            writer.append(SimpleMessage(n).message);
        }
        stored.raise();
        return never.await() ? 0 : 1;
    });
    ASSERT_TRUE(stored.await());
    child.kill();
    const Bytes before = fileBytes();
    Reader reader(path());
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(8));
    EXPECT_EQ(reader.lastUniformId(), 8);
    EXPECT_EQ(difference(fileBytes(), before), "");
}

TEST_F(ApiReader, IsOutlivedByWhatItHasMade) {
    StoredTable table(path(), layout, simpleMessages(5));
    std::optional<Reader> reader(std::in_place, path());
    Messages started = reader->messages();
    ASSERT_NE(started.next(), nullptr);
    const MessageView* first = started.current();
    Messages fresh = reader->messages(Query().backward());
    Blocks blocks = reader->blocks();
    reader.reset();
    EXPECT_EQ(viewFault(*first, table, 0), "");
    EXPECT_EQ(walkFault(started, table, numbersOf(1, 5)), "");
    EXPECT_EQ(walkFault(fresh, table, numbersOf(0, 5, true)), "");
    ASSERT_NE(blocks.next(), nullptr);
    EXPECT_EQ(blocks.current()->messageCount, 3);
    table.append(simpleMessage(6));
    table.append(simpleMessage(7));
    EXPECT_EQ(walkFault(started, table, numbersOf(5, 7)), "");
}

TEST_F(ApiReader, HasRangesAndLookUpsThatDoNotDisturbOneAnother) {
    StoredTable table(path(), layout, simpleMessages(11));
    Reader reader(path());
    Messages forward = reader.messages();
    Messages backward = reader.messages(Query().backward());
    Blocks blocks = reader.blocks();
    for (std::size_t i = 0; i < 11; ++i) {
        const MessageView* one = forward.next();
        const MessageView* other = backward.next();
        const BlockRecord* block = blocks.next();
        ASSERT_TRUE(one != nullptr && other != nullptr);
        EXPECT_EQ(reader.lastUniformId(), 11);
        EXPECT_EQ(reader.positionOf(6), table.place(6));
        EXPECT_EQ(reader.positionOfUniformId(3), table.place(2));
        EXPECT_EQ(viewFault(*one, table, i), "");
        EXPECT_EQ(viewFault(*other, table, 10 - i), "");
        ASSERT_EQ(block != nullptr, i < 4);
        if (block != nullptr) {
            EXPECT_EQ(block->firstMessage, static_cast<std::int64_t>(3 * i));
        }
    }
    EXPECT_EQ(forward.next(), nullptr);
    EXPECT_EQ(backward.next(), nullptr);
}

TEST_F(ApiReader, ReadsWhatATableHoldsAfterItWasDroppedAndFilledAgain) {
    StoredTable table(path(), layout, simpleMessages(11));
    Reader reader(path());
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(11));
    table.drop();
    EXPECT_EQ(idsOf(reader.messages()), idsUpTo(0));
    EXPECT_EQ(reader.lastUniformId(), std::nullopt);
    EXPECT_EQ(reader.lastId(MessageClass::appTo), std::nullopt);
    EXPECT_EQ(reader.lastGood(), std::nullopt);
    EXPECT_EQ(reader.end(), reader.begin());
    EXPECT_EQ(reader.positionOf(0), std::nullopt);
    EXPECT_EQ(reader.positionOfUniformId(1), reader.end());
    table.appendAll(simpleMessages(4));
    Messages messages = reader.messages();
    EXPECT_EQ(walkFault(messages, table, numbersOf(0, 4)), "");
    EXPECT_EQ(reader.lastUniformId(), 4);
    EXPECT_EQ(reader.end(), table.end());
}

}  // namespace
}  // namespace tabulo::test
