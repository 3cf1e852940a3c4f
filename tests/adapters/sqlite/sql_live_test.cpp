// Tables that change, are damaged or go away under statements, and statements that are ended.
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <set>
#include <thread>

#include "tests/adapters/sqlite/sql_test.h"
#include "tests/api/damaged_table.h"

namespace tabulo::sqlite::test {
namespace {

class LiveSql : public SqlTest {
  protected:
    static std::int64_t rest(Statement& statement) {
        std::int64_t count = 0;
        while (statement.step() == SQLITE_ROW) {
            ++count;
        }
        return count;
    }
    static std::int32_t messageCountOf(std::size_t count) { return static_cast<std::int32_t>(count); }
};

TEST_F(LiveSql, WhatIsAppendedIsSeenByTheNextStatement) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(4));
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(countOf("orders"), "4");
    table.append(simpleMessage(5));
    EXPECT_EQ(countOf("orders"), "5");
}

TEST_F(LiveSql, AnOpenCursorKeepsWhatItSees) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(4));
    ASSERT_EQ(show("orders", "orders").text(), "");
    {
        Statement first(connection, "SELECT uid FROM orders");
        ASSERT_EQ(first.step(), SQLITE_ROW);
        table.append(simpleMessage(5));
        EXPECT_EQ(countOf("orders"), "4") << "another statement of the connection";
        EXPECT_EQ(rest(first), 3);
    }
    EXPECT_EQ(countOf("orders"), "5");
}

TEST_F(LiveSql, ASelfJoinAgreesWithItself) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(7));
    ASSERT_EQ(show("orders", "orders").text(), "");
    Statement pairs(connection, "SELECT a.uid, b.uid FROM orders a, orders b WHERE +a.seq = +b.seq");
    std::int64_t count = 0;
    for (std::int32_t n = 8; pairs.step() == SQLITE_ROW; ++n, ++count) {
        EXPECT_EQ(pairs.integer(0), pairs.integer(1));
        table.append(simpleMessage(n));
    }
    EXPECT_EQ(count, 7);
}

TEST_F(LiveSql, ATableThatIsEmptiedBeforeAStatementIsEmpty) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(20));
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(countOf("orders"), "20");
    table.drop();
    EXPECT_EQ(countOf("orders"), "0");
    table.append(simpleMessage(3));
    EXPECT_EQ(connection.must("SELECT uid FROM orders").text(), "3\n");
}

TEST_F(LiveSql, ATableThatIsEmptiedUnderAStatementEndsIt) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(300));
    ASSERT_EQ(show("orders", "orders").text(), "");
    {
        Statement statement(connection, "SELECT uid, wire FROM orders");
        ASSERT_EQ(statement.step(), SQLITE_ROW);
        table.drop();
        int code = SQLITE_ROW;
        std::int64_t last = 1;
        while ((code = statement.step()) == SQLITE_ROW) {
            EXPECT_EQ(statement.integer(), ++last) << "only what was stored in front of it";
        }
        EXPECT_NE(code, SQLITE_DONE) << "rows have gone, and nobody is told";
        EXPECT_NE(std::string(sqlite3_errmsg(connection.handle())).find(path("orders").string()), std::string::npos);
    }
    EXPECT_EQ(countOf("orders"), "0");
}

TEST_F(LiveSql, AnotherFileAtThePathIsReadByTheNextStatement) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    ASSERT_EQ(show("orders", "orders").text(), "");
    {
        Statement statement(connection, "SELECT uid FROM orders");
        ASSERT_EQ(statement.step(), SQLITE_ROW);
        StoredTable other(path("other"), ordersLayout(), simpleMessages(2));
        other.writer.close();
        std::filesystem::rename(path("other"), path("orders"));
        EXPECT_EQ(rest(statement), 4);
    }
    EXPECT_EQ(countOf("orders"), "2");
}

TEST_F(LiveSql, AnotherLayoutAtThePathIsAnError) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    ASSERT_EQ(show("orders", "orders").text(), "");
    StoredTable other(path("other"), Layout{.texts = {"Else"}});
    std::filesystem::rename(path("other"), path("orders"));
    EXPECT_EQ(connection.text("SELECT count(*) FROM orders").substr(0, 21), "CONFIG_MISMATCH_ERROR");
    StoredTable third(path("other"), ordersLayout(), simpleMessages(2));
    const std::string count = "SELECT count(*) FROM tabulo_messages(" + quoted("orders") + ")";
    EXPECT_EQ(valueOf(count), "0");
    std::filesystem::rename(path("other"), path("orders"));
    EXPECT_EQ(valueOf(count), "2") << "a function that shows tables with any fields";
}

