#include <chrono>
#include <string>
#include <vector>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class ListVerbTest : public ToolTest {};

TEST_F(ListVerbTest, EachTableIsALineWithWhatItHolds) {
    makeOrders("orders", 23);
    makeSession("session");
    const ProgramResult result = run({"ls"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(
        withLockList(result.output),
        "TABLE KIND MESSAGES SIZE FIRST LAST OPEN CUT FIELDS\n"
        "orders messages 23 29.0 KiB 2026-11-20 19:31:45.673 2026-11-20 19:31:51.173 no 0 Symbol, ClOrdID, Price, "
        "OrderQty\n"
        "session session - 80 B - - no 0 1, 2, 9\n");
    EXPECT_EQ(result.errors, "tabulo: times are taken for milliseconds (--time-unit)\n");
}

TEST_F(ListVerbTest, JsonHasAnObjectForEachTable) {
    makeOrders("orders", 23);
    makeSession("session");
    EXPECT_EQ(
        withLockList(run({"ls", "-o", "ndjson", "session", "orders"}).output),
        "{\"table\":\"session\",\"path\":\"session\",\"kind\":\"session\",\"messages\":null,\"bytes\":80,"
        "\"firstTime\":null,\"firstTimeRaw\":null,\"lastTime\":null,\"lastTimeRaw\":null,\"openForWriting\":false,"
        "\"cutFiles\":[],\"texts\":[],\"numbers\":[],\"tags\":[1,2,9],\"problem\":null,\"indexed\":null}\n"
        "{\"table\":\"orders\",\"path\":\"orders\",\"kind\":\"messages\",\"messages\":23,\"bytes\":29735,"
        "\"firstTime\":\"2026-11-20T19:31:45.673Z\",\"firstTimeRaw\":\"1795203105673\","
        "\"lastTime\":\"2026-11-20T19:31:51.173Z\",\"lastTimeRaw\":\"1795203111173\",\"openForWriting\":false,"
        "\"cutFiles\":[],\"texts\":[\"Symbol\",\"ClOrdID\"],\"numbers\":[\"Price\",\"OrderQty\"],\"tags\":[],"
        "\"problem\":null,\"indexed\":null}\n");
}

TEST_F(ListVerbTest, AWriterInAnotherProcessIsTold) {
    const std::string path = makeOrders("orders", 3);
    makeSession("session");
    const ProcessSignal isOpen;
    const ProcessSignal mayEnd;
    ChildProcess writer([&] {
        Writer messages = Writer::open(path);
        SessionInfo session = SessionInfo::openForWriting(file("session"));
        messages.append(OrderMessage(4).message);
        isOpen.raise();
        return mayEnd.await() ? 0 : 1;
    });
    ASSERT_TRUE(isOpen.await());
    const auto before = contents();
    const std::string output = run({"ls", "-o", "ndjson"}).output;
    EXPECT_EQ(occurrences(output, "\"openForWriting\":true"), 2) << output;
    EXPECT_NE(output.find("\"messages\":4"), std::string::npos) << output;
    EXPECT_EQ(contents(), before);
    mayEnd.raise();
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(occurrences(run({"ls", "-o", "ndjson"}).output, "\"openForWriting\":true"), 0);
}

TEST_F(ListVerbTest, WhatRecoveriesHaveCutOutStandsBesideItsTable) {
    makeOrders("orders", 3);
    makeFile("orders.cut-900", "x");
    makeFile("orders.cut-80", "x");
    makeFile("orders.cut-80-1", "x");
    makeFile("order.cut-1", "x");
    const std::string output = run({"ls", "-o", "ndjson"}).output;
    EXPECT_NE(output.find("\"cutFiles\":[\"./orders.cut-80\",\"./orders.cut-80-1\",\"./orders.cut-900\"]"),
              std::string::npos)
        << output;
    EXPECT_EQ(occurrences(output, "\n"), 1);
}

TEST_F(ListVerbTest, ForeignFilesInAFolderAreNamedAndLeftOut) {
    makeOrders("orders", 3);
    makeFile("notes", "remember the milk, the bread and the butter");
    makeFile("empty", "");
    const ProgramResult result = run({"ls", "."});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(occurrences(result.output, "\n"), 2) << result.output;
    EXPECT_NE(result.errors.find("left out: SIGNATURE_ERROR"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("./notes"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("./empty"), std::string::npos) << result.errors;
}

TEST_F(ListVerbTest, ForeignAndMissingFilesThatAreNamedFail) {
    makeFile("notes", "remember the milk, the bread and the butter");
    ProgramResult result = run({"ls", "notes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("SIGNATURE_ERROR"), std::string::npos) << result.errors;
    result = run({"ls", "missing"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "tabulo: missing cannot be read: No such file or directory\n");
}

TEST_F(ListVerbTest, AnotherByteOrderIsTold) {
    internal::test::patchFile(makeOrders("orders", 3), 10, Bytes{2});
    const ProgramResult result = run({"ls", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("BYTE_ORDER_ERROR"), std::string::npos) << result.errors;
}

TEST_F(ListVerbTest, ADamagedTableIsToldWithWhatIsKnown) {
    const std::string path = makeOrders("orders", 23);
    std::filesystem::resize_file(path, 20000);
    const ProgramResult result = run({"ls", "orders", "-o", "ndjson"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("\"messages\":12,\"bytes\":20000"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("\"problem\":\"HEADER_CORRUPTED_ERROR"), std::string::npos) << result.output;
    EXPECT_NE(result.errors.find("HEADER_CORRUPTED_ERROR"), std::string::npos) << result.errors;
}

TEST_F(ListVerbTest, AnEmptyFolderIsNothing) {
    const ProgramResult result = run({"ls"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
}

TEST_F(ListVerbTest, NamesAreShownAndNeverObeyed) {
    makeOrders("\x1b[31mred", 1);
    const ProgramResult result = run({"ls"});
    EXPECT_EQ(result.output.find('\x1b'), std::string::npos);
    EXPECT_NE(result.output.find("\\x1B[31mred"), std::string::npos) << result.output;
    EXPECT_NE(run({"ls", "-o", "ndjson"}).output.find("\"table\":\"\\u001B[31mred\""), std::string::npos);
}

TEST_F(ListVerbTest, TablesWithSeveralUnitsHaveTheirOwn) {
    const auto make = [this](const char* name, std::int64_t time) {
        Writer writer = Writer::create(file(name), {});
        Message message;
        message.type = "D";
        message.time = time;
        writer.append(message);
    };
    make("a", 1795203105);
    make("b", 1795203105673000000);
    make("c", 7);
    const std::string output = run({"ls", "-o", "ndjson"}).output;
    EXPECT_NE(output.find("\"lastTime\":\"2026-11-20T19:31:45Z\",\"lastTimeRaw\":\"1795203105\""), std::string::npos);
    EXPECT_NE(output.find("\"lastTime\":\"2026-11-20T19:31:45.673000000Z\""), std::string::npos) << output;
    EXPECT_NE(output.find("\"lastTime\":null,\"lastTimeRaw\":\"7\""), std::string::npos) << output;
    const ProgramResult told = run({"ls", "--time-unit", "s"});
    EXPECT_EQ(told.errors, "");
}

TEST_F(ListVerbTest, ATerminalGetsBoldTitlesAndLinesThatFit) {
    makeOrders("orders", 23);
    CommandSettings settings;
    settings.directory = directory.path();
    const std::string output = runOnTerminal({"ls", "--time-unit", "ms"}, 40, settings).output;
    EXPECT_EQ(output,
              "\x1b[1mTABLE   KIND      MESSAGES      SIZE  F…\x1b[0m\n"
              "orders  messages        23  29.0 KiB  2…\n");
    settings.environment = {"NO_COLOR=1"};
    EXPECT_TRUE(runOnTerminal({"ls", "--time-unit", "ms"}, 40, settings).output.starts_with("TABLE"));
    EXPECT_TRUE(runOnTerminal({"ls", "--time-unit", "ms", "--color", "always"}, 40, settings)
                    .output.starts_with("\x1b[1mTABLE"));
    EXPECT_TRUE(run({"--color", "always", "ls"}).output.starts_with("\x1b[1mTABLE"));
    EXPECT_TRUE(run({"ls"}).output.starts_with("TABLE"));
}

TEST_F(ListVerbTest, WrongUseTellsWhereToLook) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"ls", "-o", "csv"}, {"ls", "--colour"}, {"ls", "--tz", "Nowhere"}, {"ls", "--time-unit", "h"}}) {
        makeOrders("orders-" + std::to_string(arguments.size()) + arguments[1], 1);
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 2) << arguments[1];
        EXPECT_NE(result.errors.find("'tabulo ls --help' tells what it takes"), std::string::npos) << result.errors;
    }
}

}  // namespace

}  // namespace tabulo::tool::test
