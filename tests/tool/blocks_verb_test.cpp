#include <string>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class BlocksVerbTest : public ToolTest {};

TEST_F(BlocksVerbTest, EachBlockIsALine) {
    makeOrders("orders", 7);
    const ProgramResult result = run({"blocks", "orders"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(
        result.output,
        "BLOCK  OFFSET  LENGTH  CLOSED  FIRST MSG  MESSAGES  UIDS  SEQS  FROM                     TO                 "
        "      IDS                                         FILTER FILL %\n"
        "    0     186    5808  yes             0         4  1..4  1..2  2026-11-20 19:31:45.673  2026-11-20 "
        "19:31:46.423  APP_FROM 536870913..536870915, APP_TO 1..3  text0 0.1, text1 0.0, Symbol 0.1, ClOrdID 0.1\n"
        "    1    5994     468  no              4         3  5..7  3..4  2026-11-20 19:31:46.673  2026-11-20 "
        "19:31:47.173  APP_FROM 536870917, APP_TO 5..7             -\n");
}

TEST_F(BlocksVerbTest, JsonHasRangesAndFillInPercent) {
    makeOrders("orders", 5);
    EXPECT_EQ(
        run({"blocks", "orders", "-o", "ndjson", "--time-unit", "ms"}).output,
        "{\"block\":0,\"offset\":186,\"length\":5808,\"closed\":true,\"firstMessage\":0,\"messages\":4,\"uids\":[1,4],"
        "\"seqs\":[1,2],\"firstTime\":\"2026-11-20T19:31:45.673Z\",\"firstTimeRaw\":\"1795203105673\","
        "\"lastTime\":\"2026-11-20T19:31:46.423Z\",\"lastTimeRaw\":\"1795203106423\","
        "\"ids\":{\"APP_FROM\":[536870913,536870915],\"APP_TO\":[1,3]},"
        "\"filterFill\":{\"text0\":0.09,\"text1\":0.0,\"Symbol\":0.14,\"ClOrdID\":0.08}}\n"
        "{\"block\":1,\"offset\":5994,\"length\":165,\"closed\":false,\"firstMessage\":4,\"messages\":1,\"uids\":[5,5],"
        "\"seqs\":[3,3],\"firstTime\":\"2026-11-20T19:31:46.673Z\",\"firstTimeRaw\":\"1795203106673\","
        "\"lastTime\":\"2026-11-20T19:31:46.673Z\",\"lastTimeRaw\":\"1795203106673\",\"ids\":{\"APP_TO\":[5,5]},"
        "\"filterFill\":null}\n");
}

TEST_F(BlocksVerbTest, NamesThatRepeatAreToldApart) {
    Writer writer = Writer::create(file("orders"), {.texts = {"", "text0", "Symbol"}, .messagesPerBlock = 1});
    writer.append(Message{.type = "D"});
    writer.close();
    const std::string output = run({"blocks", "orders", "-o", "ndjson"}).output;
    EXPECT_NE(output.find("{\"text0\":0.0,\"text1\":0.0,\"#2\":0.0,\"text0#3\":0.0,\"Symbol\":0.0}"), std::string::npos)
        << output;
}

TEST_F(BlocksVerbTest, AnEmptyTableHasNone) {
    makeOrders("orders", 0);
    const ProgramResult result = run({"blocks", "orders"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output + result.errors, "");
}

TEST_F(BlocksVerbTest, BlocksInFrontOfDamageAreShown) {
    const std::string path = makeOrders("orders", 23);
    internal::test::patchFile(path, 11805, Bytes(4, 0xFF));  // the third block's length
    const ProgramResult result = run({"blocks", "orders"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(occurrences(result.output, "\n"), 3) << result.output;
    EXPECT_NE(result.errors.find("HEADER_CORRUPTED_ERROR"), std::string::npos) << result.errors;
}

TEST_F(BlocksVerbTest, WhatIsNotOneMessageTableFails) {
    makeOrders("orders", 3);
    makeSession("session");
    EXPECT_EQ(run({"blocks", "session"}).errors,
              "tabulo: session is a session info table and holds no messages; 'tabulo session session' shows it\n");
    EXPECT_EQ(run({"blocks", "session"}).status, 1);
    EXPECT_EQ(run({"blocks", "."}).status, 1);
    EXPECT_EQ(run({"blocks", "missing"}).status, 1);
    EXPECT_EQ(run({"blocks", "orders", "orders"}).status, 2);
}

TEST_F(BlocksVerbTest, AReaderThatGoesAwayEndsItQuietly) {
    makeOrders("orders", 20000, 1, 1);
    CommandSettings settings;
    settings.directory = directory.path();
    // The pipe is closed behind the first line, long before the blocks end.
    const ProgramResult result =
        runScript("\"$TABULO\" blocks orders --time-unit ms | head -n 1; exit ${PIPESTATUS[0]}", settings);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(occurrences(result.output, "\n"), 1);
}

}  // namespace

}  // namespace tabulo::tool::test
