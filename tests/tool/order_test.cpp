#include <algorithm>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tabulo/fix.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/recorded_session.h"
#include "tests/tool/tool_test.h"
#include "tool/listing.h"

namespace tabulo::tool::test {

namespace {

constexpr std::int64_t DAY = std::int64_t{24} * 60 * 60 * 1000;
constexpr std::int64_t MORNING = 1795203105673;  // 2026-11-20T19:31:45.673Z

// "|" stands for the byte that ends a field.
std::string wireOf(std::string text) {
    std::ranges::replace(text, '|', '\x01');
    return text;
}

struct Line {
    std::int64_t time;
    std::string wire;
};

class OrderTest : public ToolTest {
  protected:
    // A table of messages with these wire messages; the MsgType is taken from them, and what is no report (8, 9) was
    // sent by us.
    std::string makeLines(std::string_view name, const std::vector<Line>& lines,
                          const Layout& layout = plainLayout()) const {
        Writer writer = Writer::create(file(name), layout);
        std::int32_t n = 0;
        for (const Line& line : lines) {
            const std::string wire = wireOf(line.wire);
            const auto valueOf = [&](int tag) -> Text { return fixValue(wire, tag); };
            Message message;
            message.uniformId = ++n;
            message.seqNum = n;
            message.time = line.time;
            message.type = valueOf(35).value_or("");
            message.possDup = valueOf(43) == "Y";
            const bool isReport = message.type == "8" || message.type == "9";
            message.id = firstId(isReport ? MessageClass::appFrom : MessageClass::appTo) + n;
            for (const std::string& field : layout.texts) {
                message.texts.push_back(valueOf(field == "ClOrdID" ? 11 : field == "OrderID" ? 37 : 41));
            }
            message.wire = wire;
            writer.append(message);
        }
        writer.close();
        return file(name);
    }
    // The last column of each line of a run's output up to the empty one.
    static std::vector<std::string> whatOf(const ProgramResult& result) {
        std::vector<std::string> lines;
        std::size_t column = std::string::npos;
        std::size_t begin = 0;
        while (begin < result.output.size() && result.output[begin] != '\n') {
            const std::size_t end = result.output.find('\n', begin);
            const std::string line = result.output.substr(begin, end - begin);
            if (column == std::string::npos) {
                column = line.find("WHAT");
            } else {
                lines.push_back(line.size() > column ? line.substr(column) : "");
            }
            begin = end + 1;
        }
        return lines;
    }
    // What stands behind a title of the final state.
    static std::string finalOf(const ProgramResult& result, const std::string& title) {
        const std::size_t begin = result.output.find("\n" + title);
        const std::size_t value = result.output.find_first_not_of(' ', begin + title.size() + 1);
        return begin == std::string::npos ? "" : result.output.substr(value, result.output.find('\n', value) - value);
    }
};

using Lines = std::vector<std::string>;

TEST_F(OrderTest, ARecordedOrderIsFollowedThroughItsReplaceAndItsCancel) {
    makeRecorded(file("client-day1"), "client-day1", plainLayout());
    const ProgramResult result = run({"order", "C1A-10009", "client-day1"});
    EXPECT_EQ(result.output,
              R"(TIME                        CLASS     MESSAGE                           CLORDID    WHAT
2026-11-20 19:24:44.835010  APP_TO    NewOrderSingle                    C1A-10009  Buy 400 XETIS at 9.955, Limit, Day
2026-11-20 19:24:44.868481  APP_FROM  ExecutionReport: New              C1A-10009  New, CumQty 0, LeavesQty 400, AvgPx 0
2026-11-20 19:24:44.887207  APP_TO    OrderCancelReplaceRequest         C1A-10010  asks to replace C1A-10009, OrderQty 400 → 1, Price 9.955 → 9.965
2026-11-20 19:24:44.925130  APP_FROM  ExecutionReport: Pending replace  C1A-10010  New → Pending replace
2026-11-20 19:24:45.068058  APP_FROM  ExecutionReport: Replaced         C1A-10010  Pending replace → New, OrderQty 400 → 1, Price 9.955 → 9.965, LeavesQty 400 → 1
2026-11-20 19:24:45.364281  APP_TO    OrderCancelRequest                C1A-10015  asks to cancel C1A-10010
2026-11-20 19:24:45.392729  APP_FROM  ExecutionReport: Canceled         C1A-10015  New → Canceled, LeavesQty 1 → 0

FINAL STATE  Canceled
CLORDID      C1A-10015
LINKED       3 ClOrdIDs
ORDERID      B261120-10004
ORDER        Buy 1 XETIS at 9.965, Limit, Day
FILLED       0 of 1, 0 left
STORED       7 messages in 1 table
FROM         2026-11-20 19:24:44.835010
TO           2026-11-20 19:24:45.392729
)");
    EXPECT_EQ(result.errors, "tabulo: times are taken for microseconds (--time-unit)\n");
    EXPECT_EQ(result.status, 0);
    for (const char* id : {"C1A-10010", "C1A-10015", "B261120-10004"}) {
        EXPECT_EQ(run({"order", id, "client-day1"}).output, result.output) << id;
    }
}

TEST_F(OrderTest, JsonHasAnObjectForEachMessageAndOneForTheState) {
    makeLines("orders", {{MORNING, "35=D|11=a|55=ACME|54=1|38=0100|44=.5|40=2|59=1|"},
                         {MORNING + 1, "35=8|11=a|37=X|150=F|39=1|32=30|31=9.50|14=30|151=70|6=9.5|58=caf\xE9 \"|"},
                         {MORNING + 2, "35=G|11=b|41=a|38=200|"}});
    const ProgramResult result = run({"order", "b", "orders", "-o", "ndjson", "--time-unit", "ms"});
    EXPECT_EQ(
        result.output,
        R"({"kind":"message","table":"orders","uid":1,"seq":1,"class":"APP_TO","time":"2026-11-20T19:31:45.673Z",)"
        R"("timeRaw":"1795203105673","type":"D","typeName":"NewOrderSingle","possDup":false,"ClOrdID":"a",)"
        R"("OrigClOrdID":null,"OrderID":null,"ExecType":null,"OrdStatus":null,"LastQty":null,"LastPx":null,)"
        R"("Text":null,"report":false,"late":false,"changes":{"OrderQty":[null,"0100"],"Price":[null,".5"]}})"
        "\n"
        R"({"kind":"message","table":"orders","uid":2,"seq":2,"class":"APP_FROM","time":"2026-11-20T19:31:45.674Z",)"
        R"("timeRaw":"1795203105674","type":"8","typeName":"ExecutionReport","possDup":false,"ClOrdID":"a",)"
        R"("OrigClOrdID":null,"OrderID":"X","ExecType":"F","OrdStatus":"1","LastQty":30,"LastPx":9.50,)"
        R"("Text":"caf\\xE9 \"","report":true,"late":false,"changes":{"OrdStatus":[null,"1"],"CumQty":[null,30],)"
        R"("LeavesQty":[null,70],"AvgPx":[null,9.5]}})"
        "\n"
        R"({"kind":"message","table":"orders","uid":3,"seq":3,"class":"APP_TO","time":"2026-11-20T19:31:45.675Z",)"
        R"("timeRaw":"1795203105675","type":"G","typeName":"OrderCancelReplaceRequest","possDup":false,)"
        R"("ClOrdID":"b","OrigClOrdID":"a","OrderID":null,"ExecType":null,"OrdStatus":null,"LastQty":null,)"
        R"("LastPx":null,"Text":null,"report":false,"late":false,"changes":{"OrderQty":["0100",200]}})"
        "\n"
        R"({"kind":"state","ClOrdID":"a","OrderID":"X","Symbol":"ACME","Side":"1","OrdType":"2","TimeInForce":"1",)"
        R"("OrdStatus":"1","statusName":"Partially filled","OrderQty":"0100","Price":".5","StopPx":null,)"
        R"("CumQty":30,"LeavesQty":70,"AvgPx":9.5,"messages":3,"reports":1,"clOrdIds":2,"tables":1,)"
        R"("firstTime":"2026-11-20T19:31:45.673Z","lastTime":"2026-11-20T19:31:45.675Z"})"
        "\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(OrderTest, AChainOfReplacesIsFollowedOverDaysInTheOrderOfTheirTimes) {
    makeLines("monday", {{MORNING, "35=D|11=a|54=2|38=100|44=5|55=ACME|"},
                         {MORNING + 1, "35=8|11=a|37=X|150=0|39=0|38=100|44=5|14=0|151=100|"},
                         {MORNING + 2, "35=D|11=other|38=7|"},
                         {MORNING + 3, "35=G|11=b|41=a|38=300|44=5|"},
                         {MORNING + 4, "35=8|11=b|41=a|37=X|150=5|39=0|38=300|151=300|"}});
    makeLines("tuesday", {{MORNING + DAY, "35=8|11=b|37=X|150=F|39=1|32=10|31=5.5|14=10|151=290|6=5.5|"},
                          {MORNING + DAY + 1, "35=F|11=c|41=b|"},
                          {MORNING + DAY + 2, "35=8|11=c|41=b|37=X|150=4|39=4|14=10|151=0|"}});
    for (const auto& [id, first, second] : {std::tuple("a", "tuesday", "monday"), std::tuple("c", "monday", "tuesday"),
                                            std::tuple("X", "tuesday", "monday")}) {
        const ProgramResult result = run({"order", id, first, second});
        EXPECT_EQ(whatOf(result),
                  (Lines{"Sell 100 ACME at 5", "New, CumQty 0, LeavesQty 100", "asks to replace a, OrderQty 100 → 300",
                         "OrderQty 100 → 300, LeavesQty 100 → 300",
                         "10 at 5.5, New → Partially filled, CumQty 0 → 10, LeavesQty 300 → 290, AvgPx 5.5",
                         "asks to cancel b", "Partially filled → Canceled, LeavesQty 290 → 0"}))
            << result.output << result.errors;
        EXPECT_EQ(finalOf(result, "FINAL STATE"), "Canceled");
        EXPECT_EQ(finalOf(result, "FILLED"), "10 of 300 at 5.5 on average, 0 left");
        EXPECT_EQ(finalOf(result, "STORED"), "7 messages in 2 tables");
        EXPECT_EQ(finalOf(result, "TO"), "2026-11-21 19:31:45.675");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(OrderTest, AReportThatComesLateShowsAndChangesNothing) {
    makeLines("orders",
              {{MORNING, "35=D|11=a|38=100|"},
               {MORNING + 5, "35=8|49=B|34=3|52=20261120-19:31:45.700|11=a|150=F|39=2|32=100|31=5|14=100|151=0|"},
               {MORNING + 6,
                "35=8|49=B|34=1|43=Y|122=20261120-19:31:45.680|52=20261120-19:31:46.100|11=a|150=0|39=0|"
                "14=0|151=100|"},
               {MORNING + 7,
                "35=8|49=B|34=3|43=Y|122=20261120-19:31:45|52=20261120-19:31:46.200|11=a|150=F|39=2|"
                "32=100|31=5|14=100|151=0|"}});
    const ProgramResult result = run({"order", "a", "orders"});
    EXPECT_EQ(whatOf(result), (Lines{"100", "100 at 5, Filled, CumQty 100, LeavesQty 0",
                                     "older than what is known, PossDup", "100 at 5, PossDup"}))
        << result.output;
    EXPECT_EQ(finalOf(result, "FINAL STATE"), "Filled");
}

TEST_F(OrderTest, ARefusedCancelTellsTheStatusUnlessTheOrderIsCalledUnknown) {
    makeLines("orders", {{MORNING, "35=D|11=a|38=100|"},
                         {MORNING + 1, "35=8|11=a|37=X|150=2|39=2|32=100|31=5|14=100|"},
                         {MORNING + 2, "35=F|11=b|41=a|"},
                         {MORNING + 3, "35=9|11=b|41=a|37=NONE|39=8|102=1|434=1|58=never heard of it|"},
                         {MORNING + 4, "35=9|11=b|41=a|37=X|39=3|102=0|434=1|58=Too late to cancel|"}});
    const ProgramResult result = run({"order", "b", "orders"});
    EXPECT_EQ(whatOf(result),
              (Lines{"100", "100 at 5, Filled, CumQty 100", "asks to cancel a", "Unknown order, \"never heard of it\"",
                     "Filled → Done for day, Too late to cancel"}))
        << result.output;
    EXPECT_EQ(finalOf(result, "FINAL STATE"), "Done for day");
    EXPECT_EQ(finalOf(result, "CLORDID"), "a");
    EXPECT_EQ(finalOf(result, "ORDERID"), "X");
}

TEST_F(OrderTest, AnOrderThatNobodyReportedHasNoStatus) {
    makeLines("orders", {{MORNING, "35=D|11=a|38=100|"}, {MORNING + 1, "35=G|11=b|41=a|38=50|"}});
    const ProgramResult result = run({"order", "a", "orders"});
    EXPECT_EQ(whatOf(result), (Lines{"100", "asks to replace a, OrderQty 100 → 50"}));
    EXPECT_EQ(finalOf(result, "FINAL STATE"), "no report says");
}

TEST_F(OrderTest, WhatStandsForNoOrderLinksNothing) {
    makeLines("orders", {{MORNING, "35=D|11=a|"},
                         {MORNING, "35=8|11=a|37=NONE|39=8|"},
                         {MORNING, "35=8|11=b|37=NONE|39=8|"},
                         {MORNING, "35=8|11=|37=0|41=|39=8|"}});
    EXPECT_EQ(finalOf(run({"order", "a", "orders"}), "STORED"), "2 messages in 1 table");
    EXPECT_EQ(run({"order", "NONE", "orders"}).status, 1);
}

TEST_F(OrderTest, AMessageOfSeveralOrdersIsShownAndLinksNone) {
    makeLines("orders", {{MORNING, "35=D|11=a|"},
                         {MORNING, "35=D|11=b|"},
                         {MORNING, "35=J|70=1|73=2|11=a|37=X|11=b|37=Y|"},
                         {MORNING, "35=8|11=b|37=Y|39=0|"}});
    EXPECT_EQ(finalOf(run({"order", "a", "orders"}), "STORED"), "2 messages in 1 table");
    EXPECT_EQ(finalOf(run({"order", "b", "orders"}), "STORED"), "3 messages in 1 table");
}

TEST_F(OrderTest, IdsInsideADataFieldAreNone) {
    makeLines("orders", {{MORNING, "35=D|11=a|"}, {MORNING, "35=D|11=b|95=9|96=x|41=a|y=||"}});
    EXPECT_EQ(finalOf(run({"order", "a", "orders"}), "STORED"), "1 message in 1 table");
}

TEST_F(OrderTest, TheSameNumberOfBothSidesMayMeanTwoOrders) {
    makeLines("orders",
              {{MORNING, "35=D|11=7|"}, {MORNING, "35=8|11=9|37=7|39=0|"}, {MORNING, "35=8|11=7|37=8|39=0|"}});
    EXPECT_EQ(finalOf(run({"order", "7", "orders"}), "STORED"), "3 messages in 1 table");
    EXPECT_EQ(finalOf(run({"order", "7", "orders", "--id-is", "ClOrdID"}), "STORED"), "2 messages in 1 table");
    EXPECT_EQ(finalOf(run({"order", "7", "orders", "--id-is", "OrderID"}), "STORED"), "1 message in 1 table");
}

TEST_F(OrderTest, ChainsThatGoInACircleEnd) {
    makeLines("orders", {{MORNING, "35=G|11=a|41=b|"}, {MORNING, "35=G|11=b|41=c|"}, {MORNING, "35=G|11=c|41=a|"}});
    const ProgramResult result = run({"order", "b", "orders"});
    EXPECT_EQ(finalOf(result, "STORED"), "3 messages in 1 table");
    EXPECT_EQ(result.status, 0);
}

TEST_F(OrderTest, AnIdThatAppearsNowhereIsAFailure) {
    makeOrders("orders", 20);
    const ProgramResult result = run({"order", "nobody|\x1b[31m", "orders"});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "tabulo: no message of the table names nobody|\\x1B[31m as ClOrdID, OrigClOrdID or OrderID\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(run({"order", "", "orders"}).status, 2);
    EXPECT_EQ(run({"order", "a"}).status, 2);
    EXPECT_EQ(run({"order", "a", "missing"}).status, 1);
    EXPECT_EQ(run({"order", "order-1", "orders", "--dictionary", "missing.xml"}).status, 1);
}

// A block that cannot hold the order is not read where all three ids are indexed, and so its damage is not met.
TEST_F(OrderTest, BlocksWithoutTheOrderAreSkippedWhereItsIdsAreIndexed) {
    std::vector<Line> lines;
    for (int n = 0; n < 20; ++n) {
        lines.push_back({MORNING + n, "35=D|11=a" + std::to_string(n) + "|41=z|37=y|"});
    }
    for (Layout layout : {orderIdsLayout(), plainLayout()}) {
        layout.messagesPerBlock = 4;
        const bool isIndexed = !layout.texts.empty();
        lines[1].wire = "35=D|11=wanted|";
        lines[18].wire = "35=8|11=next|41=wanted|39=0|";
        const std::string path = makeLines(isIndexed ? "indexed" : "plain", lines, layout);
        const Position damaged = Reader(path).positionOf(9).value();
        internal::test::patchFile(path, static_cast<std::size_t>(damaged.offset), Bytes(8, 0xFF));
        const ProgramResult result = run({"order", "wanted", isIndexed ? "indexed" : "plain"});
        EXPECT_EQ(finalOf(result, "STORED"), isIndexed ? "2 messages in 1 table" : "1 message in 1 table")
            << result.errors;
        EXPECT_EQ(result.status, isIndexed ? 0 : 3) << result.errors;
        EXPECT_EQ(result.errors.find("CONSISTENCY_ERROR") == std::string::npos, isIndexed) << result.errors;
    }
}

TEST_F(OrderTest, MessagesWithoutAWireMessageAreFoundByTheirFields) {
    Writer writer = Writer::create(file("orders"), {.texts = {"OrderID", "ClOrdID"}, .numbers = {"OrderQty"}});
    for (std::int32_t n = 1; n <= 3; ++n) {
        Message message;
        message.uniformId = n;
        message.id = n;
        message.type = n == 1 ? "D" : "8";
        message.texts = {n == 1 ? Text() : Text("X"), n == 2 ? Text("a") : n == 1 ? Text("a") : Text()};
        message.numbers = {std::int64_t{100} * n};
        writer.append(message);
    }
    writer.close();
    const ProgramResult result = run({"order", "a", "orders"});
    EXPECT_EQ(whatOf(result), (Lines{"100", "OrderQty 100 → 200", "OrderQty 200 → 300"})) << result.output;
}

TEST_F(OrderTest, LinesAreCutToTheTerminalAndNothingIsChanged) {
    makeOrders("orders", 20);
    const auto before = contents();
    CommandSettings settings;
    settings.directory = directory.path();
    settings.environment = {"NO_COLOR=1"};
    const std::vector<std::string> arguments = {"order", "order-3", "orders", "--time-unit", "ms"};
    const ProgramResult result = runOnTerminal(arguments, 40, settings);
    std::istringstream output(result.output);
    for (std::string line; std::getline(output, line) && !line.empty();) {
        EXPECT_EQ(shownWidth(line), 40U) << line;
    }
    EXPECT_NE(result.output.find("…"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find('\x1b'), std::string::npos) << result.output;
    settings.environment.clear();
    EXPECT_NE(runOnTerminal(arguments, 40, settings).output.find('\x1b'), std::string::npos);
    EXPECT_EQ(contents(), before);
}

}  // namespace

}  // namespace tabulo::tool::test
