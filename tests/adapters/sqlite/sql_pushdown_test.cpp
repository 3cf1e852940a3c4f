// What of a statement leaves blocks unread, and which orders need no sorting.
#include "tests/adapters/sqlite/sql_test.h"

namespace tabulo::sqlite::test {
namespace {

constexpr std::int32_t messageCount = 30;
constexpr std::int64_t blockCount = 10;  // all closed: what is not, is always read

class Pushdown : public SqlTest {
  protected:
    Pushdown() {
        StoredTable table(path("orders"), ordersLayout());
        for (std::int32_t n = 1; n <= messageCount; ++n) {
            StoredMessage message = simpleMessage(n);
            message.time = 1'795'000'000'000 + n * 1000;
            message.type = n <= 15 ? "D" : "8";
            message.id = n <= 15 ? n : firstId(MessageClass::appFrom) + n;
            message.texts[1] = n == 7 ? "777" : n == 20 ? "0777" : n == 25 ? "abc" : n == 26 ? "ABC" : "x";
            message.text1 = n > 27 ? tabulo::test::StoredText("late") : tabulo::test::StoredText();
            table.append(message);
        }
        EXPECT_EQ(show("orders", "orders").text(), "");
    }

    // How many blocks the statement reads, and the uniform ids that it gives: "1 block: 7 8 9".
    std::string asked(const std::string& condition) {
        const std::int64_t read = connection.stat("blocksRead");
        const std::int64_t skipped = connection.stat("blocksSkipped");
        const Answer answer = connection.must("SELECT uid FROM orders WHERE " + condition);
        const std::int64_t blocks = connection.stat("blocksRead") - read;
        EXPECT_LE(blocks + connection.stat("blocksSkipped") - skipped, blockCount) << condition;
        std::string text = std::to_string(blocks) + (blocks == 1 ? " block:" : " blocks:");
        for (const std::vector<std::string>& row : answer.rows) {
            text += " " + row[0];
        }
        return text;
    }
    bool sorts(const std::string& statement) {
        return connection.plan(statement).find("USE TEMP B-TREE FOR ORDER BY") != std::string::npos;
    }
};

TEST_F(Pushdown, UniformIdsAreReadFromTheirBlocksAlone) {
    EXPECT_EQ(asked("uid = 11"), "1 block: 11");
    EXPECT_EQ(asked("uid = '11'"), "1 block: 11");
    EXPECT_EQ(asked("uid = 11.0"), "1 block: 11");
    EXPECT_EQ(asked("uid = 11.5"), "0 blocks:");
    EXPECT_EQ(asked("uid IS 11"), "1 block: 11");
    EXPECT_EQ(asked("uid BETWEEN 10 AND 12"), "1 block: 10 11 12");
    EXPECT_EQ(asked("uid BETWEEN 9 AND 10"), "2 blocks: 9 10");
    EXPECT_EQ(asked("uid >= 28"), "1 block: 28 29 30");
    EXPECT_EQ(asked("uid < 3.5"), "1 block: 1 2 3");
    EXPECT_EQ(asked("uid IN (2, 30)"), "2 blocks: 2 30");
    EXPECT_EQ(asked("uid IS NULL"), "0 blocks:");
    EXPECT_EQ(asked("uid = NULL"), "0 blocks:");
    EXPECT_EQ(asked("uid > 5 AND uid < 3"), "0 blocks:");
}

TEST_F(Pushdown, RowidsArePlacesInStorage) {
    EXPECT_EQ(asked("rowid = 4"), "1 block: 5");
    EXPECT_EQ(asked("rowid IN (0, 29)"), "2 blocks: 1 30");
    EXPECT_EQ(asked("rowid >= 27"), "1 block: 28 29 30");
    EXPECT_EQ(asked("rowid = 30"), "0 blocks:");
    EXPECT_EQ(asked("rowid = (1 << 40)"), "0 blocks:");
}

TEST_F(Pushdown, TimesAreFoundAsNumbersAndAsTexts) {
    EXPECT_EQ(asked("time_raw = 1795000011000"), "1 block: 11");
    EXPECT_EQ(asked("time_raw BETWEEN 1795000010000 AND 1795000012000"), "1 block: 10 11 12");
    EXPECT_EQ(asked("time = '2026-11-18T11:06:51.000Z'"), "1 block: 11");
    EXPECT_EQ(asked("time >= '2026-11-18T11:07:08'"), "1 block: 28 29 30");
    EXPECT_EQ(asked("time LIKE '%:51.000Z'"), "10 blocks: 11");
    EXPECT_EQ(asked("time < '2026-11-18T11'"), "0 blocks:");
}

TEST_F(Pushdown, ClassesSkipBlocksWithoutThem) {
    EXPECT_EQ(asked("class = 'APP_FROM' AND uid < 18"), "1 block: 16 17");
    EXPECT_EQ(asked("class = 'APP_TO'").substr(0, 9), "5 blocks:");
    EXPECT_EQ(asked("class = 'RESENT'"), "0 blocks:");
    EXPECT_EQ(asked("class = 'no class'"), "0 blocks:");
    EXPECT_EQ(asked("class IS NULL").substr(9), ":");
}

TEST_F(Pushdown, TypesAreAskedOfTheMessagesOfABlock) {
    EXPECT_EQ(asked("type = 'D' AND uid > 12"), "7 blocks: 13 14 15");
    EXPECT_EQ(asked("type = 8 AND uid < 18"), "6 blocks: 16 17");
    EXPECT_EQ(asked("type IN ('8', 'F') AND uid < 18"), "6 blocks: 16 17");
    EXPECT_EQ(asked("type = 'longer than any'"), "0 blocks:");
    EXPECT_NE(connection.plan("SELECT uid FROM orders WHERE type IN ('8', 'F')").find("type IN"), std::string::npos);
}

TEST_F(Pushdown, TextsAreFoundByTheirFilters) {
    EXPECT_EQ(asked("ClOrdID = '777'"), "1 block: 7");
    EXPECT_EQ(asked("Symbol = 'symbol-11'"), "1 block: 11");
    EXPECT_EQ(asked("Symbol IN ('symbol-2', 'symbol-29')"), "2 blocks: 2 29");
    EXPECT_EQ(asked("text1 IS NOT NULL").substr(9), ": 28 29 30");
    EXPECT_EQ(asked("text1 = 'late'"), "1 block: 28 29 30");
}

TEST_F(Pushdown, ANumberIsComparedWithATextAsSqliteDoes) {
    EXPECT_EQ(asked("ClOrdID = 777"), "1 block: 7");
    EXPECT_EQ(asked("ClOrdID = 777.0"), "0 blocks:");
    EXPECT_EQ(asked("CAST(ClOrdID AS INTEGER) = 777"), "10 blocks: 7 20");
}

TEST_F(Pushdown, AnotherCollationFindsMoreThanAnEqualText) {
    EXPECT_EQ(asked("ClOrdID = 'abc'"), "1 block: 25");
    EXPECT_EQ(asked("ClOrdID = 'abc' COLLATE NOCASE"), "10 blocks: 25 26");
    EXPECT_EQ(asked("ClOrdID COLLATE NOCASE IN ('aBc')"), "10 blocks: 25 26");
    EXPECT_EQ(asked("ClOrdID = '777  ' COLLATE RTRIM"), "10 blocks: 7");
}

TEST_F(Pushdown, NullOfAParameterIsNullForIsAlone) {
    const std::vector<SqlValue> null = {SqlValue()};
    EXPECT_EQ(connection.must("SELECT count(*) FROM orders WHERE text1 IS ?", null).text(), "27\n");
    EXPECT_EQ(connection.must("SELECT count(*) FROM orders WHERE text1 = ?", null).text(), "0\n");
    EXPECT_EQ(connection.must("SELECT count(*) FROM orders WHERE Price IS ?", null).text(), "7\n");
    EXPECT_EQ(connection.must("SELECT count(*) FROM orders WHERE class IS ?", null).text(), "0\n");
}

TEST_F(Pushdown, ConditionsThatExcludeEachOtherGiveNothing) {
    EXPECT_EQ(asked("id IN (1, 2) AND class = 'RESENT'"), "0 blocks:");
    EXPECT_EQ(asked("type = 'D' AND type = '8'"), "0 blocks:");
    EXPECT_EQ(asked("possDup = 0 AND possDup = 1"), "0 blocks:");
}

TEST_F(Pushdown, ThePlanTellsWhatIsPushedDown) {
    EXPECT_EQ(connection.plan("SELECT uid FROM orders WHERE uid >= 3 AND Symbol = 'a'").substr(0, 33),
              "'SCAN orders VIRTUAL TABLE INDEX ");
    EXPECT_NE(connection.plan("SELECT uid FROM orders WHERE Symbol = 'a'").find("Symbol"), std::string::npos);
    EXPECT_EQ(connection.plan("SELECT uid FROM orders WHERE Symbol = 'a' COLLATE NOCASE").find("Symbol"),
              std::string::npos);
}

TEST_F(Pushdown, AscendingBlocksNeedNoSorting) {
    for (const char* key : {"uid", "uid DESC", "time", "time DESC", "time_raw", "time_raw DESC"}) {
        EXPECT_FALSE(sorts(std::string("SELECT uid FROM orders ORDER BY ") + key)) << key;
    }
    EXPECT_TRUE(sorts("SELECT uid FROM orders ORDER BY Symbol"));
    EXPECT_TRUE(sorts("SELECT uid FROM orders ORDER BY uid, Symbol"));
    EXPECT_EQ(connection.must("SELECT uid FROM orders ORDER BY uid DESC LIMIT 3").text(), "30\n29\n28\n");
    EXPECT_EQ(connection.must("SELECT uid FROM orders ORDER BY time LIMIT 2 OFFSET 4").text(), "5\n6\n");
}

TEST_F(Pushdown, OnlyTheBlocksOfALimitAreRead) {
    const std::int64_t before = connection.stat("blocksRead");
    EXPECT_EQ(connection.must("SELECT uid FROM orders ORDER BY uid DESC LIMIT 2").text(), "30\n29\n");
    EXPECT_LE(connection.stat("blocksRead") - before, 3);
}

TEST_F(Pushdown, OverlappingBlocksAreSortedBySqlite) {
    StoredTable table(path("jumping"), ordersLayout());
    for (const std::int32_t n : {1, 5, 2, 4, 3, 9, 8}) {
        StoredMessage message = simpleMessage(n);
        message.time = 1'795'000'000'000 + n * 1000;
        table.append(message);
    }
    ASSERT_EQ(show("jumping", "jumping").text(), "");
    for (const char* key : {"uid", "uid DESC", "time", "time_raw DESC"}) {
        EXPECT_TRUE(sorts(std::string("SELECT uid FROM jumping ORDER BY ") + key)) << key;
    }
    EXPECT_EQ(connection.must("SELECT uid FROM jumping ORDER BY uid DESC").text(), "9\n8\n5\n4\n3\n2\n1\n");
}

TEST_F(Pushdown, ADisorderedBlockIsSortedWhenItOverlapsNoOther) {
    StoredTable table(path("shuffled"), ordersLayout());
    for (const std::int32_t n : {3, 1, 2, 6, 4, 5, 8, 7}) {
        table.append(simpleMessage(n));
    }
    ASSERT_EQ(show("shuffled", "shuffled").text(), "");
    EXPECT_FALSE(sorts("SELECT uid FROM shuffled ORDER BY uid"));
    EXPECT_EQ(connection.must("SELECT uid FROM shuffled ORDER BY uid").text(), "1\n2\n3\n4\n5\n6\n7\n8\n");
    EXPECT_EQ(connection.must("SELECT uid FROM shuffled ORDER BY uid DESC").text(), "8\n7\n6\n5\n4\n3\n2\n1\n");
}

TEST_F(Pushdown, AnOrderThatEndsBetweenPlanAndStepIsKeptNevertheless) {
    StoredTable table(path("growing"), ordersLayout(), simpleMessages(8));
    ASSERT_EQ(show("growing", "growing").text(), "");
    Statement statement(connection, "SELECT uid FROM growing ORDER BY uid");
    for (const std::int32_t n : {2, 20, 3, 1, 21, 4, 5}) {
        table.append(simpleMessage(n));
    }
    std::vector<std::int64_t> ids;
    while (statement.step() == SQLITE_ROW) {
        ids.push_back(statement.integer());
    }
    EXPECT_EQ(ids, (std::vector<std::int64_t>{1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 7, 8, 20, 21}));
}

TEST_F(Pushdown, SeveralFilesAreMergedByUniformId) {
    StoredTable odd(path("part-1"), ordersLayout());
    StoredTable even(path("part-2"), ordersLayout());
    for (std::int32_t n = 1; n <= 9; ++n) {
        (n % 2 == 1 ? odd : even).append(simpleMessage(n));
    }
    ASSERT_EQ(show("parts", "part-*").text(), "");
    EXPECT_EQ(connection.must("SELECT uid FROM parts").text(), "1\n2\n3\n4\n5\n6\n7\n8\n9\n");
    EXPECT_EQ(connection.must("SELECT uid, \"table\" FROM parts WHERE uid IN (3, 4)").text(),
              "3|'part-1'\n4|'part-2'\n");
    EXPECT_FALSE(sorts("SELECT uid FROM parts ORDER BY uid DESC"));
    EXPECT_EQ(connection.must("SELECT uid, rowid & 1023, rowid >> 40 FROM parts ORDER BY uid DESC LIMIT 2").text(),
              "9|4|0\n8|3|1\n");
}

TEST_F(Pushdown, RowidsOfSeveralFilesAscendFileByFileWithoutSorting) {
    StoredTable second(path("orders-2"), ordersLayout(), simpleMessages(4));
    ASSERT_EQ(show("both", "orders*").text(), "");
    for (const char* order : {"", " DESC"}) {
        const std::string statement = "SELECT \"table\", uid FROM both ORDER BY rowid" + std::string(order);
        EXPECT_FALSE(sorts(statement)) << statement;
        EXPECT_EQ(
            connection.must(statement).text(),
            connection.must("SELECT \"table\", uid FROM both ORDER BY \"table\"" + std::string(order) + ", uid" + order)
                .text());
    }
}

TEST_F(Pushdown, NamesOfFieldsAreMadeUnique) {
    const Layout layout{.texts = {"A", "a", "uid", ""}, .numbers = {"Price", "Time"}, .messagesPerBlock = 3};
    StoredTable table(path("names"), layout);
    ASSERT_EQ(show("names", "names").text(), "");
    std::string names;
    for (const auto& row : connection.must("SELECT name, type, hidden FROM pragma_table_xinfo('names')").rows) {
        names += row[0] + row[1] + row[2] + " ";
    }
    EXPECT_EQ(names,
              "'table''TEXT'0 'uid''INTEGER'0 'seq''INTEGER'0 'prevSeq''INTEGER'0 'id''INTEGER'0 'class''TEXT'0 "
              "'time''TEXT'0 'time_raw''INTEGER'0 'type''TEXT'0 'possDup''INTEGER'0 'outOfSequence''INTEGER'0 "
              "'text0''TEXT'0 'text1''TEXT'0 'A''TEXT'0 'a#2''TEXT'0 'fields.uid''TEXT'0 'field3''TEXT'0 "
              "'Price'''0 'fields.Time'''0 'wire''BLOB'0 'nonMetadata''TEXT'0 'file''TEXT'1 'block''INTEGER'1 "
              "'offset''INTEGER'1 ");
}

}  // namespace
}  // namespace tabulo::sqlite::test
