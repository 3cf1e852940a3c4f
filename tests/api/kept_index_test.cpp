// The side index that a Writer or a Reader keeps, and what a Reader finds by it.
#include "tests/api/api_index.h"

namespace tabulo::test {
namespace {

using ApiIndexOfAWriter = ApiIndex;

TEST_F(ApiIndexOfAWriter, CoversWhatIsClosedThenEveryBlockThatAnAppendCloses) {
    StoredTable table(path(), layout, simpleMessages(10));
    EXPECT_FALSE(table.writer.keepsIndex());
    table.writer.keepIndex();
    EXPECT_TRUE(table.writer.keepsIndex());
    EXPECT_EQ(covered(), 3);
    Reader reader(path());
    for (std::int32_t i = 11; i <= 3 * 40; ++i) {
        appendTo(&table, i);
        const std::int64_t closed = i / 3;
        EXPECT_EQ(covered(), closed < 3 ? 3 : 3 + (closed - 3) / 16 * 16) << "after message " << i;
    }
    EXPECT_EQ(lookUpFault(reader, table), "");
    table.writer.close();
    EXPECT_EQ(covered(), 40) << "closing covers the rest";
    EXPECT_EQ(lookUpFault(reader, table), "");
    EXPECT_EQ(table.writer.warnings(), std::vector<std::string>{});
    EXPECT_EQ(Indexer(path()).info().blocks, 40) << "another one may have it now";
}

TEST_F(ApiIndexOfAWriter, IsKeptByAppendedFramesToo) {
    StoredTable table(path(), layout);
    table.writer.keepIndex();
    const std::vector<std::byte> frames = simpleFrames(layout, 1, 3 * 20);
    EXPECT_EQ(table.writer.appendFrames(frames), 3 * 20);
    EXPECT_EQ(covered(), 20) << "the blocks of one call";
}

TEST_F(ApiIndexOfAWriter, IsCoveredWhenTheWriterIsDestroyed) {
    {
        StoredTable table(path(), layout);
        table.writer.keepIndex();
        appendTo(&table, 10);
        EXPECT_EQ(inspectIndex(path()), std::nullopt);
    }
    EXPECT_EQ(covered(), 3);
}

TEST_F(ApiIndexOfAWriter, BeginsAnewWhenItDropsTheTable) {
    StoredTable table(path(), layout);
    table.writer.keepIndex();
    appendTo(&table, 3 * 20);
    table.drop();
    EXPECT_EQ(inspectIndex(path()), std::nullopt);
    appendTo(&table, 3 * 18);
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
    EXPECT_EQ(covered(), 16);
    table.writer.close();
    EXPECT_EQ(covered(), 18);
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexOfAWriter, AskedForTwiceIsKeptOnce) {
    StoredTable table(path(), layout, simpleMessages(4));
    table.writer.keepIndex();
    table.writer.keepIndex();
    EXPECT_TRUE(table.writer.keepsIndex());
    EXPECT_EQ(covered(), 1);
}

TEST_F(ApiIndexOfAWriter, ThatAnotherProgramKeepsIsRefusedAndTheWriterWorksOn) {
    StoredTable table(path(), layout, simpleMessages(4));
    const Indexer indexer(path());
    EXPECT_EQ(errorOf([&table] { table.writer.keepIndex(); }).detail(),
              "another program keeps the index " + indexPath(path()).string());
    EXPECT_FALSE(table.writer.keepsIndex());
    appendTo(&table, 8);
    EXPECT_EQ(Reader(path()).lastUniformId(), 8);
}

TEST_F(ApiIndexOfAWriter, ThatCannotBeWrittenAnyMoreIsGivenUpWithAWarningAndNoAppendFails) {
    StoredTable table(path(), layout, simpleMessages(4));
    table.writer.keepIndex();
    putForeignIndex();
    appendTo(&table, 3 * 20);
    EXPECT_FALSE(table.writer.keepsIndex());
    ASSERT_EQ(table.writer.warnings().size(), 1U);
    EXPECT_EQ(table.writer.warnings().front().substr(0, 46), "the side index is not kept any more: SIGNATURE");
    EXPECT_EQ(internal::test::readText(indexPath(path()).string()), "this is no index");
    table.writer.close();
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexOfAWriter, MakesTheSameTableAsWithoutIt) {
    const auto bytesOf = [this](bool keeps) {
        std::filesystem::remove(path());
        StoredTable table(path(), layout);
        if (keeps) {
            table.writer.keepIndex();
        }
        appendTo(&table, 3 * 20 + 1);
        table.writer.close();
        return fileBytes();
    };
    const Bytes without = bytesOf(false);
    EXPECT_EQ(difference(bytesOf(true), without), "");
}

TEST_F(ApiIndexOfAWriter, IsNotKeptByAClosedWriter) {
    StoredTable table(path(), layout, simpleMessages(4));
    table.writer.close();
    EXPECT_TABULO_ERROR(tableClosed, table.writer.keepIndex());
    EXPECT_FALSE(table.writer.keepsIndex());
}

using ApiIndexOfAReader = ApiIndex;

TEST_F(ApiIndexOfAReader, CoversWhatIsClosedAndSixteenBlocksMoreBeforeAQuery) {
    StoredTable table(path(), layout, simpleMessages(10));
    Reader reader(path());
    reader.keepIndex();
    EXPECT_EQ(covered(), 3);
    appendTo(&table, 3 * 18);
    EXPECT_EQ(lookUpFault(reader, table), "");
    EXPECT_EQ(covered(), 3);
    appendTo(&table, 3 * 19);
    EXPECT_EQ(lookUpFault(reader, table), "");
    EXPECT_EQ(covered(), 19);
    appendTo(&table, 3 * 21);
    reader.keepIndex();
    EXPECT_EQ(covered(), 21);
    EXPECT_EQ(errorOf([this] { Indexer(this->path()); }).detail(),
              "another program keeps the index " + indexPath(path()).string());
}

TEST_F(ApiIndexOfAReader, IsUsedUntilItIsNotWanted) {
    const StoredTable table(path(), layout, simpleMessages(300));
    Indexer(path()).complete();
    Reader reader(path());
    Query query;
    query.text("ClOrdID", TextCondition::anyOf({"order-150"}));
    const auto messagesRead = [&] {
        Messages messages = reader.messages(query);
        EXPECT_EQ(walkFault(messages, table, {149}), "");
        EXPECT_EQ(messages.blocksRead() + messages.blocksSkipped(), 100) << "every block is one or the other";
        EXPECT_EQ(messages.blocksRead(), 1);
        return messages.messagesRead();
    };
    EXPECT_EQ(messagesRead(), 1) << "the one that was looked for";
    reader.useIndex(false);
    EXPECT_EQ(messagesRead(), 3) << "its block";
    reader.useIndex(true);
    EXPECT_EQ(messagesRead(), 1);
}

TEST_F(ApiIndexOfAReader, GivesTheSameMessagesBetweenTwoPlacesForwardAndBackward) {
    const StoredTable table(path(), layout, simpleMessages(100));
    Indexer(path()).complete();
    Reader reader(path());
    const std::vector<std::size_t> places{0, 1, 2, 3, 50, 51, 52, 53, 97, 98, 99};
    for (const bool backward : {false, true}) {
        for (const std::size_t first : places) {
            for (const std::size_t last : places) {
                for (const std::size_t wanted : {std::size_t{2}, std::size_t{51}, std::size_t{98}}) {
                    Query query;
                    query.from(table.place(first)).before(table.place(last));
                    query.text("ClOrdID", TextCondition::anyOf({"order-" + std::to_string(wanted + 1)}));
                    static_cast<void>(backward ? query.backward() : query);
                    const bool isInside = first <= wanted && wanted < last;
                    Messages messages = reader.messages(query);
                    EXPECT_EQ(idsOf(std::move(messages)),
                              isInside ? std::vector<std::int32_t>{static_cast<std::int32_t>(wanted) + 1}
                                       : std::vector<std::int32_t>{})
                        << "message " << wanted << " of " << first << " to " << last << (backward ? ", backward" : "");
                }
            }
        }
    }
}

TEST_F(ApiIndexOfAReader, TellsWhereAMessageStandsAsWithoutIt) {
    StoredTable table(path(), layout, simpleMessages(100));
    Indexer(path()).complete();
    appendTo(&table, 110);
    Reader reader(path());
    for (std::size_t i = 0; i < table.count(); ++i) {
        EXPECT_EQ(reader.positionOf(static_cast<std::int64_t>(i)), table.place(i)) << i;
        EXPECT_EQ(reader.positionOfUniformId(static_cast<std::int32_t>(i) + 1), table.place(i)) << i;
    }
    EXPECT_EQ(reader.positionOf(110), std::nullopt);
    EXPECT_EQ(reader.positionOf(100'000), std::nullopt);
    EXPECT_EQ(reader.positionOfUniformId(111), table.end());
    EXPECT_EQ(reader.positionOfUniformId(-5), table.place(0));
}

// What a look-up finds after a query has begun is not its business; the next one sees it.
TEST_F(ApiIndexOfAReader, ServesAQueryThatGoesOnBesideAWriter) {
    StoredTable table(path(), layout, simpleMessages(60));
    Indexer indexer(path());
    indexer.complete();
    Reader reader(path());
    Query query;
    query.text("ClOrdID", TextCondition::anyOf({"order-5", "order-61", "order-70"}));
    Messages messages = reader.messages(query);
    ASSERT_NE(messages.next(), nullptr);
    EXPECT_EQ(messages.next(), nullptr);
    appendTo(&table, 66);
    indexer.complete();
    ASSERT_NE(messages.next(), nullptr);
    EXPECT_EQ(messages.current()->uniformId(), 61);
    EXPECT_EQ(messages.next(), nullptr);
    appendTo(&table, 75);
    indexer.complete();
    std::filesystem::remove(indexPath(path()));
    ASSERT_NE(messages.next(), nullptr);
    EXPECT_EQ(messages.current()->uniformId(), 70);
    EXPECT_EQ(messages.next(), nullptr);
}

}  // namespace
}  // namespace tabulo::test
