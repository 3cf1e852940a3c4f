// GROUP BY, DISTINCT and ORDER BY of columns that are all a statement uses, and have few values: nothing is sorted.
#include <algorithm>

#include "adapters/sqlite/grouped_rows.h"
#include "tests/adapters/sqlite/sql_test.h"

namespace tabulo::sqlite::test {
namespace {

constexpr std::int32_t messageCount = 120;

class SqlGroups : public SqlTest {
  protected:
    SqlGroups() {
        StoredTable table(path("orders"), ordersLayout(10));
        for (std::int32_t n = 1; n <= messageCount; ++n) {
            StoredMessage message = simpleMessage(n);
            message.type = n % 3 == 0 ? "D" : "8";
            message.texts[0] = n % 5 == 0   ? tabulo::test::StoredText()
                               : n % 7 == 0 ? tabulo::test::StoredText("")
                                            : tabulo::test::StoredText("S" + std::to_string(n % 4));
            table.append(message);
        }
        EXPECT_EQ(show("orders", "orders").text(), "");
        connection.must("CREATE TABLE plain AS SELECT *, rowid AS place FROM orders");
    }

    bool isGrouped(const std::string& statement) {
        const std::string plan = connection.plan(statement);
        const std::size_t scan = plan.find("VIRTUAL TABLE INDEX");
        return plan.substr(scan, plan.find('\n', scan) - scan).find("GROUP BY") != std::string::npos;
    }
    // The same of the virtual table and of one of SQLite's own, whose rows need not come in the order of the first.
    void expectSame(const std::string& select, const std::string& rest, bool isOrdered) {
        EXPECT_TRUE(isGrouped(select + " FROM orders " + rest)) << select << rest;
        Answer ours = connection.must(select + " FROM orders " + rest);
        Answer theirs = connection.must(select + " FROM plain " + rest);
        if (!isOrdered) {
            std::sort(ours.rows.begin(), ours.rows.end());
            std::sort(theirs.rows.begin(), theirs.rows.end());
        }
        EXPECT_EQ(ours.text(), theirs.text()) << select << rest;
        EXPECT_FALSE(ours.rows.empty());
    }
};

TEST_F(SqlGroups, TheAnswersAreThoseOfSqlitesOwnTable) {
    expectSame("SELECT Symbol, count(*), count(Symbol)", "GROUP BY Symbol", false);
    expectSame("SELECT type, Symbol, count(*)", "GROUP BY type, Symbol", false);
    expectSame("SELECT Symbol, count(*)", "GROUP BY 1 HAVING count(*) > 9", false);
    expectSame("SELECT count(*)", "WHERE type = '8' GROUP BY Symbol", false);
    expectSame("SELECT Symbol, count(*)", "WHERE Symbol > 'S0' GROUP BY Symbol", false);
    expectSame("SELECT DISTINCT Symbol", "", false);
    expectSame("SELECT DISTINCT type, class, Symbol", "WHERE Symbol IS NOT NULL", false);
}

TEST_F(SqlGroups, ValuesComeInTheOrderThatIsAskedFor) {
    expectSame("SELECT Symbol, count(*)", "GROUP BY Symbol ORDER BY Symbol", true);
    expectSame("SELECT Symbol, count(*)", "GROUP BY Symbol ORDER BY Symbol DESC", true);
    expectSame("SELECT Symbol, type", "ORDER BY Symbol, type DESC", true);
    expectSame("SELECT DISTINCT Symbol, type", "ORDER BY Symbol DESC, type", true);
    EXPECT_EQ(connection.plan("SELECT Symbol, type FROM orders ORDER BY Symbol DESC, type").find("TEMP B-TREE"),
              std::string::npos);
}

TEST_F(SqlGroups, AnotherColumnOrCollationIsLeftToSqlite) {
    EXPECT_FALSE(isGrouped("SELECT Symbol, max(uid) FROM orders GROUP BY Symbol"));
    EXPECT_FALSE(isGrouped("SELECT Symbol, group_concat(type) FROM orders GROUP BY Symbol"));
    EXPECT_FALSE(isGrouped("SELECT Symbol FROM orders WHERE type IN ('8', 'D') GROUP BY Symbol"));
    EXPECT_FALSE(isGrouped("SELECT count(*) FROM orders GROUP BY Symbol COLLATE NOCASE"));
    EXPECT_FALSE(isGrouped("SELECT OrderQty, count(*) FROM orders GROUP BY OrderQty"));
    EXPECT_FALSE(isGrouped("SELECT Symbol, count(*) FROM orders WHERE rowid > 4 GROUP BY Symbol"));
}

TEST_F(SqlGroups, ManyValuesAreLeftToSqlite) {
    EXPECT_FALSE(isGrouped("SELECT ClOrdID, count(*) FROM orders GROUP BY ClOrdID"));
    StoredTable few(path("few"), ordersLayout(), simpleMessages(6));
    ASSERT_EQ(show("few", "few").text(), "");
    EXPECT_FALSE(isGrouped("SELECT type, count(*) FROM few GROUP BY type")) << "two blocks";
}

TEST_F(SqlGroups, RowidsOfAGroupAreThoseOfItsMessages) {
    for (const char* group : {"Symbol", "type, Symbol"}) {
        const std::string columns = std::string("SELECT ") + group;
        const std::string grouped = std::string(" GROUP BY ") + group;
        EXPECT_TRUE(isGrouped(columns + ", sum(rowid) FROM orders" + grouped));
        EXPECT_EQ(connection.must(columns + ", count(*), sum(rowid), min(rowid) FROM orders" + grouped).text(),
                  connection.must(columns + ", count(*), sum(place), min(place) FROM plain" + grouped).text());
    }
}

TEST_F(SqlGroups, ValuesThatAreTooManyAreGatheredInTurns) {
    const auto shared = std::make_shared<sqlite::Connection>(connection.handle());
    TableSet tables(*shared, {path("orders").string()}, TableSet::Layouts::one);
    const std::vector<Column> columns = columnsOf(&tables.layout());
    const std::vector<GroupTerm> terms = {{8, true}, {13, false}};
    ASSERT_EQ(columns[8].name + columns[13].name, "typeSymbol");
    int turns = 0;
    const auto open = [&] {
        ++turns;
        std::vector<Source> sources{{.number = 0, .file = tables.files()[0].get()}};
        return std::make_unique<MessageStream>(*shared, std::move(sources), Order::rowids, false);
    };
    const auto rowidsOf = [&](std::size_t mostValues) {
        turns = 0;
        std::string rowids;
        for (GroupedRows rows(GroupKeys(columns, terms), open, mostValues); !rows.isAtEnd(); rows.next()) {
            rowids += std::to_string(rows.rowid()) + " ";
        }
        return rowids;
    };
    shared->cursorOpened();
    const std::string all = rowidsOf(1000);
    EXPECT_EQ(turns, 2) << "once for the values, and once for the rowids";
    for (const std::size_t most : {1U, 2U, 3U, 7U}) {
        EXPECT_EQ(rowidsOf(most), all) << most;
        EXPECT_GT(turns, 2) << most;
    }
    shared->cursorClosed();
    std::string sorted;
    for (const auto& row : connection.must("SELECT place FROM plain ORDER BY type DESC, Symbol, place").rows) {
        sorted += row[0] + " ";
    }
    EXPECT_EQ(all, sorted);
}

}  // namespace
}  // namespace tabulo::sqlite::test
