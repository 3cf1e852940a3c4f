// The verb cat, as a program.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

using Words = std::vector<std::string>;

class CatTest : public ToolTest {
  protected:
    // The orders, by number, that a selection prints, in their order.
    std::vector<int> printed(Words arguments) {
        arguments.insert(arguments.begin(), "cat");
        arguments.insert(arguments.end(), {"-o", "ndjson"});
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        std::vector<int> uids;
        for (const std::string& line : linesOf(result.output)) {
            uids.push_back(std::stoi(line.substr(line.find("\"uid\":") + 6)));
        }
        return uids;
    }
    void expectRefused(const Words& arguments, int status, const std::string& words) const {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, status) << result.errors;
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find(words), std::string::npos) << result.errors;
    }
    // Spoils the n-th message of a table.
    void spoil(const std::string& name, std::int64_t n) const {
        const std::optional<Position> place = Reader(file(name)).positionOf(n - 1);
        ASSERT_TRUE(place.has_value());
        internal::test::patchFile(file(name), static_cast<std::size_t>(place->offset), Bytes(60, 0xFF));
    }
};

}  // namespace

TEST_F(CatTest, EachOptionSelectsItsMessages) {
    makeOrders("orders", 20);
    EXPECT_EQ(printed({"orders", "--uid", "3..5,9", "--uid", "19.."}), (std::vector<int>{3, 4, 5, 9, 19, 20}));
    EXPECT_EQ(printed({"orders", "--seq", "2..3"}), (std::vector<int>{3, 4, 5, 6}));
    EXPECT_EQ(printed({"orders", "--id", "536870911..536870920"}), (std::vector<int>{2, 4, 6, 8}));
    EXPECT_EQ(printed({"orders", "--id", "..4,18..20"}), (std::vector<int>{1, 3, 19}));
    EXPECT_EQ(printed({"orders", "--class", "ADMIN_TO"}), (std::vector<int>{10, 20}));
    EXPECT_EQ(printed({"orders", "--type", "0", "--type", "8", "--uid", "..10"}), (std::vector<int>{2, 4, 6, 8, 10}));
    EXPECT_EQ(printed({"orders", "--not-type", "D,8"}), (std::vector<int>{10, 20}));
    EXPECT_EQ(printed({"orders", "--poss-dup", "yes"}), (std::vector<int>{7, 14}));
    EXPECT_EQ(printed({"orders", "--since", "2026-11-20T19:31:49.673", "--until", "2026-11-20T19:31:50.173"}),
              (std::vector<int>{17, 18}));
    EXPECT_EQ(printed({"orders", "--since", "-1s"}), (std::vector<int>{16, 17, 18, 19, 20}));
    EXPECT_EQ(printed({"orders", "--where", "Symbol=ACME", "--where", "Price>=104"}), (std::vector<int>{}));
    EXPECT_EQ(printed({"orders", "--where", "Symbol=ACME", "--where", "Price>=103"}), (std::vector<int>{14}));
    EXPECT_EQ(printed({"orders", "--where", "Symbol is absent", "--where", "tag:55!=ACME"}),
              (std::vector<int>{3, 9, 15}));
    EXPECT_EQ(printed({"orders", "--text", "11=order-2 ACME"}), (std::vector<int>{4}));
    EXPECT_EQ(printed({"orders", "--reverse", "--limit", "3"}), (std::vector<int>{20, 19, 18}));
    EXPECT_EQ(printed({"orders", "--limit", "0"}), (std::vector<int>{}));
}

