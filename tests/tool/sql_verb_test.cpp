// The verb sql, as a program.
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class SqlVerbTest : public ToolTest {
  protected:
    // What a statement prints as csv, without carriage returns; status and words are checked.
    std::string csv(const std::string& statement, std::vector<std::string> files, const std::string& words = "") const {
        files.insert(files.begin(), {"sql", "-o", "csv", statement});
        const ProgramResult result = run(files);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors, words);
        std::string output = result.output;
        std::erase(output, '\r');
        return output;
    }
    ProgramResult runWithInput(const std::vector<std::string>& arguments, const std::string& input) const {
        CommandSettings settings;
        settings.directory = directory.path();
        settings.input = input;
        return runCommand(arguments, settings);
    }
};

constexpr const char* ENDLESS = "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) ";

}  // namespace

TEST_F(SqlVerbTest, AStatementIsAnsweredInEachFormat) {
    makeOrders("orders", 23);
    const std::string statement =
        "SELECT type, count(*) AS messages, max(Price) AS top FROM orders GROUP BY type ORDER BY type";
    EXPECT_EQ(run({"sql", statement, "orders"}).output,
              "type  messages     top\n"
              "0            2   102.5\n"
              "8            9   105.5\n"
              "D           12  105.75\n");
    EXPECT_EQ(run({"sql", "-o", "csv", statement, "orders"}).output,
              "type,messages,top\r\n0,2,102.5\r\n8,9,105.5\r\nD,12,105.75\r\n");
    EXPECT_EQ(run({"sql", statement, "-o", "ndjson", "orders"}).output,
              "{\"type\":\"0\",\"messages\":2,\"top\":102.5}\n{\"type\":\"8\",\"messages\":9,\"top\":105.5}\n"
              "{\"type\":\"D\",\"messages\":12,\"top\":105.75}\n");
}

TEST_F(SqlVerbTest, TwoTablesAreJoinedByTheirNames) {
    makeOrders("sent", 8);
    makeOrders("other-day", 6, 3);
    EXPECT_EQ(csv("SELECT a.uid, b.uid, b.ClOrdID FROM sent a JOIN \"other-day\" b ON a.uid = b.uid + 4 ORDER BY 1",
                  {"sent", "other-day"}),
              "uid,uid#2,ClOrdID\n7,3,order-2\n8,4,order-2\n");
}

