// The verb tail, as a program, beside writers in this process and in others.
#include <signal.h>

#include <optional>
#include <string>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

using Words = std::vector<std::string>;

std::vector<int> uidsOf(const std::string& output) {
    std::vector<int> uids;
    for (const std::string& line : linesOf(output)) {
        uids.push_back(std::stoi(line.substr(line.find("\"uid\":") + 6)));
    }
    return uids;
}

std::vector<int> range(int first, int last) {
    std::vector<int> numbers;
    for (int n = first; n <= last; ++n) {
        numbers.push_back(n);
    }
    return numbers;
}

class TailTest : public ToolTest {
  protected:
    std::vector<int> printed(Words arguments) {
        arguments.insert(arguments.begin(), "tail");
        arguments.insert(arguments.end(), {"-o", "ndjson"});
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        words = result.errors;
        return uidsOf(result.output);
    }
    LiveCommand follow(Words arguments) const {
        arguments.insert(arguments.begin(), {"tail", "-f", "-o", "ndjson"});
        return LiveCommand(file("live"), arguments);
    }
    Writer create(const std::string& name) const { return Writer::create(file(name), ordersLayout()); }
    static void append(Writer* writer, int first, int last) {
        for (int n = first; n <= last; ++n) {
            writer->append(OrderMessage(n).message);
        }
    }

    std::string words;
};

}  // namespace

TEST_F(TailTest, TheLastMessagesThatMatchArePrintedInTheirOrder) {
    makeOrders("orders", 100);
    EXPECT_EQ(printed({"orders"}), range(51, 100));
    EXPECT_EQ(printed({"orders", "-n", "3"}), range(98, 100));
    EXPECT_EQ(printed({"orders", "-n", "0"}), range(1, 0));
    EXPECT_EQ(printed({"orders", "-n", "1000"}), range(1, 100));
    EXPECT_EQ(printed({"orders", "-n", "3", "--class", "ADMIN_TO"}), (std::vector<int>{80, 90, 100}));
    EXPECT_EQ(printed({"orders", "-n", "2", "--where", "tag:11=order-7"}), (std::vector<int>{13, 14}));
}

TEST_F(TailTest, TheLastMessagesOfSeveralTablesAreThoseOfAllTogether) {
    makeOrders("a", 30, 1);
    makeOrders("c", 90, 61);
    makeOrders("b", 60, 31);
    EXPECT_EQ(printed({"a", "b", "c", "-n", "35"}), range(56, 90));
    EXPECT_EQ(printed({"c", "a", "b", "-n", "2", "--merge", "none"}), range(59, 60));
    EXPECT_EQ(printed({".", "-n", "2", "--merge", "time"}), range(89, 90));
}

TEST_F(TailTest, AnEmptyTableHasNoLastMessage) {
    create("orders").close();
    EXPECT_EQ(printed({"orders"}), range(1, 0));
}

TEST_F(TailTest, WhatIsStoredWhileItFollowsIsPrintedMerged) {
    Writer a = create("a");
    Writer b = create("b");
    append(&a, 1, 3);
    LiveCommand tail = follow({file("a"), file("b"), "-n", "2"});
    ASSERT_TRUE(tail.awaitLines(2)) << tail.errors();
    append(&b, 4, 5);
    append(&a, 6, 9);
    append(&b, 10, 10);
    EXPECT_TRUE(tail.awaitLines(9)) << tail.errors();
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(2, 10));
}

TEST_F(TailTest, FollowingPrintsOnlyWhatIsSelected) {
    Writer writer = create("orders");
    LiveCommand tail =
        follow({file("orders"), "--type", "D", "--where", "OrderQty>300", "--where", "tag:35=D", "--uid", "..11"});
    append(&writer, 1, 12);
    EXPECT_TRUE(tail.awaitLines(4)) << tail.errors();
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), (std::vector<int>{5, 7, 9, 11}));
}

TEST_F(TailTest, AWriterThatIsKilledAndStartedAgainIsFollowedOn) {
    create("orders").close();
    const std::string path = file("orders");
    LiveCommand tail = follow({path});
    for (int round = 0; round < 5; ++round) {
        ChildProcess process([&] {
            Writer writer = Writer::open(path);
            append(&writer, round * 30 + 1, round * 30 + 30);
            ::raise(SIGKILL);
            return 0;
        });
        EXPECT_EQ(process.wait(), 256 + SIGKILL);
        EXPECT_TRUE(tail.awaitLines(static_cast<std::size_t>(round + 1) * 30)) << tail.errors();
    }
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(1, 150));
}

