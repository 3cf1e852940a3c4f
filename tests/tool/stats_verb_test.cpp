#include <signal.h>

#include <string>
#include <thread>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class StatsVerbTest : public ToolTest {
  protected:
    // The table, its key and counts in JSON, cut behind the number of messages.
    std::string counted(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "stats");
        arguments.insert(arguments.end(), {"-o", "ndjson", "--time-unit", "ms"});
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.errors, "");
        std::string lines;
        for (std::size_t begin = 0; begin < result.output.size();) {
            const std::size_t end = result.output.find('\n', begin);
            const std::string line = result.output.substr(begin, end - begin);
            lines += line.substr(0, line.find(",\"bytes\"")) + "\n";
            begin = end + 1;
        }
        return lines;
    }
};

TEST_F(StatsVerbTest, MessagesAreCountedByTypeWithBarsForEyes) {
    makeOrders("orders", 23);
    const ProgramResult result = run({"stats", "orders", "--by", "type"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(
        result.output,
        "TYPE  MESSAGES  SHARE                                SIZE  FIRST                    LAST                  "
        "   PEAK/S\n"
        "D           12   52.2 % ########################  1.8 KiB  2026-11-20 19:31:45.673  2026-11-20 "
        "19:31:51.173       2\n"
        "8            9   39.1 % ##################        1.3 KiB  2026-11-20 19:31:45.923  2026-11-20 "
        "19:31:50.923       2\n"
        "0            2    8.7 % ####                        301 B  2026-11-20 19:31:47.923  2026-11-20 "
        "19:31:50.423       1\n");
}

TEST_F(StatsVerbTest, JsonHasTheKeysThatWereAskedForInFront) {
    makeOrders("orders", 3);
    EXPECT_EQ(run({"stats", "orders", "--by", "type,field:Price", "-o", "ndjson", "--time-unit", "ms"}).output,
              "{\"type\":\"8\",\"field:Price\":100.5,\"messages\":1,\"bytes\":151,"
              "\"firstTime\":\"2026-11-20T19:31:45.923Z\",\"firstTimeRaw\":\"1795203105923\","
              "\"lastTime\":\"2026-11-20T19:31:45.923Z\",\"lastTimeRaw\":\"1795203105923\",\"peakPerSecond\":1}\n"
              "{\"type\":\"D\",\"field:Price\":100.25,\"messages\":1,\"bytes\":157,"
              "\"firstTime\":\"2026-11-20T19:31:45.673Z\",\"firstTimeRaw\":\"1795203105673\","
              "\"lastTime\":\"2026-11-20T19:31:45.673Z\",\"lastTimeRaw\":\"1795203105673\",\"peakPerSecond\":1}\n"
              "{\"type\":\"D\",\"field:Price\":100.75,\"messages\":1,\"bytes\":149,"
              "\"firstTime\":\"2026-11-20T19:31:46.173Z\",\"firstTimeRaw\":\"1795203106173\","
              "\"lastTime\":\"2026-11-20T19:31:46.173Z\",\"lastTimeRaw\":\"1795203106173\",\"peakPerSecond\":1}\n");
}

TEST_F(StatsVerbTest, EveryKeyGroupsByItsValue) {
    makeOrders("a", 23);
    makeOrders("b", 30, 24);
    EXPECT_EQ(counted({"a", "b"}), "{\"messages\":30\n");
    EXPECT_EQ(counted({"a", "b", "--by", "table"}),
              "{\"table\":\"a\",\"messages\":23\n{\"table\":\"b\",\"messages\":7\n");
    EXPECT_EQ(counted({"a", "b", "--by", "class"}),
              "{\"class\":\"APP_TO\",\"messages\":15\n{\"class\":\"APP_FROM\",\"messages\":12\n"
              "{\"class\":\"ADMIN_TO\",\"messages\":3\n");
    EXPECT_EQ(counted({"a", "b", "--by", "field:Symbol"}),
              "{\"field:Symbol\":null,\"messages\":10\n{\"field:Symbol\":\"ACME\",\"messages\":10\n"
              "{\"field:Symbol\":\"INITECH\",\"messages\":10\n");
    EXPECT_EQ(counted({"a", "b", "--by", "table", "--by", "day,type"}),
              "{\"table\":\"a\",\"day\":\"2026-11-20\",\"type\":\"0\",\"messages\":2\n"
              "{\"table\":\"a\",\"day\":\"2026-11-20\",\"type\":\"8\",\"messages\":9\n"
              "{\"table\":\"a\",\"day\":\"2026-11-20\",\"type\":\"D\",\"messages\":12\n"
              "{\"table\":\"b\",\"day\":\"2026-11-20\",\"type\":\"0\",\"messages\":1\n"
              "{\"table\":\"b\",\"day\":\"2026-11-20\",\"type\":\"8\",\"messages\":3\n"
              "{\"table\":\"b\",\"day\":\"2026-11-20\",\"type\":\"D\",\"messages\":3\n");
}

TEST_F(StatsVerbTest, TimesAreGroupedInTheirZoneAndComeInOrder) {
    makeOrders("orders", 400);  // 100 seconds
    EXPECT_EQ(counted({"orders", "--by", "minute"}),
              "{\"minute\":\"2026-11-20 19:31\",\"messages\":58\n{\"minute\":\"2026-11-20 19:32\",\"messages\":240\n"
              "{\"minute\":\"2026-11-20 19:33\",\"messages\":102\n");
    EXPECT_EQ(counted({"orders", "--by", "hour", "--tz", "Asia/Tokyo"}),
              "{\"hour\":\"2026-11-21 04:00\",\"messages\":400\n");
    EXPECT_EQ(counted({"orders", "--by", "day", "--tz", "Asia/Tokyo"}), "{\"day\":\"2026-11-21\",\"messages\":400\n");
}

TEST_F(StatsVerbTest, ThePeakIsOfOneSecondOverAllTables) {
    const auto make = [this](const char* name, const std::vector<std::int64_t>& seconds) {
        Writer writer = Writer::create(file(name), {});
        Message message;
        message.type = "D";
        for (const std::int64_t second : seconds) {
            message.time = 1795203100 + second;
            writer.append(message);
        }
    };
    make("a", {1, 2, 2, 3, 2, 9});
    make("b", {2, 2, 5});
    make("c", {4, 0, 0, 0});
    const auto peak = [this](const std::string& table) {
        const std::string output = run({"stats", table, "-o", "ndjson"}).output;
        return output.substr(output.find("\"peakPerSecond\""));
    };
    EXPECT_EQ(peak("a"), "\"peakPerSecond\":3}\n") << "one that comes a second late belongs to its own second";
    EXPECT_EQ(peak("b"), "\"peakPerSecond\":2}\n");
    EXPECT_EQ(peak("c"), "\"peakPerSecond\":3}\n") << "a clock that was set back";
    std::filesystem::remove(file("c"));
    EXPECT_EQ(peak("."), "\"peakPerSecond\":5}\n");
}

TEST_F(StatsVerbTest, WithoutAUnitThereIsNoPeakAndNoGroupingByTime) {
    Writer writer = Writer::create(file("plain"), {});
    Message message;
    message.type = "D";
    message.time = 7;
    writer.append(message);
    writer.close();
    EXPECT_EQ(run({"stats", "plain", "-o", "ndjson"}).output,
              "{\"messages\":1,\"bytes\":55,\"firstTime\":null,\"firstTimeRaw\":\"7\",\"lastTime\":null,"
              "\"lastTimeRaw\":\"7\",\"peakPerSecond\":null}\n");
    const ProgramResult result = run({"stats", "plain", "--by", "hour"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("--time-unit tells it"), std::string::npos) << result.errors;
}

TEST_F(StatsVerbTest, AFieldThatNoTableHasIsWrongUseAndTheAnswerListsThem) {
    makeOrders("orders", 3);
    const ProgramResult result = run({"stats", "orders", "--by", "field:Side"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("orders has Symbol, ClOrdID, Price, OrderQty"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"stats", "orders", "--by", "field:"}).status, 2);
    EXPECT_EQ(run({"stats", "orders", "--by", "colour"}).status, 2);
}

TEST_F(StatsVerbTest, OfSeveralLayoutsAFieldIsAbsentWhereThereIsNone) {
    makeOrders("orders", 2);
    Writer writer = Writer::create(file("others"), {.texts = {"Side"}});
    Message message;
    message.type = "D";
    message.time = orderTime(3);
    writer.append(message);
    writer.close();
    EXPECT_EQ(counted({"orders", "others", "--by", "field:Symbol"}),
              "{\"field:Symbol\":null,\"messages\":1\n{\"field:Symbol\":\"ACME\",\"messages\":1\n"
              "{\"field:Symbol\":\"INITECH\",\"messages\":1\n");
}

TEST_F(StatsVerbTest, OnlyWhatIsSelectedIsCountedAsCatChoosesIt) {
    makeOrders("orders", 40);
    const std::vector<std::vector<std::string>> selections = {
        {"--type", "8"},
        {"--since", "19:31:50"},
        {"--until", "-3s"},
        {"--seq", "3..9", "--class", "APP_TO,ADMIN_TO"},
        {"--where", "Symbol=ACME", "--poss-dup", "no"},
        {"--text", "order-1"},
        {"--uid", "5..8"},
    };
    for (const std::vector<std::string>& selection : selections) {
        std::vector<std::string> cat{"cat", "orders", "-o", "fix"};
        std::vector<std::string> stats{"stats", "orders", "-o", "ndjson"};
        cat.insert(cat.end(), selection.begin(), selection.end());
        stats.insert(stats.end(), selection.begin(), selection.end());
        const int printed = occurrences(run(cat).output, "\n");
        EXPECT_GT(printed, 0) << selection[0];
        EXPECT_LT(printed, 40) << selection[0];
        const ProgramResult result = run(stats);
        EXPECT_NE(result.output.find("\"messages\":" + std::to_string(printed) + ","), std::string::npos)
            << selection[0] << " " << selection[1] << ": " << result.output << result.errors;
    }
    EXPECT_NE(run({"stats", "orders", "--seq", "1..2", "--explain"}).errors.find("blocks skipped"), std::string::npos);
    EXPECT_EQ(run({"stats", "orders", "--where", "Colour=red"}).status, 2);
}

TEST_F(StatsVerbTest, DamageIsToldAndTheOtherTablesGoOn) {
    const std::string path = makeOrders("a", 23);
    makeOrders("b", 30, 24);
    internal::test::patchFile(path, 11805, Bytes(4, 0xFF));  // the third block's length
    const ProgramResult result = run({"stats", ".", "--by", "table", "-o", "ndjson"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("{\"table\":\"a\",\"messages\":8,"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("{\"table\":\"b\",\"messages\":7,"), std::string::npos) << result.output;
    EXPECT_NE(result.errors.find("HEADER_CORRUPTED_ERROR"), std::string::npos) << result.errors;
}

TEST_F(StatsVerbTest, ManyKeysAreAllCounted) {
    makeOrders("orders", 5000, 1, 1000);
    const std::string output = run({"stats", "orders", "--by", "field:ClOrdID", "-o", "ndjson"}).output;
    EXPECT_EQ(occurrences(output, "\n"), 2500);
    EXPECT_EQ(occurrences(output, "\"messages\":2,"), 2500);
}

TEST_F(StatsVerbTest, AnEmptyTableHasNoGroups) {
    makeOrders("orders", 0);
    EXPECT_EQ(run({"stats", "orders", "--by", "type"}).output, "");
    EXPECT_EQ(run({"stats", "orders"}).status, 0);
    EXPECT_EQ(run({"stats", "orders", "--by", "minute"}).status, 0);
}

TEST_F(StatsVerbTest, AnInterruptEndsItWith130) {
    makeOrders("orders", 100000, 1, 1000);
    CommandSettings settings;
    settings.directory = directory.path();
    std::vector<std::string> arguments{"stats", "--by", "field:ClOrdID,type,minute"};
    arguments.insert(arguments.end(), 500, "orders");  // much more than it counts until the interrupt
    settings.meanwhile = [](pid_t id) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::kill(id, SIGINT);
    };
    const ProgramResult result = runCommand(arguments, settings);
    EXPECT_EQ(result.status, 130) << result.errors;
    EXPECT_EQ(result.output, "");
}

}  // namespace

}  // namespace tabulo::tool::test