TEST_F(LiveSql, AnotherFileAtThePathMayHaveOtherBlocks) {
    StoredTable table(path("orders"), ordersLayout(3), simpleMessages(20));
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(valueOf("SELECT uid FROM orders WHERE rowid = 17"), "18");
    StoredTable other(path("other"), ordersLayout(5), simpleMessages(23));
    other.writer.close();
    std::filesystem::rename(path("other"), path("orders"));
    EXPECT_EQ(countOf("orders"), "23");
    EXPECT_EQ(connection.must("SELECT uid, rowid FROM orders WHERE rowid BETWEEN 14 AND 16").text(),
              "15|14\n16|15\n17|16\n");
    EXPECT_EQ(connection.must("SELECT uid FROM orders WHERE uid > 13 ORDER BY uid DESC LIMIT 2").text(), "23\n22\n");
    EXPECT_EQ(valueOf("SELECT group_concat(uid) FROM orders WHERE ClOrdID = 'order-19'"), "'19'");
}

TEST_F(LiveSql, AFileOfAnotherUnitThatComesUnderAPlanIsOrderedOrAnError) {
    const auto write = [&](const char* name, std::int64_t scale) {
        StoredTable table(path(name), ordersLayout());
        for (std::int32_t n = 1; n <= 6; ++n) {
            StoredMessage message = simpleMessage(n);
            message.time = (1'795'000'000 + n) * scale;
            table.append(message);
        }
    };
    write("part-1", 1'000);
    for (const char* order : {"time", "time DESC"}) {
        std::filesystem::remove(path("part-2"));
        Statement statement(connection, "SELECT time FROM tabulo_messages(" + quoted("part-*") + ") ORDER BY " + order);
        write("part-2", 1'000'000);
        std::vector<std::string> times;
        int code = SQLITE_ROW;
        while ((code = statement.step()) == SQLITE_ROW) {
            times.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement.handle(), 0)));
        }
        std::vector<std::string> sorted = times;
        std::sort(sorted.begin(), sorted.end());
        if (std::string(order) != "time") {
            std::reverse(sorted.begin(), sorted.end());
        }
        EXPECT_EQ(times, sorted) << order;
        EXPECT_TRUE(code != SQLITE_DONE || times.size() == 12U) << times.size() << " rows and no error";
    }
}

TEST_F(LiveSql, AFileThatComesOrGoesIsFoundByTheGlob) {
    StoredTable first(path("part-1"), ordersLayout(), simpleMessages(5));
    StoredTable second(path("part-2"), ordersLayout(), simpleMessages(3));
    ASSERT_EQ(show("parts", "part-*").text(), "");
    EXPECT_EQ(countOf("parts"), "8");
    StoredTable third(path("part-0"), ordersLayout(), simpleMessages(1));
    EXPECT_EQ(countOf("parts"), "9");
    EXPECT_EQ(connection.must("SELECT DISTINCT \"table\" FROM parts WHERE uid = 1 ORDER BY 1").text(),
              "'part-0'\n'part-1'\n'part-2'\n");
    std::filesystem::remove(path("part-1"));
    EXPECT_EQ(countOf("parts"), "4");
    EXPECT_EQ(connection.must("SELECT uid FROM parts WHERE rowid >> 40 = 1 ORDER BY uid").text(), "1\n2\n3\n")
        << "a file keeps its number";
}

TEST_F(LiveSql, AGlobLeavesOutWhatIsNoTable) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    std::filesystem::create_directory(path("folder"));
    for (const char* name : {".hidden", "orders.idx", "orders.cut-100", "orders.cut-100-1"}) {
        std::ofstream(path(name)) << "no table";
    }
    ASSERT_EQ(show("tables", "*").text(), "");
    EXPECT_EQ(countOf("tables"), "5");
    std::ofstream(path("foreign")) << "no table either, but a file of an ordinary name";
    EXPECT_NE(connection.text("SELECT count(*) FROM tables").find("foreign"), std::string::npos);
}

