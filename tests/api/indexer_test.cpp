// An Indexer of a table: what it covers, what stops it and what it says.
#include "tabulo/index.h"

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "tests/api/api_index.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

using std::chrono::milliseconds;

using ApiIndexer = ApiIndex;

TEST_F(ApiIndexer, IsMoveOnlyAndSaysSoWhenItWasMovedFrom) {
    static_assert(!std::is_copy_constructible_v<Indexer> && !std::is_copy_assignable_v<Indexer>);
    static_assert(std::is_nothrow_move_constructible_v<Indexer> && std::is_nothrow_move_assignable_v<Indexer>);
    const StoredTable table(path(), layout, simpleMessages(7));
    Indexer indexer(path());
    Indexer moved = std::move(indexer);
    EXPECT_EQ(moved.complete().blocks, 2);
    // NOLINTBEGIN: what a move leaves is what is tested
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(indexer.info()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(indexer.complete()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(indexer.keepUp()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(indexer.wait(milliseconds(0))));
    // NOLINTEND
}

TEST_F(ApiIndexer, CoversEveryClosedBlockAndTellsSo) {
    StoredTable table(path(), layout, simpleMessages(20));
    EXPECT_EQ(inspectIndex(path()), std::nullopt);
    Indexer indexer(path());
    EXPECT_EQ(indexer.info().blocks, 0);
    EXPECT_EQ(inspectIndex(path()), std::nullopt) << "it covers nothing yet";
    const IndexInfo info = indexer.complete();
    EXPECT_EQ(info.blocks, 6);
    EXPECT_EQ(info.messages, 18);
    EXPECT_EQ(info.coveredEnd, table.place(18).block);
    EXPECT_EQ(info.runs, 1);
    EXPECT_EQ(info.bytes, static_cast<std::int64_t>(std::filesystem::file_size(indexPath(path()))));
    EXPECT_EQ(indexer.info(), info);
    EXPECT_EQ(inspectIndex(path()), info);
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
    appendTo(&table, 21);
    EXPECT_EQ(indexer.complete().messages, 21);
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexer, StandsBesideTheTableUnderItsNameWithIdxBehindIt) {
    EXPECT_EQ(indexPath("/data/orders"), "/data/orders.idx");
    EXPECT_EQ(indexPath("orders.old"), "orders.old.idx");
}

TEST_F(ApiIndexer, ChangesNothingInTheTable) {
    const StoredTable table(path(), layout, simpleMessages(20));
    const Bytes before = fileBytes();
    Indexer(path()).complete();
    EXPECT_EQ(difference(fileBytes(), before), "");
}

TEST_F(ApiIndexer, OfATableThatIsNotThereGivesTheErrorOfOpeningIt) {
    const Error expected = errorOf([this] { Reader(this->path()); });
    EXPECT_EQ(errorOf([this] { Indexer(this->path()); }).name(), expected.name());
    EXPECT_EQ(errorOf([this] { static_cast<void>(inspectIndex(this->path())); }).name(), expected.name());
    EXPECT_FALSE(std::filesystem::exists(indexPath(path())));
}

TEST_F(ApiIndexer, OneAtATimeHasAnIndex) {
    const StoredTable table(path(), layout, simpleMessages(7));
    std::optional<Indexer> first(path());
    const Error error = errorOf([this] { Indexer(this->path()); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.detail(), "another program keeps the index " + indexPath(path()).string());
    EXPECT_EQ(error.path(), path());
    first.reset();
    EXPECT_EQ(Indexer(path()).complete().blocks, 2);
}

TEST_F(ApiIndexer, LeavesAFileThatIsNoIndexAsItIs) {
    const StoredTable table(path(), layout, simpleMessages(7));
    putForeignIndex();
    const Error error = errorOf([this] { Indexer(this->path()); });
    EXPECT_EQ(error.code(), Code::signature);
    EXPECT_EQ(error.detail(),
              "the file " + indexPath(path()).string() + ", or that with .new behind it, is no index: move it away");
    EXPECT_EQ(internal::test::readText(indexPath(path()).string()), "this is no index");
    EXPECT_EQ(inspectIndex(path()), std::nullopt);
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexer, SaysWhenTheSystemDoesNotOpenTheFile) {
    const StoredTable table(path(), layout, simpleMessages(7));
    std::filesystem::create_directory(indexPath(path()));
    const Error error = errorOf([this] { Indexer(this->path()); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.detail(), "the system does not open the index " + indexPath(path()).string());
}

TEST_F(ApiIndexer, NamesTheTableWhenTheSystemDoesNotReadIt) {
    StoredTable table(path(), layout, simpleMessages(20));
    Indexer indexer(path());
    internal::test::FaultPlatform platform;
    platform.failAll(internal::test::FileCall::readAt, EIO);
    const Error error = errorOf([&] { (void)indexer.complete(); });
    EXPECT_EQ(error.path(), path());
    EXPECT_EQ(error.systemText(), "Input/output error") << error.what();
}

TEST_F(ApiIndexer, KeepsUpInStepsOfSixteenBlocks) {
    StoredTable table(path(), layout, simpleMessages(3 * 15));
    Indexer indexer(path());
    EXPECT_EQ(indexer.keepUp().blocks, 0);
    appendTo(&table, 3 * 16 - 1);
    EXPECT_EQ(indexer.keepUp().blocks, 0);
    appendTo(&table, 3 * 16);
    EXPECT_EQ(indexer.keepUp().blocks, 16);
    EXPECT_EQ(covered(), 16);
    appendTo(&table, 3 * 20);
    EXPECT_EQ(indexer.keepUp().blocks, 16);
    EXPECT_EQ(indexer.complete().blocks, 20) << "with those that were read and not covered";
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexer, KeepsTheNumberOfRunsSmallWhileItFollows) {
    StoredTable table(path(), layout);
    Indexer indexer(path());
    for (std::int32_t i = 1; i <= 30; ++i) {
        appendTo(&table, 3 * 16 * i);
        const IndexInfo info = indexer.keepUp();
        EXPECT_EQ(info.blocks, 16 * i);
        EXPECT_LE(info.runs, 8);
    }
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
}

TEST_F(ApiIndexer, StoppedCoversWhatItHasReadSoFar) {
    const StoredTable table(path(), layout, simpleMessages(30));
    Indexer indexer(path());
    std::stop_source stop;
    const IndexInfo info = indexer.complete({stop.get_token(), [&stop](const Progress& progress) {
                                                 if (progress.messages >= 12) {
                                                     stop.request_stop();
                                                 }
                                             }});
    EXPECT_EQ(info.messages, 12);
    EXPECT_EQ(covered(), 4);
    EXPECT_EQ(indexer.complete().blocks, 10);
}

TEST_F(ApiIndexer, TellsItsProgressAndPassesOnWhatTheCallbackThrows) {
    const StoredTable table(path(), layout, simpleMessages(9));
    Indexer indexer(path());
    std::vector<std::int64_t> messages;
    std::int64_t total = 0;
    indexer.complete({{}, [&](const Progress& progress) {
                          messages.push_back(progress.messages);
                          total = progress.total;
                      }});
    EXPECT_EQ(messages, (std::vector<std::int64_t>{0, 3, 6, 9}));
    EXPECT_EQ(total, static_cast<std::int64_t>(fileBytes().size()));
    EXPECT_THROW(indexer.complete({{}, [](const Progress&) { throw std::domain_error("enough"); }}), std::domain_error);
    EXPECT_EQ(indexer.complete().blocks, 3) << "it works on";
}

TEST_F(ApiIndexer, WaitsUntilTheTableChanges) {
    StoredTable table(path(), layout, simpleMessages(2));
    Indexer indexer(path());
    EXPECT_TRUE(indexer.wait(milliseconds(0))) << "what came before it was watched";
    EXPECT_FALSE(indexer.wait(milliseconds(5)));
    appendTo(&table, 3);
    EXPECT_TRUE(indexer.wait(std::chrono::minutes(1)));
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(indexer.wait(std::chrono::minutes(1), stop.get_token()));
}

TEST_F(ApiIndexer, WhoseWaitIsStoppedByAnotherThreadReturnsAtOnce) {
    const StoredTable table(path(), layout, simpleMessages(2));
    Indexer indexer(path());
    static_cast<void>(indexer.wait(milliseconds(0)));
    std::stop_source stop;
    std::jthread other([&stop] { stop.request_stop(); });
    EXPECT_FALSE(indexer.wait(std::chrono::hours(1), stop.get_token()));
}

// The index of a table that is dropped, deleted or replaced under an Indexer.
TEST_F(ApiIndexer, BeginsAnewWithADroppedTableAndAfterADeletedIndex) {
    StoredTable table(path(), layout, simpleMessages(30));
    Indexer indexer(path());
    EXPECT_EQ(indexer.complete().blocks, 10);
    table.drop();
    EXPECT_EQ(inspectIndex(path()), std::nullopt);
    EXPECT_EQ(indexer.complete().blocks, 0);
    appendTo(&table, 9);
    EXPECT_EQ(indexer.complete().blocks, 3);
    std::filesystem::remove(indexPath(path()));
    EXPECT_EQ(inspectIndex(path()), std::nullopt);
    EXPECT_EQ(indexer.complete().blocks, 3);
    EXPECT_EQ(covered(), 3);
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
}

// A page is damaged under a merge: what complete tells is covered all the same.
TEST_F(ApiIndexer, CompletesAnIndexWithADamagedPage) {
    StoredTable table(path(), layout);
    {
        Indexer indexer(path());
        for (std::int32_t i = 1; i <= 4; ++i) {
            appendTo(&table, 3 * 16 * i);
            indexer.keepUp();
        }
        ASSERT_EQ(indexer.info().runs, 4);
    }
    Bytes bytes = readFile(indexPath(path()).string());
    for (std::size_t page = 2; page < bytes.size() / 4096; ++page) {
        bytes[page * 4096 + 20] ^= 0xFF;
    }
    internal::test::writeFile(indexPath(path()).string(), bytes);
    Reader reader(path());
    EXPECT_EQ(lookUpFault(reader, table), "");
    EXPECT_EQ(Indexer(path()).complete().blocks, 64);
    EXPECT_EQ(lookUpFault(reader, table), "");
}

}  // namespace
}  // namespace tabulo::test
