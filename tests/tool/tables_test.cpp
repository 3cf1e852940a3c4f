#include "tool/tables.h"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/writer.h"
#include "tests/support/captured_output.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class TablesTest : public ToolTest {
  protected:
    std::vector<std::string> expanded(const std::vector<std::string>& arguments) {
        std::vector<std::string> names;
        for (const NamedFile& found : expandPaths(console, arguments)) {
            names.push_back(found.path.lexically_relative(directory.path()).string() + (found.fromFolder ? "*" : ""));
        }
        return names;
    }
    // The uniform ids of two tables merged.
    std::vector<std::int32_t> merged(const std::vector<std::string>& paths, MergeBy merge, bool backward = false) {
        std::vector<Messages> messages;
        for (const std::string& path : paths) {
            messages.push_back(Reader(path).messages(backward ? Query().backward() : Query()));
        }
        MergedMessages all(console, paths, std::move(messages), merge, backward);
        std::vector<std::int32_t> ids;
        while (const MessageView* message = all.next()) {
            ids.push_back(message->uniformId());
        }
        EXPECT_EQ(all.next(), nullptr);
        return ids;
    }
    // A table with messages of these uniform ids; times are 1000 times as large, or 0.
    std::string makeTable(const std::string& name, const std::vector<std::int32_t>& ids, bool withTimes = true) {
        Writer writer = Writer::create(file(name), ordersLayout(2));
        for (const std::int32_t id : ids) {
            Message message;
            message.uniformId = id;
            message.time = withTimes ? std::int64_t{1000} * id : 0;
            message.type = "D";
            writer.append(message);
        }
        writer.close();
        return file(name);
    }

    internal::test::CapturedOutput errors{stderr};
    Console console;
};

using Ids = std::vector<std::int32_t>;

TEST_F(TablesTest, AFolderStandsForItsFilesByName) {
    makeFile("b", "");
    makeFile("a", "");
    makeFile(".hidden", "");
    makeFile("a.cut-4096", "");
    makeFile("a.cut-4096-1", "");
    makeFile("a.cut-x", "");
    std::filesystem::create_directory(file("folder"));
    EXPECT_EQ(expanded({directory.path()}), (std::vector<std::string>{"a*", "a.cut-x*", "b*"}));
    EXPECT_EQ(expanded({file("b"), directory.path(), file("a.cut-4096")}),
              (std::vector<std::string>{"b", "a*", "a.cut-x*", "b*", "a.cut-4096"}));
    EXPECT_EQ(console.status(), Status::done);
}

