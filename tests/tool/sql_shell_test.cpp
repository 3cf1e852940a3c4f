// Asking for statements on a terminal.
#include <signal.h>

#include <string>

#include "tests/tool/tool_test.h"
#include "tests/tool/typed_terminal.h"

namespace tabulo::tool::test {

namespace {

constexpr const char* INTERRUPT_KEY = "\x03";
constexpr const char* END_KEY = "\x04";

class SqlShellTest : public ToolTest {
  protected:
    SqlShellTest() { makeOrders("orders", 23); }
};

}  // namespace

TEST_F(SqlShellTest, AStatementMayHaveSeveralLinesAndEndsWithASemicolon) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT count(*) AS messages\n");
    ASSERT_TRUE(terminal.await("   ...> ")) << terminal.output();
    terminal.type("FROM orders;\n");
    EXPECT_TRUE(terminal.await("messages")) << terminal.output();
    EXPECT_TRUE(terminal.await("23")) << terminal.output();
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type(END_KEY);
    EXPECT_EQ(terminal.wait(), 0) << terminal.output();
}

TEST_F(SqlShellTest, AnErrorIsSaidAndTheNextStatementRuns) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT nope;\n");
    EXPECT_TRUE(terminal.await("tabulo: no such column: nope, at: nope;")) << terminal.output();
    terminal.type(".nope\n");
    EXPECT_TRUE(terminal.await("there is no command .nope; .help lists them")) << terminal.output();
    terminal.type("SELECT 40 + 2;\n");
    EXPECT_TRUE(terminal.await("\r\n    42\r\n")) << terminal.output();
    terminal.type(".quit\n");
    EXPECT_EQ(terminal.wait(), 0) << terminal.output();
}

TEST_F(SqlShellTest, AnInterruptEndsTheStatementAndNotTheShell) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT 'be' || 'gun'; WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n)");
    terminal.type(" SELECT count(*) FROM n;\n");
    ASSERT_TRUE(terminal.await("begun")) << terminal.output();
    terminal.type(INTERRUPT_KEY);
    ASSERT_TRUE(terminal.await("tabulo: interrupted")) << terminal.output();
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT 40 + 2;\n");
    EXPECT_TRUE(terminal.await("\r\n    42\r\n")) << terminal.output();
}

TEST_F(SqlShellTest, AnInterruptAtThePromptForgetsWhatWasTyped) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT nope\n");
    ASSERT_TRUE(terminal.await("   ...> ")) << terminal.output();
    terminal.type("FROM nowhere");
    ASSERT_TRUE(terminal.await("nowhere")) << terminal.output();
    terminal.type(INTERRUPT_KEY);
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT 40 + 2;\n");
    EXPECT_TRUE(terminal.await("\r\n    42\r\n")) << terminal.output();
    EXPECT_EQ(terminal.output().find("no such"), std::string::npos) << terminal.output();
}

TEST_F(SqlShellTest, ARequestToEndEndsItAtThePrompt) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    ::kill(terminal.id(), SIGTERM);
    EXPECT_EQ(terminal.wait(), 130) << terminal.output();
}

TEST_F(SqlShellTest, CommandsTellAboutTheTables) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type(".tables\n");
    EXPECT_TRUE(terminal.await("CREATE VIRTUAL TABLE \"orders\" USING tabulo('orders')")) << terminal.output();
    terminal.type(".schema orders\n");
    EXPECT_TRUE(terminal.await("ClOrdID        TEXT")) << terminal.output();
    terminal.type(".help\n");
    EXPECT_TRUE(terminal.await("Statements end with ';'")) << terminal.output();
}

#ifdef TABULO_HAS_LIBEDIT

TEST_F(SqlShellTest, TheTabulatorCompletesKeywordsTablesAndColumns) {
    makeOrders("fills", 23);
    TypedTerminal terminal(directory.path(), {"sql", "fills"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("sele\tmax(fills.clord\t) || '!' as top fro\tfill\t;\n");
    EXPECT_TRUE(terminal.await("order-9!")) << terminal.output();
}

TEST_F(SqlShellTest, TheArrowKeysBringLinesBack) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT 40 + 2;\n");
    ASSERT_TRUE(terminal.await("\r\n    42\r\n")) << terminal.output();
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("\x1B[A\n");
    EXPECT_TRUE(terminal.await("\r\n    42\r\n")) << terminal.output();
}

TEST_F(SqlShellTest, LettersOfEveryLanguageCanBeTyped) {
    TypedTerminal terminal(directory.path(), {"sql", "orders"});
    ASSERT_TRUE(terminal.await("tabulo> ")) << terminal.output();
    terminal.type("SELECT length('\xC3\xA9\xE2\x82\xAC') + 40;\n");
    EXPECT_TRUE(terminal.await("\r\n    ") && terminal.await("42\r\n")) << terminal.output();
}

#endif

}  // namespace tabulo::tool::test