TEST_F(LiveSql, WhatIsNoTableIsRefused) {
    EXPECT_EQ(show("t", "missing").text().substr(0, 15), "FILE_OPEN_ERROR");
    EXPECT_NE(show("t", "missing-*").error.find("missing-*"), std::string::npos);
    std::ofstream(path("foreign")) << std::string(4000, 'x');
    EXPECT_EQ(show("t", "foreign").text().substr(0, 15), "SIGNATURE_ERROR");
    StoredTable first(path("some-1"), ordersLayout());
    StoredTable second(path("some-2"), Layout{.texts = {"Else"}});
    EXPECT_EQ(show("t", "some-*").text().substr(0, 21), "CONFIG_MISMATCH_ERROR");
    EXPECT_NE(connection.text("CREATE VIRTUAL TABLE t USING tabulo()"), "");
    EXPECT_NE(connection.text("CREATE VIRTUAL TABLE t USING tabulo(" + quoted("some-1") + ", time_unit='parsecs')"),
              "");
}

TEST_F(LiveSql, ARemovedFileIsAnErrorWhereItWasNamed) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    ASSERT_EQ(show("orders", "orders").text(), "");
    std::filesystem::remove(path("orders"));
    EXPECT_EQ(connection.text("SELECT count(*) FROM orders").substr(0, 15), "FILE_OPEN_ERROR");
}

TEST_F(LiveSql, RowsInFrontOfDamageAreGivenAndThenTheError) {
    const auto frames = tabulo::test::eachFrame(ordersLayout(), 20);
    tabulo::test::writeTable(path("orders"), ordersLayout(), frames);
    const tabulo::test::TablePlan plan(ordersLayout(), frames);
    ASSERT_EQ(show("orders", "orders").text(), "");
    std::fstream file(path("orders"), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(plan.frames[13].begin));
    file << std::string(16, '\xff');
    file.close();
    const Answer answer = connection.run("SELECT uid FROM orders");
    EXPECT_GE(answer.rows.size(), 12U);
    EXPECT_LE(answer.rows.size(), 13U);
    for (std::size_t i = 0; i < answer.rows.size(); ++i) {
        EXPECT_EQ(answer.rows[i][0], std::to_string(i + 1));
    }
    EXPECT_EQ(answer.error.substr(0, 17), "CONSISTENCY_ERROR");
    EXPECT_NE(answer.error.find(path("orders").string()), std::string::npos);
    EXPECT_EQ(answer.code & 0xff, SQLITE_CORRUPT);
    EXPECT_EQ(connection.must("SELECT uid FROM orders WHERE uid <= 5 ORDER BY uid LIMIT 2").text(), "1\n2\n")
        << "what stands in front of it can be asked for";
}

TEST_F(LiveSql, ABlobBeyondTheLimitIsSqlitesError) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(1));
    StoredMessage large = simpleMessage(2);
    large.wire = std::string(2'000'000, 'w');
    table.append(large);
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(valueOf("SELECT max(length(wire)) FROM orders"), "2000000");
    sqlite3_limit(connection.handle(), SQLITE_LIMIT_LENGTH, 1'000'000);
    const Answer answer = connection.run("SELECT uid, wire FROM orders");
    EXPECT_EQ(answer.code, SQLITE_TOOBIG) << answer.error;
    EXPECT_EQ(answer.rows.size(), 1U);
    EXPECT_EQ(connection.must("SELECT uid FROM orders").text(), "1\n2\n") << "only the columns of a statement are made";
}

TEST_F(LiveSql, NothingCanBeWritten) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(1));
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_NE(connection.text("DELETE FROM orders").find("may not be modified"), std::string::npos);
    EXPECT_NE(connection.text("UPDATE orders SET uid = 2").find("may not be modified"), std::string::npos);
    EXPECT_NE(connection.text("INSERT INTO orders(uid) VALUES (2)").find("may not be modified"), std::string::npos);
    EXPECT_EQ(countOf("orders"), "1");
}

