// Random statements over message tables give what they give over SQLite's own tables with the same rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "tabulo/index.h"
#include "tests/adapters/sqlite/random_statement.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_run.h"
#include "tests/tool/recorded_session.h"

namespace tabulo::sqlite::test {
namespace {

using internal::test::testEffort;
using internal::test::testSeed;

// In each of the parts, which can run side by side.
constexpr int statementsPerRun = 5000;
constexpr int recordedStatementsPerRun = 20;
constexpr int statementsPerConnection = 50;
constexpr std::uint32_t partDistance = 104'729;

using Rows = std::vector<std::vector<std::string>>;

std::string shown(const std::vector<std::string>& row) {
    Answer answer;
    answer.rows.push_back(row);
    return answer.text();
}

std::string firstDifference(const Rows& live, const Rows& kept) {
    for (std::size_t i = 0; i < std::min(live.size(), kept.size()); ++i) {
        if (live[i] != kept[i]) {
            return "row " + std::to_string(i) + ":\n  message table:  " + shown(live[i]) +
                   "  ordinary table: " + shown(kept[i]);
        }
    }
    if (live.size() == kept.size()) {
        return "";
    }
    const bool isMore = live.size() > kept.size();
    return std::to_string(live.size()) + " rows of the message table, " + std::to_string(kept.size()) +
           " of the ordinary one; the first that only " + (isMore ? "the former" : "the latter") +
           " has: " + shown(isMore ? live[kept.size()] : kept[live.size()]);
}

Rows keysOf(const Rows& rows) {
    Rows keys;
    for (const std::vector<std::string>& row : rows) {
        keys.push_back({row.back()});
    }
    return keys;
}

// Those of keys of which no row can have been cut off.
Rows whole(const Rows& rows) {
    Rows inner;
    for (const std::vector<std::string>& row : rows) {
        if (row.back() != rows.front().back() && row.back() != rows.back().back()) {
            inner.push_back(row);
        }
    }
    return inner;
}

std::string difference(const RandomStatement& statement, const Answer& live, const Answer& kept) {
    if (live.error.empty() != kept.error.empty()) {
        return "message table: " + live.error + "; ordinary table: " + kept.error;
    }
    if (!live.error.empty()) {
        return "";
    }
    if (statement.orderKeys < 0) {
        return firstDifference(live.rows, kept.rows);
    }
    Rows ours = live.rows;
    Rows theirs = kept.rows;
    if (statement.orderKeys > 0) {
        if (std::string fault = firstDifference(keysOf(ours), keysOf(theirs)); !fault.empty()) {
            return "keys, " + fault;
        }
        if (statement.sql.find(" LIMIT ") != std::string::npos) {
            ours = whole(ours);
            theirs = whole(theirs);
        }
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    return firstDifference(ours, theirs);
}

std::string parametersText(const RandomStatement& statement) {
    std::string text;
    for (const SqlValue& value : statement.parameters) {
        text += (text.empty() ? "" : ", ") + sqlLiteral(value);
    }
    return text;
}

// What happened, so that a run that tests little is noticed.
struct Tally {
    int statements = 0;
    int spared = 0;  // that skipped blocks,
    int filled = 0;  // or gave rows
    int failed = 0;  // in both tables
};

class RandomStatements : public ::testing::TestWithParam<std::uint32_t> {
  protected:
    void runConnection(std::uint32_t seed, int number) {
        Random random(seed + static_cast<std::uint32_t>(number) * 7919U + GetParam() * partDistance);
        const internal::test::TemporaryDirectory directory;
        Connection connection;
        TwinTables first(connection, random, directory.path(), 0);
        TwinTables second(connection, random, directory.path(), 1);
        SCOPED_TRACE("connection " + std::to_string(number) + " of a run with " + internal::test::TEST_SEED_VARIABLE +
                     "=" + std::to_string(seed) + "; " + first.words + "; " + second.words);
        const std::vector<const TwinTables*> tables = {&first, &second};
        expectSameTables(connection, tables);
        for (int i = 0; i < statementsPerConnection && !HasFailure(); ++i) {
            if (random.percent(3)) {
                first.store(random, random.between(1, 6));
            }
            ask(connection, randomStatement(random, tables));
        }
    }

    static void expectSameTables(Connection& connection, const std::vector<const TwinTables*>& tables) {
        for (std::size_t i = 0; i < tables.size(); ++i) {
            std::string shown;
            for (const TwinColumn& column : tables[i]->columns) {
                shown += column.isHidden ? "" : (shown.empty() ? "" : ", ") + column.name;
            }
            const std::string number = std::to_string(i);
            EXPECT_EQ(connection.must("SELECT * FROM live" + number + " ORDER BY rowid").text(),
                      connection.must("SELECT " + shown + " FROM kept" + number + " ORDER BY rowid").text());
        }
    }

    void ask(Connection& connection, const RandomStatement& statement) {
        const std::int64_t before = connection.stat("blocksSkipped");
        const Answer live = connection.run(statement.sql, statement.parameters);
        tally.spared += connection.stat("blocksSkipped") > before;
        const Answer kept = connection.run(statement.overKept(), statement.parameters);
        tally.statements += 1;
        tally.filled += !kept.rows.empty();
        tally.failed += !kept.error.empty();
        EXPECT_EQ(difference(statement, live, kept), "")
            << statement.sql << "\nwith " << parametersText(statement) << "\nplan: " << planOf(connection, statement);
    }

    static std::string planOf(Connection& connection, const RandomStatement& statement) {
        std::string text;
        for (const auto& row : connection.run("EXPLAIN QUERY PLAN " + statement.sql).rows) {
            text += row.back() + "; ";
        }
        return text;
    }

    Tally tally;
};

TEST_P(RandomStatements, AnswerAsOverOrdinaryTables) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; tally.statements < statementsPerRun * testEffort() && !HasFailure(); ++number) {
        runConnection(seed, number);
    }
    std::cout << tally.statements << " statements, of which " << tally.filled << " gave rows and " << tally.failed
              << " failed in both; " << tally.spared << " skipped blocks\n";
    EXPECT_GE(tally.spared * 100, tally.statements * 10) << "blocks are hardly ever skipped";
    EXPECT_GE(tally.filled * 100, tally.statements * 50) << "statements hardly ever give rows";
    EXPECT_LE(tally.failed * 100, tally.statements * 2) << "statements fail too often to test much";
    internal::test::reportFigure("sql", "random statements", tally.statements);
}

TEST_P(RandomStatements, AnswerAsOverOrdinaryTablesOfRecordedSessions) {
    const std::uint32_t seed = testSeed();
    Random random(seed + GetParam() * partDistance);
    const internal::test::TemporaryDirectory directory;
    const Layout layout{.texts = {"ClOrdID", "OrderID", "Symbol"}, .numbers = {}, .messagesPerBlock = 100};
    const std::int32_t next = tool::test::makeRecorded(directory.file("day1"), "client-day1", layout);
    tool::test::makeRecorded(directory.file("day2"), "client-day2", layout, next);
    Indexer(directory.file("day2")).complete();
    Connection connection;
    const TwinTables first(connection, directory.file("day1"), 0);
    const TwinTables second(connection, directory.file("day2"), 1);
    const std::vector<const TwinTables*> tables = {&first, &second};
    expectSameTables(connection, tables);
    while (tally.statements < recordedStatementsPerRun * testEffort() && !HasFailure()) {
        ask(connection, randomScan(random, tables));
    }
    const std::int64_t before = connection.stat("blocksSkipped");
    EXPECT_EQ(connection.text("SELECT count(*) FROM live0 WHERE uid = 5000"), "1\n");
    EXPECT_GE(connection.stat("blocksSkipped") - before, 100) << "blocks of a hundred messages, most of 11,000";
    internal::test::reportFigure("sql", "random statements about recorded sessions", tally.statements);
}

INSTANTIATE_TEST_SUITE_P(Part, RandomStatements, ::testing::Values(1U, 2U, 3U, 4U));

}  // namespace
}  // namespace tabulo::sqlite::test
