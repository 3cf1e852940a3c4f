#include <string>
#include <vector>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class InfoVerbTest : public ToolTest {};

TEST_F(InfoVerbTest, ATableIsToldLineByLine) {
    makeOrders("orders", 23);
    const ProgramResult result = run({"info", "orders", "--tz", "Europe/Berlin"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(withLockList(result.output),
              "table orders\n"
              "path orders\n"
              "kind messages\n"
              "format 5.800\n"
              "size 29.0 KiB (29735 bytes)\n"
              "header 186 bytes\n"
              "text fields Symbol, ClOrdID\n"
              "number fields Price, OrderQty\n"
              "filters text0, text1, Symbol, ClOrdID\n"
              "messages a block 4\n"
              "messages 23\n"
              "closed blocks 5\n"
              "in the open block 3\n"
              "by class APP_FROM 9, APP_TO 12, ADMIN_FROM 0, ADMIN_TO 2, RESENT 0\n"
              "last ids APP_FROM 536870933, APP_TO 23, ADMIN_TO 1073741843\n"
              "last uniform id 23\n"
              "last good 14 at 2026-11-20 20:31:51.173\n"
              "first pending -\n"
              "last pending -\n"
              "first time 2026-11-20 20:31:45.673\n"
              "last time 2026-11-20 20:31:51.173\n"
              "time unit ms (guessed)\n"
              "closed cleanly yes\n"
              "open for writing no\n"
              "cut files -\n"
              "side index -\n");
}

TEST_F(InfoVerbTest, JsonHasTheSameKeysForBothKinds) {
    makeOrders("orders", 2);
    makeSession("session");
    const ProgramResult result = run({"info", "-o", "ndjson", "--time-unit", "ms", "orders", "session"});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(
        withLockList(result.output),
        "{\"table\":\"orders\",\"path\":\"orders\",\"kind\":\"messages\",\"format\":\"5.800\",\"bytes\":502,"
        "\"headerBytes\":186,\"texts\":[\"Symbol\",\"ClOrdID\"],\"numbers\":[\"Price\",\"OrderQty\"],"
        "\"filters\":[\"text0\",\"text1\",\"Symbol\",\"ClOrdID\"],\"messagesPerBlock\":4,\"tags\":null,\"messages\":2,"
        "\"closedBlocks\":0,\"openMessages\":2,"
        "\"counts\":{\"APP_FROM\":1,\"APP_TO\":1,\"ADMIN_FROM\":0,\"ADMIN_TO\":0,\"RESENT\":0},\"withoutClass\":0,"
        "\"countsComplete\":true,\"lastIds\":{\"APP_FROM\":536870913,\"APP_TO\":1},\"lastUid\":2,\"lastGood\":1,"
        "\"lastGoodTime\":\"2026-11-20T19:31:45.923Z\",\"lastGoodTimeRaw\":\"1795203105923\",\"firstPending\":null,"
        "\"firstPendingTime\":null,\"firstPendingTimeRaw\":null,\"lastPending\":null,\"lastPendingTime\":null,"
        "\"lastPendingTimeRaw\":null,\"firstTime\":\"2026-11-20T19:31:45.673Z\",\"firstTimeRaw\":\"1795203105673\","
        "\"lastTime\":\"2026-11-20T19:31:45.923Z\",\"lastTimeRaw\":\"1795203105923\",\"timeUnit\":\"ms\","
        "\"closedCleanly\":true,\"openForWriting\":false,\"cutFiles\":[],\"problem\":null,\"indexed\":null}\n"
        "{\"table\":\"session\",\"path\":\"session\",\"kind\":\"session\",\"format\":\"5.800\",\"bytes\":80,"
        "\"headerBytes\":56,\"texts\":null,\"numbers\":null,\"filters\":null,\"messagesPerBlock\":null,"
        "\"tags\":[1,2,9],\"messages\":null,\"closedBlocks\":null,\"openMessages\":null,\"counts\":null,"
        "\"withoutClass\":null,\"countsComplete\":null,\"lastIds\":null,\"lastUid\":null,\"lastGood\":null,"
        "\"lastGoodTime\":null,\"lastGoodTimeRaw\":null,\"firstPending\":null,\"firstPendingTime\":null,"
        "\"firstPendingTimeRaw\":null,\"lastPending\":null,\"lastPendingTime\":null,\"lastPendingTimeRaw\":null,"
        "\"firstTime\":null,\"firstTimeRaw\":null,\"lastTime\":null,\"lastTimeRaw\":null,\"timeUnit\":null,"
        "\"closedCleanly\":true,\"openForWriting\":false,\"cutFiles\":[],\"problem\":null,\"indexed\":null}\n");
}

TEST_F(InfoVerbTest, SeveralTablesAreSetApartForEyes) {
    makeOrders("a", 1);
    makeSession("b");
    const std::string output = run({"info", "."}).output;
    EXPECT_TRUE(output.starts_with("table ")) << output;
    EXPECT_EQ(occurrences(output, "\n\ntable "), 1) << output;
    EXPECT_NE(output.find("tags              1, 2, 9\n"), std::string::npos) << output;
}

TEST_F(InfoVerbTest, PendingMessagesAndOthersWithoutAClassAreTold) {
    Writer writer = Writer::create(file("orders"), ordersLayout());
    Message message;
    message.type = "D";
    message.time = 1795203105673;
    message.id = 1;
    message.seqNum = -3;
    writer.append(message);
    message.seqNum = 4;
    message.id = -7;
    writer.append(message);
    writer.close();
    const std::string output = withLockList(run({"info", "orders"}).output);
    EXPECT_NE(output.find("last pending -3 at 2026-11-20 19:31:45.673\n"), std::string::npos) << output;
    EXPECT_NE(output.find("without a class 1\n"), std::string::npos) << output;
    EXPECT_NE(output.find("last uniform id -\n"), std::string::npos) << output;
}

TEST_F(InfoVerbTest, AnEmptyTableHasNoTimes) {
    makeOrders("orders", 0);
    const ProgramResult result = run({"info", "orders"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    const std::string output = withLockList(result.output);
    EXPECT_NE(output.find("messages 0\nclosed blocks 0\nin the open block 0\n"), std::string::npos) << output;
    EXPECT_NE(output.find("first time -\nlast time -\ntime unit not known (--time-unit)\n"), std::string::npos)
        << output;
}

TEST_F(InfoVerbTest, BesideAWriterNothingIsChangedAndNothingIsWrittenBesideTheTable) {
    const std::string path = makeOrders("orders", 3);
    Writer writer = Writer::open(path);
    writer.append(OrderMessage(4).message);
    const auto before = contents();
    const std::string output = withLockList(run({"info", "orders"}).output);
    EXPECT_NE(output.find("messages 4\n"), std::string::npos) << output;
    EXPECT_NE(output.find("open for writing yes\n"), std::string::npos) << output;
    EXPECT_EQ(contents(), before);
    writer.append(OrderMessage(5).message);
    writer.close();
    EXPECT_NE(withLockList(run({"info", "orders"}).output).find("messages 5\n"), std::string::npos);
}

TEST_F(InfoVerbTest, AfterAKilledWriterTheTableIsNotClosedCleanly) {
    const std::string path = makeOrders("orders", 3);
    const ProcessSignal isStored;
    const ProcessSignal never;
    ChildProcess child([&] {
        Writer writer = Writer::open(path);
        for (std::int32_t n = 4; n <= 9; ++n) {
            writer.append(OrderMessage(n).message);
        }
        isStored.raise();
        return never.await() ? 0 : 1;  // killed while it waits
    });
    ASSERT_TRUE(isStored.await());
    child.kill();
    const auto before = contents();
    const ProgramResult result = run({"info", "orders"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::string output = withLockList(result.output);
    EXPECT_NE(output.find("messages 9\n"), std::string::npos) << output;
    EXPECT_NE(output.find("closed cleanly no\n"), std::string::npos) << output;
    EXPECT_EQ(contents(), before);
}

TEST_F(InfoVerbTest, DamageInTheMiddleIsToldWithTheCountsInFrontOfIt) {
    const std::string path = makeOrders("orders", 23);
    internal::test::patchFile(path, 11805, Bytes(4, 0xFF));  // the third block's length
    const ProgramResult result = run({"info", "orders", "-o", "ndjson"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(occurrences(result.errors, "HEADER_CORRUPTED_ERROR"), 1) << result.errors;
    EXPECT_NE(result.errors.find("at offset 11805"), std::string::npos) << result.errors;
    EXPECT_NE(result.output.find("\"messages\":23"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("\"counts\":{\"APP_FROM\":4,\"APP_TO\":4,"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("\"countsComplete\":false"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("\"problem\":\"HEADER_CORRUPTED_ERROR"), std::string::npos) << result.output;
}

TEST_F(InfoVerbTest, DamageInTheOpenBlockIsToldOnce) {
    const std::string path = makeOrders("orders", 23);
    internal::test::patchFile(path, 29264, Bytes(4, 0xFF));  // the first message of the open block
    const ProgramResult result = run({"info", "orders"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(occurrences(result.errors, "CONSISTENCY_ERROR"), 1) << result.errors;
    const std::string output = withLockList(result.output);
    EXPECT_NE(output.find("by class, so far APP_FROM 8, APP_TO 10,"), std::string::npos) << output;
    EXPECT_NE(output.find("problem CONSISTENCY_ERROR"), std::string::npos) << output;
    EXPECT_NE(output.find("time unit ms (guessed)"), std::string::npos) << output;
}

TEST_F(InfoVerbTest, ALostHeaderFails) {
    std::filesystem::resize_file(makeOrders("orders", 23), 100);
    const ProgramResult result = run({"info", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors.find("STREAM_NOT_ENOUGH_DATA_ERROR"), std::string::npos) << result.errors;
}

TEST_F(InfoVerbTest, WithoutAFileTheUseIsWrong) {
    const ProgramResult result = run({"info"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("'tabulo info --help' tells what it takes"), std::string::npos) << result.errors;
}

TEST_F(InfoVerbTest, ADebugLogIsWrittenWhereItIsAskedForAlone) {
    makeOrders("orders", 3);
    EXPECT_EQ(run({"info", "orders"}).status, 0);
    EXPECT_EQ(contents().size(), 1U);
    EXPECT_EQ(run({"info", "orders", "--debug-log", "trace"}).status, 0);
    EXPECT_TRUE(std::filesystem::exists(file("trace")));
    EXPECT_EQ(contents().size(), 2U);
}

}  // namespace

}  // namespace tabulo::tool::test