TEST_F(LiveSql, ViewsAndTriggersCannotReachFiles) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(1));
    ASSERT_EQ(show("orders", "orders").text(), "");
    connection.must("CREATE VIEW seen AS SELECT * FROM orders");
    EXPECT_NE(connection.text("SELECT * FROM seen").find("unsafe use of virtual table"), std::string::npos);
    connection.must("CREATE VIEW reached AS SELECT * FROM tabulo_messages(" + quoted("orders") + ")");
    EXPECT_NE(connection.text("SELECT * FROM reached").find("unsafe use of virtual table"), std::string::npos);
    connection.must("CREATE VIEW session AS SELECT * FROM tabulo_session(" + quoted("orders") + ")");
    EXPECT_NE(connection.text("SELECT * FROM session").find("unsafe use of virtual table"), std::string::npos);
    connection.must("CREATE TABLE plain(a)");
    connection.must("CREATE TRIGGER read AFTER INSERT ON plain BEGIN INSERT INTO plain SELECT uid FROM orders; END");
    EXPECT_NE(connection.text("INSERT INTO plain VALUES (1)").find("unsafe use of virtual table"), std::string::npos);
}

// Many messages of about half a kilobyte.
void fillLargely(StoredTable& table, std::int32_t count) {
    std::vector<std::byte> frames;
    StoredMessage message = simpleMessage(1);
    message.wire = std::string(400, 'w');
    for (std::int32_t n = 1; n <= count; ++n) {
        message.uniformId = n;
        encode(message.borrowed(), table.writer.layout(), frames);
        if (frames.size() > 1'000'000 || n == count) {
            table.writer.appendFrames(frames);
            frames.clear();
        }
    }
}

TEST_F(LiveSql, AnInterruptEndsALongScan) {
    StoredTable table(path("orders"), ordersLayout(1000));
    fillLargely(table, 20'000);
    ASSERT_EQ(show("orders", "orders").text(), "");
    std::atomic<bool> ended = false;
    std::thread other([&] {
        while (!ended) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            sqlite3_interrupt(connection.handle());
        }
    });
    // Without the interrupt each would take minutes; the second one scans from beginning to end and finds no row.
    const Answer answer = connection.run("SELECT count(*) FROM orders a, orders b WHERE +a.uid + b.uid = 0");
    const Answer scan =
        connection.run("SELECT count(*) FROM orders a WHERE EXISTS (SELECT 1 FROM orders b WHERE b.Price = -a.uid)");
    ended = true;
    other.join();
    EXPECT_EQ(answer.code, SQLITE_INTERRUPT) << answer.text();
    EXPECT_EQ(scan.code, SQLITE_INTERRUPT) << scan.text();
    EXPECT_EQ(countOf("orders"), "20000") << "the next statement runs";
}

TEST_F(LiveSql, MemoryStaysFlatOverALongScan) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's memory is not told";
#endif
    StoredTable table(path("orders"), ordersLayout(100));
    fillLargely(table, 100'000);
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(valueOf("SELECT sum(length(wire)) FROM orders WHERE uid <= 2000"), "800000");
    Statement statement(connection, "SELECT uid, wire FROM orders");
    std::size_t early = 0;
    std::size_t late = 0;
    for (int row = 0; statement.step() == SQLITE_ROW; ++row) {
        const bool isEarly = row == 2000;
        if (isEarly || row == 99'000) {
            const struct mallinfo2 memory = ::mallinfo2();
            (isEarly ? early : late) = memory.uordblks + memory.hblkhd;
        }
    }
    ASSERT_GT(late, 0U);
    EXPECT_LT(late, early + 1'000'000) << "97,000 messages have passed, 50 MB of them";
}

TEST_F(LiveSql, ConnectionsEndWithTablesOfTheirs) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(5));
    for (int i = 0; i < 3; ++i) {
        Connection own;
        own.must("CREATE VIRTUAL TABLE orders USING tabulo(" + quoted("orders") + ")");
        EXPECT_EQ(own.must("SELECT max(uid) FROM orders").text(), "5\n");
        own.must("DROP TABLE orders");
        EXPECT_NE(own.text("SELECT max(uid) FROM orders").find("no such table"), std::string::npos);
        own.must("CREATE VIRTUAL TABLE orders USING tabulo(" + quoted("orders") + ")");
    }
    EXPECT_TRUE(std::filesystem::exists(path("orders"))) << "DROP TABLE leaves the file alone";
}

}  // namespace
}  // namespace tabulo::sqlite::test
