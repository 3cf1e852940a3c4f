// What the verbs on messages print on a terminal.
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"
#include "tool/listing.h"

namespace tabulo::tool::test {

namespace {

class MessageTerminalTest : public ToolTest {
  protected:
    CommandSettings settings(std::vector<std::string> environment = {}) const {
        CommandSettings settings;
        settings.directory = directory.path();
        settings.environment = std::move(environment);
        return settings;
    }
    // The lines without what the command has said about the unit of times.
    static std::vector<std::string> messageLines(const std::string& output) {
        std::vector<std::string> lines = linesOf(output);
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("tabulo: "); });
        return lines;
    }
};

}  // namespace

TEST_F(MessageTerminalTest, LinesAreCutToItsWidth) {
    makeOrders("orders", 3);
    for (const int columns : {40, 80}) {
        const ProgramResult result = runOnTerminal({"cat", "orders", "--color", "never"}, columns, settings());
        EXPECT_EQ(result.status, 0);
        const auto lines = messageLines(result.output);
        ASSERT_EQ(lines.size(), 3U) << result.output;
        for (const std::string& line : lines) {
            EXPECT_EQ(shownWidth(line), static_cast<std::size_t>(columns)) << line;
        }
    }
    const ProgramResult fix = runOnTerminal({"cat", "orders", "-o", "fix"}, 20, settings());
    EXPECT_GT(messageLines(fix.output).at(0).size(), 40U) << "only the text for eyes is cut";
}

TEST_F(MessageTerminalTest, ColourIsForTerminalsAndCanBeRefused) {
    makeOrders("orders", 3);
    const auto hasColour = [](const std::string& text) { return text.find("\x1B[") != std::string::npos; };
    EXPECT_TRUE(hasColour(runOnTerminal({"cat", "orders"}, 100, settings()).output));
    EXPECT_FALSE(hasColour(runOnTerminal({"cat", "orders"}, 100, settings({"NO_COLOR=1"})).output));
    EXPECT_FALSE(hasColour(runOnTerminal({"cat", "orders", "--color", "never"}, 100, settings()).output));
    EXPECT_FALSE(hasColour(run({"cat", "orders"}).output));
    EXPECT_TRUE(hasColour(run({"cat", "orders", "--color", "always"}).output));
    EXPECT_FALSE(hasColour(run({"cat", "orders", "--color", "always", "-o", "ndjson"}).output));
}

TEST_F(MessageTerminalTest, WhatAMessageHoldsNeverReachesItAsControl) {
    Writer writer = Writer::create(file("orders"), {});
    Message message;
    message.wire =
        "58=\x1B]0;owned\x07\x9B"
        "2J\001";
    writer.append(message);
    writer.close();
    for (const std::string format : {"text", "fix", "ndjson"}) {
        const ProgramResult result =
            runOnTerminal({"cat", "orders", "-o", format, "--color", "never"}, 200, settings());
        EXPECT_EQ(result.output.find('\x1B'), std::string::npos) << format;
        EXPECT_EQ(result.output.find('\x9B'), std::string::npos) << format;
    }
}

TEST_F(MessageTerminalTest, FollowingPrintsAtOnceAndEndsWithTheInterrupt) {
    Writer writer = Writer::create(file("orders"), ordersLayout());
    CommandSettings live = settings();
    live.meanwhile = [&](pid_t process) {
        for (int n = 1; n <= 3; ++n) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            writer.append(OrderMessage(n).message);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        ::kill(process, SIGINT);
    };
    const ProgramResult result = runOnTerminal({"tail", "-f", "orders", "--time-unit", "ms"}, 120, live);
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(messageLines(result.output).size(), 3U) << result.output;
}

TEST_F(MessageTerminalTest, LongWorkShowsHowFarItIsAndTakesItAway) {
    makeOrders("orders", 5000, 1, 1000);
    std::vector<std::string> words = {"export", "--merge", "none", "--to", "out.ndjson"};
    words.insert(words.end(), 500, "orders");
    const ProgramResult result = runOnTerminal(words, 120, settings());
    EXPECT_EQ(result.status, 0);
    const std::size_t shown = result.output.find("\rexporting: ");
    ASSERT_NE(shown, std::string::npos) << result.output;
    const std::size_t end = result.output.find(" s left\x1B[K", shown);
    EXPECT_NE(end, std::string::npos);
    EXPECT_NE(result.output.find("\r\x1B[Ktabulo: ", shown), std::string::npos) << "before the words at the end";
}

}  // namespace tabulo::tool::test