TEST_F(CatTest, SeveralTablesAreMergedAsAsked) {
    makeOrders("a", 3, 1);
    makeOrders("c", 9, 7);
    makeOrders("b", 6, 4);
    EXPECT_EQ(printed({"b", "c", "a"}), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(printed({"b", "c", "a", "--merge", "none"}), (std::vector<int>{4, 5, 6, 7, 8, 9, 1, 2, 3}));
    EXPECT_EQ(printed({"b", "c", "a", "--merge", "none", "--reverse"}), (std::vector<int>{3, 2, 1, 9, 8, 7, 6, 5, 4}));
    EXPECT_EQ(printed({".", "--merge", "time", "--reverse", "--limit", "4"}), (std::vector<int>{9, 8, 7, 6}));
}

TEST_F(CatTest, IdsOfSeparateEnginesAreNamedOnceAndMergingByTimeSuggested) {
    makeOrders("a", 30);
    makeOrders("b", 30);
    const ProgramResult result = run({"cat", "a", "b", "-o", "fix"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(linesOf(result.output).size(), 60U);
    EXPECT_EQ(linesOf(result.errors).size(), 1U) << result.errors;
    EXPECT_NE(result.errors.find("--merge time"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"cat", "a", "b", "-o", "fix", "--merge", "time"}).errors, "");
}

TEST_F(CatTest, ExplainTellsWhatWasPushedDownAndHowManyBlocksWereSkipped) {
    makeOrders("orders", 40);
    const ProgramResult result = run({"cat", "orders", "-o", "fix", "--uid", "9..10", "--type", "D", "--where",
                                      "ClOrdID=order-5", "--text", "ACME", "--where", "tag:55!=X", "--explain"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors,
              "tabulo: orders: asked of footers and filters: --uid 9..10, --where 'ClOrdID=order-5'; of messages: "
              "--type D, --where 'tag:55!=X', --text ACME; 9 of 10 blocks skipped, 4 messages looked at\n");
}

TEST_F(CatTest, WhatCannotBeSelectedIsWrongUse) {
    makeOrders("orders", 4);
    expectRefused({"cat", "orders", "--seq", "5..3"}, 2, "the range 5..3 of --seq is reversed");
    expectRefused({"cat", "orders", "--uid", "x..3"}, 2, "--uid takes a range A..B, and 'x..3' is none");
    expectRefused({"cat", "orders", "--uid", ".."}, 2, "--uid takes a range A..B, of which one end may be left out");
    expectRefused({"cat", "orders", "--uid", "1..99999999999"}, 2, "'99999999999' is no number of 32 bits");
    expectRefused({"cat", "orders", "--id", "1..536870911"}, 2,
                  "the ids 1..536870911 are not of one class: APP_TO 0..536870910, APP_FROM 536870911..1073741822");
    expectRefused({"cat", "orders", "--id", "-4..-2"}, 2, "are not of one class");
    expectRefused({"cat", "orders", "--class", "APP"}, 2, "there is no class 'APP': APP_TO, APP_FROM");
    expectRefused({"cat", "orders", "--class", "APP_TO", "--id", "1073741823..1073741824"}, 2, "exclude each other");
    expectRefused({"cat", "orders", "--type", "D", "--not-type", "D"}, 2, "exclude each other");
    expectRefused({"cat", "orders", "--type", "TOOLONG"}, 2, "more than five characters");
    expectRefused({"cat", "orders", "--poss-dup", "maybe"}, 2, "--poss-dup takes yes or no");
    expectRefused({"cat", "orders", "--where", "Side=1"}, 2,
                  "the table has no field 'Side'; it has Symbol, ClOrdID, Price, OrderQty");
    expectRefused({"cat", "orders", "--where", "Side"}, 2, "is no condition");
    expectRefused({"cat", "orders", "--text", " "}, 2, "--text takes words");
    expectRefused({"cat", "orders", "--since", "2026-02-30"}, 2, "2026-02-30");
    expectRefused({"cat", "orders", "--since", "2026-11-21", "--until", "2026-11-20"}, 2,
                  "no time lies between --since 2026-11-21 and --until 2026-11-20");
    expectRefused({"cat", "orders", "--merge", "id"}, 2, "--merge takes uid, time or none");
    expectRefused({"cat", "orders", "-o", "xml"}, 2, "there is no format 'xml'");
    expectRefused({"cat", "orders", "-o", "raw", "--long"}, 2, "--long and --dictionary are for -o text");
    expectRefused({"cat", "orders", "--limit", "-1"}, 2, "'tabulo cat --help' tells what it takes");
    expectRefused({"cat"}, 2, "'tabulo cat --help' tells what it takes");
}

TEST_F(CatTest, AFieldThatOneOfSeveralTablesLacksNamesTheTable) {
    makeOrders("orders", 4);
    Writer::create(file("plain"), {.texts = {"Other"}}).close();
    expectRefused({"cat", "orders", "plain", "--where", "Symbol=1"}, 2,
                  "plain: the table has no field 'Symbol'; it has Other");
}

TEST_F(CatTest, FilesThatAreNoMessageTablesAreFailures) {
    makeSession("session");
    makeFile("notes", "some text that is no table at all, and long enough for a header of one");
    makeFile("empty", "");
    expectRefused({"cat", "missing"}, 1, "missing cannot be read: No such file or directory");
    expectRefused({"cat", "notes"}, 1, "notes");
    expectRefused({"cat", "empty"}, 1, "empty");
    expectRefused({"cat", "session"}, 1, "session is a session info table and holds no messages");
}

TEST_F(CatTest, AFolderGivesItsTablesAndNamesWhatWasLeftOut) {
    makeOrders("orders", 2);
    makeSession("session");
    makeFile("notes", "some text that is no table at all, and long enough for a header of one");
    const ProgramResult result = run({"cat", ".", "-o", "fix"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(linesOf(result.output).size(), 2U);
    EXPECT_NE(result.errors.find("notes"), std::string::npos) << result.errors;
}

TEST_F(CatTest, ATableOfTheOtherByteOrderIsAFailure) {
    makeOrders("orders", 2);
    Bytes bytes = readFile(file("orders"));
    std::reverse(bytes.begin(), bytes.begin() + 4);
    internal::test::writeFile(file("orders"), bytes);
    const ProgramResult result = run({"cat", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("orders"), std::string::npos) << result.errors;
}

TEST_F(CatTest, ADamagedTableGivesEverythingInFrontOfTheDamageFirst) {
    makeOrders("a", 20, 1);
    makeOrders("b", 40, 21);
    spoil("a", 11);
    const ProgramResult result = run({"cat", "a", "b", "-o", "ndjson"});
    EXPECT_EQ(result.status, 3);
    const auto lines = linesOf(result.output);
    ASSERT_EQ(lines.size(), 30U) << result.errors;
    EXPECT_NE(lines[9].find("\"uid\":10,"), std::string::npos) << lines[9];
    EXPECT_NE(lines[10].find("\"uid\":21,"), std::string::npos) << "the other table goes on";
    EXPECT_NE(result.errors.find("a"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("offset"), std::string::npos) << result.errors;
}

TEST_F(CatTest, ACutTableGivesItsWholeMessages) {
    makeOrders("orders", 20);
    std::filesystem::resize_file(file("orders"), std::filesystem::file_size(file("orders")) / 2);
    const ProgramResult result = run({"cat", "orders", "-o", "fix"});
    const auto lines = linesOf(result.output);
    EXPECT_GT(lines.size(), 5U) << result.errors;
    EXPECT_LT(lines.size(), 15U);
}

TEST_F(CatTest, NoTableIsChangedAndNothingIsPutBesideIt) {
    makeOrders("orders", 20);
    const auto before = contents();
    (void)run({"cat", "orders", "--reverse", "--where", "Symbol=ACME"});
    (void)run({"tail", "orders", "-n", "3"});
    (void)run({"cat", "orders", "--explain"});
    EXPECT_EQ(contents(), before);
}

TEST_F(CatTest, MessagesBesideAWriterAreReadWithoutDisturbingIt) {
    Writer writer = Writer::create(file("orders"), ordersLayout());
    for (std::int32_t n = 1; n <= 6; ++n) {
        writer.append(OrderMessage(n).message);
    }
    EXPECT_EQ(printed({"orders"}), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    writer.append(OrderMessage(7).message);
    EXPECT_EQ(printed({"orders", "--reverse", "--limit", "2"}), (std::vector<int>{7, 6}));
    EXPECT_TRUE(writer.isOpen());
}

TEST_F(CatTest, AClosedPipeEndsItAtOnceAndQuietly) {
    makeOrders("orders", 20000, 1, 1000);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    const std::string path = file("orders");
    const std::string errors = file("errors");
    ChildProcess child([&] {
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
        ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT, 0666), STDERR_FILENO);
        ::execl(TABULO_COMMAND, "tabulo", "cat", path.c_str(), "-o", "fix", nullptr);
        return 121;
    });
    ::close(ends[1]);
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    ::close(ends[0]);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(readText(errors), "");
}

}  // namespace tabulo::tool::test