TEST_F(TablesTest, WhatIsNeitherFileNorFolderIsRefusedOrLeftOut) {
    ASSERT_EQ(::mkfifo(file("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("nowhere", file("link"));
    EXPECT_THROW(expanded({file("missing")}), Failure);
    EXPECT_THROW(expanded({file("link")}), Failure);
    EXPECT_THROW(expanded({file("pipe")}), Failure);
    EXPECT_EQ(console.status(), Status::done);
    EXPECT_EQ(expanded({directory.path()}), std::vector<std::string>());
    EXPECT_EQ(console.status(), Status::incomplete);
    EXPECT_NE(errors.text().find("pipe is no file and was left out"), std::string::npos) << errors.text();
}

TEST_F(TablesTest, TheTableOfACutFileIsTold) {
    EXPECT_EQ(tableOfCutFile("orders.cut-4096"), "orders");
    EXPECT_EQ(tableOfCutFile("orders.cut-4096-12"), "orders");
    EXPECT_EQ(tableOfCutFile("a.cut-1.cut-2"), "a.cut-1");
    for (const char* name : {"orders", "orders.cut-", "orders.cut-x", "orders.cut-1-", "orders.cut-1-2-3", ".cut-1"}) {
        EXPECT_EQ(tableOfCutFile(name), std::nullopt) << name;
    }
}

TEST_F(TablesTest, OfAFolderTheMessageTablesAreOpened) {
    makeOrders("orders", 3);
    makeSession("session");
    const std::vector<Reader> readers = openTables(console, {{file("orders"), true}, {file("session"), true}});
    ASSERT_EQ(readers.size(), 1U);
    EXPECT_EQ(readers[0].table(), "orders");
    EXPECT_EQ(console.status(), Status::done) << errors.text();
}

TEST_F(TablesTest, AForeignFileIsLeftOutOfAFolderAndRefusedByName) {
    makeOrders("orders", 3);
    makeFile("notes", "remember the milk, the bread and the butter");
    EXPECT_THROW(openTables(console, {{file("orders"), false}, {file("notes"), false}}), Error);
    EXPECT_EQ(console.status(), Status::done);
    EXPECT_EQ(openTables(console, {{file("orders"), true}, {file("notes"), true}}).size(), 1U);
    EXPECT_EQ(console.status(), Status::incomplete);
    EXPECT_NE(errors.text().find("left out: SIGNATURE_ERROR"), std::string::npos) << errors.text();
}

TEST_F(TablesTest, ANamedSessionTableAndNoTableAtAllAreFailures) {
    EXPECT_THROW(openTables(console, {{makeSession("session"), false}}), Failure);
    EXPECT_THROW(openTables(console, {{file("session"), true}}), Failure);
    EXPECT_THROW(openTables(console, {}), Failure);
}

TEST_F(TablesTest, HeadsAreComparedAndATablesOwnOrderStays) {
    const std::string a = makeTable("a", {1, 4, 2, 9});
    const std::string b = makeTable("b", {3, 5, 6});
    EXPECT_EQ(merged({a, b}, MergeBy::uniformId), (Ids{1, 3, 4, 2, 5, 6, 9}));
    EXPECT_EQ(merged({a, b}, MergeBy::time), (Ids{1, 3, 4, 2, 5, 6, 9}));
    EXPECT_EQ(merged({a, b}, MergeBy::nothing), (Ids{1, 4, 2, 9, 3, 5, 6}));
    EXPECT_EQ(merged({a, b}, MergeBy::uniformId, true), (Ids{9, 6, 5, 3, 2, 4, 1}));
    EXPECT_EQ(merged({}, MergeBy::uniformId), Ids{});
    EXPECT_EQ(errors.text(), "");
}

TEST_F(TablesTest, TiesFollowTheOrderOfTheTablesInBothDirections) {
    const std::string a = makeTable("a", {1, 3}, false);
    const std::string b = makeTable("b", {2, 4}, false);
    EXPECT_EQ(merged({b, a}, MergeBy::time), (Ids{2, 4, 1, 3}));
    EXPECT_EQ(merged({b, a}, MergeBy::time, true), (Ids{4, 2, 3, 1}));
}

TEST_F(TablesTest, IdsThatTwoTablesHaveAreToldOnce) {
    const std::string a = makeTable("a", {0, 1, 2, 3});
    const std::string b = makeTable("b", {0, 2, 3});
    EXPECT_EQ(merged({a, b}, MergeBy::uniformId), (Ids{0, 0, 1, 2, 2, 3, 3}));
    EXPECT_EQ(errors.text(),
              "tabulo: " + a + " and " + b +
                  " both have uniform id 2: their ids are not of one sequence; --merge time orders them by "
                  "time\n");
    EXPECT_EQ(console.status(), Status::done);
}

TEST_F(TablesTest, DamageIsToldBehindWhatStandsInFrontOfItAndOtherTablesGoOn) {
    const std::string a = makeTable("a", {1, 3, 5, 7});
    const std::string b = makeTable("b", {2, 4, 6, 8});
    const auto second = [](const std::string& path) { return Reader(path).positionOf(2); };
    internal::test::patchFile(a, static_cast<std::size_t>(second(a)->offset), Bytes(4, 0xFF));
    EXPECT_EQ(merged({a, b}, MergeBy::uniformId), (Ids{1, 2, 3, 4, 6, 8})) << errors.text();
    EXPECT_EQ(console.status(), Status::incomplete);
}

TEST_F(TablesTest, ATableThatIsEmptiedMeanwhileIsTold) {
    const std::string a = makeTable("a", {1, 2, 3, 4, 5, 6, 7, 8});
    std::vector<Messages> messages;
    messages.push_back(Reader(a).messages());
    MergedMessages all(console, {a}, std::move(messages), MergeBy::uniformId, false);
    ASSERT_NE(all.next(), nullptr);
    Writer writer = Writer::open(a);
    writer.drop();
    writer.append(OrderMessage(1).message);
    std::int32_t count = 0;
    while (all.next() != nullptr) {
        ++count;
    }
    EXPECT_LT(count, 7);
    EXPECT_EQ(console.status(), Status::incomplete);
    EXPECT_NE(errors.text().find("was emptied while it was read"), std::string::npos) << errors.text();
}

TEST_F(TablesTest, MessagesThatAreStoredMeanwhileAreNotWaitedFor) {
    const std::string a = makeTable("a", {1, 2, 3});
    Reader reader(a);
    Messages messages = messagesUntilNow(reader, {});
    Writer writer = Writer::open(a);
    writer.append(OrderMessage(4).message);
    int count = 0;
    while (messages.next() != nullptr) {
        ++count;
    }
    EXPECT_EQ(count, 3);
}

}  // namespace

}  // namespace tabulo::tool::test