TEST_F(TailTest, ATableThatIsDroppedOrReplacedIsNamedAndFollowedOn) {
    Writer writer = create("orders");
    append(&writer, 1, 5);
    LiveCommand tail = follow({file("orders")});
    ASSERT_TRUE(tail.awaitLines(5));
    writer.drop();
    append(&writer, 6, 7);
    EXPECT_TRUE(tail.awaitErrors("orders was emptied")) << tail.errors();
    EXPECT_TRUE(tail.awaitLines(7));
    writer.close();
    {
        Writer other = Writer::create(file("other"), {.texts = {"Else"}});
        Message message;
        message.uniformId = 8;
        other.append(message);
    }
    std::filesystem::rename(file("other"), file("orders"));
    EXPECT_TRUE(tail.awaitErrors("orders was replaced by another file")) << tail.errors();
    EXPECT_TRUE(tail.awaitErrors("orders has other fields than before")) << tail.errors();
    EXPECT_TRUE(tail.awaitLines(8));
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(1, 8));
    EXPECT_NE(tail.output().find("\"fields\":{\"Else\":null}"), std::string::npos);
}

TEST_F(TailTest, ATableThatIsAddedToAFolderIsFollowedFromItsFirstMessage) {
    std::filesystem::create_directory(file("data"));
    std::filesystem::create_directory(file("tables"));
    Writer first = create("tables/first");
    append(&first, 1, 2);
    const std::string folder = file("tables");
    LiveCommand process = follow({folder, "--state", file("state"), "--type", "D,8"});
    ASSERT_TRUE(process.awaitLines(2)) << process.errors();
    makeFile("tables/.hidden", "x");
    makeSession("tables/session");
    makeFile("tables/notes", "no table");
    Writer second = create("data/second");
    append(&second, 3, 5);
    std::filesystem::rename(file("data/second"), file("tables/second"));
    ASSERT_TRUE(process.awaitLines(5)) << process.errors();
    append(&first, 6, 6);
    append(&second, 7, 7);
    ASSERT_TRUE(process.awaitLines(7)) << process.errors();
    EXPECT_EQ(uidsOf(process.output()), range(1, 7));
    EXPECT_EQ(occurrences(process.errors(), "tables/second is new, and followed from its first message"), 1);
    EXPECT_TRUE(process.awaitErrors("left out: "));
    EXPECT_NE(process.errors().find("tables/notes"), std::string::npos) << process.errors();
    EXPECT_EQ(process.errors().find("session"), std::string::npos) << process.errors();
    EXPECT_EQ(process.interrupt(), 130);
    append(&second, 8, 8);
    std::filesystem::remove(file("tables/notes"));
    EXPECT_EQ(printed({folder, "--state", file("state")}), range(8, 8));
}

TEST_F(TailTest, AFolderThatIsEmptyAtFirstIsFollowedWhenTablesAreAdded) {
    std::filesystem::create_directory(file("tables"));
    const std::string folder = file("tables");
    LiveCommand process = follow({folder, "--state", file("state"), "--type", "D,8"});
    ASSERT_TRUE(process.awaitErrors("there is no table yet")) << process.errors();
    makeFile("tables/notes", "no table");
    makeSession("tables/session");
    Writer first = create("tables/first");
    append(&first, 1, 2);
    ASSERT_TRUE(process.awaitLines(2)) << process.errors();
    Writer second = create("tables/second");
    append(&second, 3, 4);
    ASSERT_TRUE(process.awaitLines(4)) << process.errors();
    append(&first, 5, 5);
    ASSERT_TRUE(process.awaitLines(5)) << process.errors();
    EXPECT_EQ(uidsOf(process.output()), range(1, 5));
    EXPECT_EQ(process.interrupt(), 130);
    append(&second, 6, 6);
    std::filesystem::remove(file("tables/notes"));
    EXPECT_EQ(printed({folder, "--state", file("state")}), range(6, 6));
}