TEST_F(SqlVerbTest, AFolderStandsForItsTablesAndForeignFilesAreNamed) {
    std::filesystem::create_directory(file("data"));
    makeOrders("data/orders", 5);
    makeSession("data/session");
    makeFile("data/notes.txt", "not a table");
    makeFile("data/.hidden", "not a table");
    const ProgramResult result =
        run({"sql", "-o", "csv", "SELECT count(*) FROM orders; SELECT tag, value FROM session", "data"});
    EXPECT_EQ(result.output, "count(*)\r\n5\r\ntag,value\r\n1,17\r\n2,42\r\n9,-1\r\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("data/notes.txt"), std::string::npos) << result.errors;
    EXPECT_EQ(linesOf(result.errors).size(), 1U) << result.errors;
}

TEST_F(SqlVerbTest, SeveralTablesOfOneLayoutAreAlsoTheTableMessages) {
    makeOrders("monday", 4);
    makeOrders("tuesday", 9, 5);
    makeSession("session");
    const std::vector<std::string> files = {"tuesday", "session", "monday"};
    const std::string query = "SELECT \"table\", count(*) AS messages, min(uid) AS first FROM messages GROUP BY 1";
    EXPECT_EQ(csv(query, files), "table,messages,first\nmonday,4,1\ntuesday,5,5\n");
    EXPECT_EQ(csv("SELECT group_concat(uid) AS ids FROM (SELECT uid FROM messages)", files),
              "ids\n\"1,2,3,4,5,6,7,8,9\"\n");
}

TEST_F(SqlVerbTest, SeveralLayoutsOrATakenNameMakeNoTableOfAll) {
    makeOrders("orders", 4);
    Writer::create(file("other"), {.texts = {"Account"}}).close();
    EXPECT_EQ(csv("SELECT count(*) AS n FROM messages", {"orders"}), "n\n4\n");
    EXPECT_NE(run({"sql", "SELECT 1 FROM messages", "orders", "other"}).errors.find("no such table: messages"),
              std::string::npos);
    makeOrders("Messages", 7);
    EXPECT_EQ(csv("SELECT count(*) AS n FROM messages", {"orders", "Messages"}), "n\n7\n");
}

TEST_F(SqlVerbTest, ASecondFileOfOneNameGetsANumberWhichIsSaid) {
    std::filesystem::create_directory(file("a"));
    std::filesystem::create_directory(file("b"));
    makeOrders("a/orders", 3);
    makeOrders("b/ORDERS", 9, 4);
    makeOrders("orders_2", 1);
    EXPECT_EQ(csv("SELECT (SELECT count(*) FROM orders) AS a, (SELECT count(*) FROM orders_2) AS b,"
                  " (SELECT count(*) FROM orders_3) AS c",
                  {"a/orders", "orders_2", "b/ORDERS"}, "tabulo: b/ORDERS is the table ORDERS_3\n"),
              "a,b,c\n3,1,6\n");
}

TEST_F(SqlVerbTest, OddNamesOfFilesAreNamesOfTables) {
    for (const std::string name : {"it's \"one\"", "a,b)", "select", "[x]*?", "-- x", "a;b", "\xC3\xA9t\xC3\xA9"}) {
        makeOrders(name, 3);
        std::string quoted = name;
        for (std::size_t at = 0; (at = quoted.find('"', at)) != std::string::npos; at += 2) {
            quoted.insert(at, 1, '"');
        }
        EXPECT_EQ(csv("SELECT count(*) AS n FROM \"" + quoted + "\"", {"./" + name}), "n\n3\n") << name;
    }
    makeOrders("sqlite_x", 2);
    EXPECT_EQ(csv("SELECT count(*) AS n FROM _sqlite_x", {"sqlite_x"}, "tabulo: sqlite_x is the table _sqlite_x\n"),
              "n\n2\n");
    makeOrders("bad\xFFname", 2);
    EXPECT_EQ(csv("SELECT count(*) AS n FROM \"bad\\xFFname\"", {"bad\xFFname"},
                  "tabulo: bad\\xFFname is the table bad\\xFFname\n"),
              "n\n2\n");
}

TEST_F(SqlVerbTest, ErrorsAreSqlitesWordsWithThePlace) {
    makeOrders("orders", 3);
    const ProgramResult unknown = run({"sql", "SELECT Symbl FROM orders WHERE uid = 1", "orders"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.output, "");
    EXPECT_EQ(unknown.errors, "tabulo: no such column: Symbl, at: Symbl FROM orders WHERE uid = 1\n");
    const ProgramResult quoted = run({"sql", "SELECT uid FROM orders WHERE \"Symbl\" = 'ACME'", "orders"});
    EXPECT_EQ(quoted.status, 1) << "a misspelled name in quotes is no text";
    EXPECT_NE(quoted.errors.find("no such column: Symbl"), std::string::npos) << quoted.errors;
    const ProgramResult second = run({"sql", "-o", "csv", "SELECT 1 AS a; SELEKT 2", "orders"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.output, "a\r\n1\r\n");
    EXPECT_EQ(second.errors, "tabulo: near \"SELEKT\": syntax error, at: SELEKT 2\n");
}

TEST_F(SqlVerbTest, WhatIsNoFileAndNoStatementIsSaid) {
    makeOrders("orders", 3);
    const ProgramResult nothing = run({"sql"});
    EXPECT_EQ(nothing.status, 2);
    EXPECT_NE(nothing.errors.find("a FILE is missing"), std::string::npos) << nothing.errors;
    const ProgramResult misspelled = run({"sql", "ordrs"});
    EXPECT_EQ(misspelled.status, 1);
    EXPECT_EQ(misspelled.errors, "tabulo: 'ordrs' is no statement, and there is no file of that name\n");
    const ProgramResult missing = run({"sql", "SELECT 1", "orders", "ordrs"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.errors, "tabulo: ordrs cannot be read: No such file or directory\n");
    EXPECT_EQ(run({"sql", "-o", "xml", "SELECT 1", "orders"}).status, 2);
    makeFile("notes", "not a table");
    const ProgramResult foreign = run({"sql", "SELECT 1", "notes"});
    EXPECT_EQ(foreign.status, 1);
    EXPECT_NE(foreign.errors.find("notes"), std::string::npos) << foreign.errors;
    std::filesystem::create_directory(file("empty"));
    EXPECT_EQ(run({"sql", "SELECT 1", "empty"}).errors, "tabulo: there is no table to read\n");
}

TEST_F(SqlVerbTest, NothingIsWrittenToAFile) {
    makeOrders("orders", 3);
    const auto before = contents();
    for (const char* statement : {"ATTACH 'new.db' AS new", "VACUUM INTO 'new.db'", "ATTACH ':memory:' AS new"}) {
        const ProgramResult result = run({"sql", statement, "orders"});
        EXPECT_EQ(result.status, 1) << statement;
        EXPECT_NE(result.errors.find("ATTACH and VACUUM are refused, because they can write files"), std::string::npos)
            << result.errors;
    }
    for (const char* statement : {"DELETE FROM orders", "UPDATE orders SET uid = 1", "SELECT load_extension('x')"}) {
        const ProgramResult result = run({"sql", statement, "orders"});
        EXPECT_EQ(result.status, 1) << statement << result.output;
    }
    EXPECT_EQ(csv("CREATE TEMP TABLE kept AS SELECT uid FROM orders; DELETE FROM kept WHERE uid = 2;"
                  "SELECT count(*) AS n FROM kept",
                  {"orders"}),
              "n\n2\n");
    EXPECT_EQ(contents(), before);
}

TEST_F(SqlVerbTest, StatementsAreReadFromStandardInput) {
    makeOrders("orders", 3);
    const ProgramResult result = runWithInput({"sql", "-o", "csv", "orders"},
                                              "SELECT uid\n  FROM orders\n WHERE uid > 2; -- ';'\nSELECT ';' AS s");
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "uid\r\n3\r\ns\r\n;\r\n");
    const ProgramResult wrong = runWithInput({"sql", "-o", "csv", "orders"}, "SELECT 1 AS a;\nNOPE;\nSELECT 2 AS a;\n");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_EQ(wrong.output, "a\r\n1\r\n");
    EXPECT_EQ(runWithInput({"sql", "orders"}, "").status, 0);
}

TEST_F(SqlVerbTest, CommandsOfTheShellWorkInStandardInput) {
    makeOrders("orders", 3);
    const ProgramResult tables = runWithInput({"sql", "-o", "csv", "orders"}, ".tables\n.quit\nSELECT 1;\n");
    EXPECT_EQ(tables.status, 0) << tables.errors;
    EXPECT_EQ(tables.output,
              "table,columns,made\r\nmessages,19,CREATE VIRTUAL TABLE messages USING tabulo('orders')\r\n"
              "orders,19,\"CREATE VIRTUAL TABLE \"\"orders\"\" USING tabulo('orders')\"\r\n");
    const ProgramResult schema = runWithInput({"sql", "-o", "csv", "orders"}, ".schema ORDERS\n");
    EXPECT_NE(schema.output.find("orders,uid,INTEGER,"), std::string::npos) << schema.output;
    EXPECT_NE(schema.output.find("orders,file,TEXT,hidden"), std::string::npos) << schema.output;
    const ProgramResult unknown = runWithInput({"sql", "orders"}, ".nope\n");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.errors, "tabulo: there is no command .nope; .help lists them\n");
}

TEST_F(SqlVerbTest, DamageIsToldBehindTheRowsInFrontOfIt) {
    makeOrders("orders", 12);
    Bytes bytes = readFile(file("orders"));
    {
        Reader reader(file("orders"));
        Messages messages = reader.messages(Query().from(*reader.positionOf(6)));
        const MessageView* message = messages.next();
        const auto begin = bytes.begin() + message->position().offset;
        std::fill(begin, begin + static_cast<std::ptrdiff_t>(message->frame().size()), std::uint8_t{0});
    }
    internal::test::writeFile(file("orders"), bytes);
    for (const char* format : {"csv", "text", "ndjson"}) {
        const ProgramResult result = run({"sql", "-o", format, "SELECT uid FROM orders", "orders"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(occurrences(result.output, "\n"), format == std::string("ndjson") ? 6 : 7) << result.output;
        EXPECT_NE(result.errors.find("orders"), std::string::npos) << result.errors;
    }
}

TEST_F(SqlVerbTest, ARunningStatementEndsWithAnInterrupt) {
    makeOrders("orders", 3);
    const std::string never = std::string("SELECT 'begun'; ") + ENDLESS + "SELECT count(*) FROM n";
    LiveCommand quiet(file("quiet"), {"sql", never, file("orders")});
    EXPECT_TRUE(quiet.awaitText("begun"));
    EXPECT_EQ(quiet.interrupt(), 130);
    LiveCommand printing(file("printing"),
                         {"sql", "-o", "csv", ENDLESS + std::string("SELECT x FROM n"), file("orders")});
    EXPECT_TRUE(printing.awaitLines(1000));
    EXPECT_EQ(printing.interrupt(), 130);
    EXPECT_EQ(printing.errors(), "");
}

TEST_F(SqlVerbTest, AReaderThatHasGoneEndsItInSilence) {
    makeOrders("orders", 3);
    CommandSettings settings;
    settings.directory = directory.path();
    const ProgramResult result = runScript(std::string("\"$TABULO\" sql -o csv '") + ENDLESS +
                                               "SELECT x FROM n' orders | head -n 2; echo ${PIPESTATUS[0]}",
                                           settings);
    EXPECT_EQ(result.output, "x\r\n1\r\n0\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(SqlVerbTest, TimesHaveTheUnitThatIsGiven) {
    makeOrders("orders", 1);
    EXPECT_EQ(csv("SELECT time, time_raw FROM orders", {"orders"}),
              "time,time_raw\n2026-11-20T19:31:45.673Z,1795203105673\n");
    EXPECT_EQ(csv("SELECT time FROM orders", {"orders", "--time-unit", "us"}), "time\n1970-01-21T18:40:03.105673Z\n");
    EXPECT_EQ(run({"sql", "--time-unit", "h", "SELECT 1", "orders"}).status, 2);
}

}  // namespace tabulo::tool::test
