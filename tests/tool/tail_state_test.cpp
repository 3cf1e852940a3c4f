// tail --state: what is printed over several runs, and what the file holds.
#include "tool/tail_state.h"

#include <signal.h>

#include <chrono>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/writer.h"
#include "tests/support/test_run.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"
#include "tool/status.h"

namespace tabulo::tool::test {

namespace {

using Words = std::vector<std::string>;

class TailStateTest : public ToolTest {
  protected:
    // The orders that a run prints.
    std::vector<int> printed(Words arguments) {
        arguments.insert(arguments.begin(), {"tail", "-o", "ndjson", "--state", "state"});
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        words = result.errors;
        std::vector<int> uids;
        for (const std::string& line : linesOf(result.output)) {
            uids.push_back(std::stoi(line.substr(line.find("\"uid\":") + 6)));
        }
        return uids;
    }
    static void append(Writer* writer, int first, int last) {
        for (int n = first; n <= last; ++n) {
            writer->append(OrderMessage(n).message);
        }
    }

    std::string words;
};

}  // namespace

TEST_F(TailStateTest, EachRunGoesOnWhereTheOneBeforeHasEnded) {
    Writer a = Writer::create(file("a"), ordersLayout());
    Writer b = Writer::create(file("b"), ordersLayout());
    append(&a, 1, 5);
    EXPECT_EQ(printed({"a", "b", "-n", "2"}), (std::vector<int>{4, 5}));
    EXPECT_EQ(printed({"a", "b", "-n", "2"}), (std::vector<int>{}));
    append(&b, 6, 9);
    append(&a, 10, 11);
    EXPECT_EQ(printed({"a", "b", "-n", "2"}), (std::vector<int>{6, 7, 8, 9, 10, 11})) << "-n is for the first run";
    append(&a, 12, 12);
    EXPECT_EQ(printed({"a", "b", "--type", "0"}), (std::vector<int>{}));
    append(&a, 13, 13);
    EXPECT_EQ(printed({"a", "b"}), (std::vector<int>{13})) << "what was not selected is behind us, too";
}

TEST_F(TailStateTest, AMessageWhoseIdBecomesVisibleLateIsNotMissed) {
    Writer a = Writer::create(file("a"), ordersLayout());
    Writer b = Writer::create(file("b"), ordersLayout());
    append(&a, 1, 3);
    append(&a, 9, 9);
    EXPECT_EQ(printed({"a", "b"}), (std::vector<int>{1, 2, 3, 9}));
    append(&b, 4, 5);
    EXPECT_EQ(printed({"a", "b"}), (std::vector<int>{4, 5}));
}

TEST_F(TailStateTest, ATableThatIsNewIsReadFromItsBeginning) {
    makeOrders("a", 5);
    EXPECT_EQ(printed({"a", "-n", "1"}), (std::vector<int>{5}));
    makeOrders("b", 8, 6);
    EXPECT_EQ(printed({"a", "b", "-n", "1"}), (std::vector<int>{6, 7, 8}));
    EXPECT_EQ(printed({"a"}), (std::vector<int>{}));
    EXPECT_EQ(printed({"b"}), (std::vector<int>{})) << "what other runs have kept stays";
}

TEST_F(TailStateTest, ATableThatWasDroppedOrReplacedSinceIsNamedAndReadFromItsBeginning) {
    Writer writer = Writer::create(file("orders"), ordersLayout());
    append(&writer, 1, 6);
    EXPECT_EQ(printed({"orders", "-n", "1"}), (std::vector<int>{6}));
    writer.drop();
    append(&writer, 11, 12);
    EXPECT_EQ(printed({"orders"}), (std::vector<int>{11, 12}));
    EXPECT_NE(words.find("orders was emptied or replaced since"), std::string::npos) << words;
    writer.close();
    std::filesystem::remove(file("orders"));
    makeOrders("orders", 39, 30);
    EXPECT_EQ(printed({"orders"}).size(), 10U);
    EXPECT_NE(words.find("orders was emptied or replaced since"), std::string::npos) << words;
}

TEST_F(TailStateTest, KilledAtAnyMomentNothingIsMissed) {
    std::mt19937 random(internal::test::testSeed());
    Writer a = Writer::create(file("a"), ordersLayout(50));
    Writer b = Writer::create(file("b"), ordersLayout(50));
    const Words arguments = {"tail", "-f", "-o", "ndjson", "--state", file("state"), file("a"), file("b")};
    LiveCommand(file("live"), {"tail", "-o", "ndjson", "--state", file("state"), file("a"), file("b")}).wait();
    constexpr int MESSAGES = 3000;
    int n = 0;
    while (n < MESSAGES) {
        LiveCommand tail(file("live"), arguments);
        for (int i = 0; i < 300; ++i) {
            append(random() % 3 == 0 ? &a : &b, n + 1, n + 1);
            ++n;
            if (i % 100 == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(random() % 12));
            }
        }
        EXPECT_EQ(tail.kill(), 256 + SIGKILL) << tail.errors();
    }
    LiveCommand last(file("live"), {"tail", "-o", "ndjson", "--state", file("state"), file("a"), file("b")});
    EXPECT_EQ(last.wait(), 0) << last.errors();
    std::set<int> seen;
    for (const std::string& line : linesOf(last.output())) {
        const std::size_t uid = line.rfind("\"uid\":", line.find("\"seq\""));  // a killed run's last line may be cut
        if (line.ends_with("}") && uid != std::string::npos) {
            seen.insert(std::stoi(line.substr(uid + 6)));
        }
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(MESSAGES));
}

TEST_F(TailStateTest, AFileThatIsNoStateIsAFailureAndStays) {
    makeOrders("orders", 5);
    for (const std::string content :
         {"", "something else\n", "tabulo tail state 1\n1 2 3", "tabulo tail state 1\nx 2 3 /a\n"}) {
        makeFile("state", content);
        const ProgramResult result = run({"tail", "orders", "--state", "state"});
        EXPECT_EQ(result.status, 1) << content;
        EXPECT_NE(result.errors.find("state is no state of tail"), std::string::npos) << result.errors;
        EXPECT_EQ(readText(file("state")), content);
    }
}

TEST_F(TailStateTest, AStateThatCannotBeWrittenIsAFailure) {
    makeOrders("orders", 5);
    const ProgramResult result = run({"tail", "orders", "--state", "missing/state"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("missing/state cannot be written: No such file or directory"), std::string::npos)
        << result.errors;
}

TEST_F(TailStateTest, TheFileHoldsThePlaceOfEachTable) {
    const TailPlaces places = {{"/a b%c\nd", TailPlace{{5, 77}, 0xABCDEF0123456789U}}, {"/none", std::nullopt}};
    writeTailState(file("state"), places);
    EXPECT_EQ(readText(file("state")), "tabulo tail state 1\n5 77 abcdef0123456789 /a b%25c%0Ad\n- - - /none\n");
    EXPECT_EQ(readTailState(file("state")), places);
    writeTailState(file("state"), {});
    EXPECT_EQ(readTailState(file("state")), TailPlaces());
    EXPECT_EQ(readTailState(file("other")), std::nullopt);
    EXPECT_EQ(contents().size(), 1U) << "nothing is left beside it";
}

}  // namespace tabulo::tool::test