TEST_F(TailTest, AnEmptyFolderIsRefusedWhenItIsNotFollowedOrAFieldIsAskedFor) {
    std::filesystem::create_directory(file("tables"));
    const ProgramResult once = run({"tail", "tables"});
    EXPECT_EQ(once.status, 1);
    EXPECT_NE(once.errors.find("there is no message table to read"), std::string::npos) << once.errors;
    const ProgramResult field = run({"tail", "-f", "tables", "--where", "Symbol=ACME"});
    EXPECT_EQ(field.status, 2);
    EXPECT_NE(field.errors.find("there is no table yet: "), std::string::npos) << field.errors;
}

TEST_F(TailTest, ATableThatIsAddedShowsTheNamesOfAllInTheTextFormat) {
    std::filesystem::create_directory(file("tables"));
    Writer first = create("tables/first");
    append(&first, 1, 1);
    LiveCommand process(file("live"), {"tail", "-f", "--time-unit", "ms", file("tables")});
    ASSERT_TRUE(process.awaitLines(1));
    Writer second = create("tables/second");
    append(&second, 2, 2);
    ASSERT_TRUE(process.awaitLines(2)) << process.errors();
    EXPECT_NE(linesOf(process.output())[1].find("second"), std::string::npos) << process.output();
    EXPECT_EQ(process.interrupt(), 130);
}

TEST_F(TailTest, ATableThatIsRemovedIsWaitedFor) {
    makeOrders("orders", 2);
    LiveCommand tail = follow({file("orders")});
    ASSERT_TRUE(tail.awaitLines(2));
    std::filesystem::remove(file("orders"));
    makeOrders("orders", 5, 3);
    EXPECT_TRUE(tail.awaitLines(5)) << tail.errors();
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(1, 5));
    EXPECT_NE(tail.errors().find("orders was replaced by another file"), std::string::npos) << tail.errors();
}

TEST_F(TailTest, ATableThatIsDamagedWhileItIsFollowedIsLeftOutAndTheOthersGoOn) {
    Writer a = create("a");
    append(&a, 1, 2);
    makeOrders("b", 6, 3);
    LiveCommand tail = follow({file("a"), file("b")});
    ASSERT_TRUE(tail.awaitLines(6));
    internal::test::appendFile(file("b"), Bytes(5000, 0xFF));
    EXPECT_TRUE(tail.awaitErrors(file("b"))) << tail.errors();
    append(&a, 7, 8);
    EXPECT_TRUE(tail.awaitLines(8)) << tail.errors();
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(1, 8));
}

TEST_F(TailTest, AReaderThatHasGoneEndsTheFollowing) {
    Writer writer = create("orders");
    append(&writer, 1, 1);
    const std::string pipe = file("pipe");
    ASSERT_EQ(std::system(("mkfifo '" + pipe + "'").c_str()), 0);
    const std::string command = std::string("'") + TABULO_COMMAND + "' tail -f '" + file("orders") + "' > '" + pipe +
                                "' & head -c 5 '" + pipe + "' > /dev/null; wait $!";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST_F(TailTest, MinusTenMinutesCountFromNowWhileItFollows) {
    makeOrders("orders", 4);  // of another day than now
    EXPECT_EQ(printed({"orders", "--since", "-10m"}), range(1, 4));
    Writer writer = Writer::open(file("orders"));
    OrderMessage order(5);
    order.message.time = (std::int64_t{::time(nullptr)} + 5) * 1000;
    LiveCommand tail = follow({file("orders"), "--since", "-10m"});
    writer.append(order.message);
    EXPECT_TRUE(tail.awaitLines(1)) << tail.errors();
    EXPECT_EQ(tail.interrupt(), 130);
    EXPECT_EQ(uidsOf(tail.output()), range(5, 5)) << tail.errors();
}

TEST_F(TailTest, DamageAtTheEndIsToldBehindWhatStandsInFrontOfIt) {
    Writer writer = create("orders");
    append(&writer, 1, 6);
    writer.close();
    Bytes bytes = readFile(file("orders"));
    bytes.insert(bytes.end(), 100, 0xFF);
    internal::test::writeFile(file("orders"), bytes);
    const ProgramResult result = run({"tail", "orders", "-n", "2", "-o", "ndjson"});
    EXPECT_EQ(uidsOf(result.output), range(5, 6)) << result.errors;
}

}  // namespace tabulo::tool::test
