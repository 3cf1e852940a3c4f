#include <regex>

#include "tabulo/index.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/live_command.h"
#include "tests/tool/rescue_test.h"

namespace tabulo::tool::test {
namespace {

// Times and rates, which differ from run to run, as "T" and "R".
std::string withoutTimes(std::string text) {
    text =
        std::regex_replace(text, std::regex("\"seconds\":[^,]+,\"perSecond\":[^}]+"), "\"seconds\":T,\"perSecond\":R");
    return std::regex_replace(text, std::regex(R"( [0-9]+\.[0-9]{3} s +[0-9-]+)"), " T R");
}

class IndexVerbTest : public RescueTest {
  protected:
    Writer create(const std::string& name) const { return Writer::create(file(name), ordersLayout()); }
    static void append(Writer* writer, int first, int last) {
        for (int n = first; n <= last; ++n) {
            writer->append(OrderMessage(n).message);
        }
    }
    LiveCommand follow(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"index", "--follow", "-o", "ndjson"});
        return {file("follow"), arguments};
    }
    // Waits until the index covers so many messages.
    bool awaitCovered(const std::string& name, std::int64_t messages) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (covered(name) != messages && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return covered(name) == messages;
    }
    std::int64_t covered(const std::string& name) const {
        const std::optional<IndexInfo> info = inspectIndex(file(name));
        return info.has_value() ? info->messages : -1;
    }
};

TEST_F(IndexVerbTest, ATableGetsAnIndexOfItsClosedBlocksAndStaysAsItIs) {
    makeOrders("orders", 23);
    const Bytes before = readFile(file("orders"));
    ProgramResult result = run({"index", "orders", "-o", "ndjson"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const std::string size = std::to_string(std::filesystem::file_size(file("orders.idx")));
    const std::string begin =
        "{\"table\":\"orders\",\"path\":\"orders\",\"index\":\"orders.idx\",\"messages\":23,\"covered\":20,\"blocks\":"
        "5,"
        "\"runs\":1,\"bytes\":" +
        size + ",\"share\":";
    EXPECT_TRUE(result.output.starts_with(begin)) << result.output;
    EXPECT_TRUE(withoutTimes(result.output).ends_with(",\"added\":20,\"seconds\":T,\"perSecond\":R}\n"))
        << result.output;
    EXPECT_EQ(readFile(file("orders")), before);
    EXPECT_EQ(covered("orders"), 20);
    result = run({"index", "orders", "-o", "ndjson"});
    EXPECT_NE(result.output.find("\"added\":0,"), std::string::npos) << "nothing is new the second time";
    EXPECT_EQ(namesIn(directory.path()), (std::vector<std::string>{"orders", "orders.idx"}));
}

TEST_F(IndexVerbTest, CheckTellsWhatThereIsAndWritesNothing) {
    makeOrders("orders", 23);
    makeOrders("other", 33, 25);
    EXPECT_EQ(run({"index", "other"}).status, 0);
    const auto before = contents();
    ProgramResult result = run({"index", "--check", ".", "-o", "ndjson"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(
        result.output.find("\"index\":\"orders.idx\",\"messages\":23,\"covered\":null,\"blocks\":null,\"runs\":null,"
                           "\"bytes\":null,\"share\":null,\"added\":null,\"seconds\":null,\"perSecond\":null}\n"),
        std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("\"messages\":9,\"covered\":8,\"blocks\":2,\"runs\":1,"), std::string::npos)
        << result.output;
    EXPECT_EQ(contents(), before);
    std::filesystem::copy_file(file("other.idx"), file("orders.idx"));
    result = run({"index", "--check", "orders"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.errors.find("orders.idx is not used: "), std::string::npos) << result.errors;
    EXPECT_EQ(run({"index", "--check", "--follow", "orders"}).status, 2);
}

TEST_F(IndexVerbTest, AFolderIsIndexedWithoutItsSessionTablesAndWhatIsForeignIsNamed) {
    makeOrders("a", 9);
    makeOrders("b", 5);
    makeSession("session");
    makeFile("notes.txt", "no table");
    ProgramResult result = run({"index", "."});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find("left out: FILE_SIZE_ERROR"), std::string::npos) << result.errors;
    EXPECT_EQ(result.errors.find("session"), std::string::npos) << result.errors;
    EXPECT_EQ(covered("a"), 8);
    EXPECT_EQ(covered("b"), 4);
    result = run({"index", "session"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("'tabulo session session' shows it"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"index", "missing"}).status, 1);
    EXPECT_EQ(run({"index"}).status, 2);
}

TEST_F(IndexVerbTest, NoFolderTakesAnIndexForATable) {
    makeOrders("orders", 23);
    EXPECT_EQ(run({"index", "orders"}).status, 0);
    makeFile("orders.idx.new", "");
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"ls"},
                                                      {"info", "."},
                                                      {"verify", "."},
                                                      {"cat", "."},
                                                      {"stats", "."},
                                                      {"backup", ".", "--to", "copy"}}) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.errors;
        EXPECT_EQ(result.output.find(".idx"), std::string::npos) << result.output;
    }
    EXPECT_EQ(namesIn(file("copy")), std::vector<std::string>{"orders"});
}

TEST_F(IndexVerbTest, ATableThatIsCalledLikeAnIndexIsATable) {
    makeOrders("prices.idx", 9);
    const ProgramResult result = run({"ls"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.output.find("prices.idx"), std::string::npos) << result.output;
}

TEST_F(IndexVerbTest, AFileThatIsNoIndexStaysAndTheOtherTablesAreDone) {
    makeOrders("a", 9);
    makeOrders("b", 9);
    makeFile("a.idx", "my notes");
    ProgramResult result = run({"index", "a", "b"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("a.idx, or that with .new behind it, is no index: move it away"), std::string::npos)
        << result.errors;
    EXPECT_NE(result.errors.find("1 of 2 files could not be indexed"), std::string::npos) << result.errors;
    EXPECT_EQ(covered("b"), 8);
    EXPECT_EQ(readText(file("a.idx")), "my notes");
    EXPECT_EQ(run({"index", "a"}).status, 1);
    EXPECT_EQ(run({"index", "."}).status, 3);
}

TEST_F(IndexVerbTest, AnIndexThatAnotherProgramKeepsIsLeftToIt) {
    makeOrders("orders", 23);
    {
        Indexer other(file("orders"));
        const ProgramResult result = run({"index", "orders"});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("another program keeps the index orders.idx"), std::string::npos) << result.errors;
    }
    EXPECT_EQ(run({"index", "orders"}).status, 0);
}

TEST_F(IndexVerbTest, ADamagedTableIsCoveredUpToItsDamage) {
    const std::string path = makeOrders("orders", 23);
    const Position place = *Reader(path).positionOf(9);
    internal::test::patchFile(path, static_cast<std::size_t>(place.offset), Bytes(40, 0));
    const ProgramResult result = run({"index", "orders"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(covered("orders"), 8);
    EXPECT_NE(result.errors.find("the index of orders ends in front of the block at " + std::to_string(place.block)),
              std::string::npos)
        << result.errors;
}

TEST_F(IndexVerbTest, ADiskThatIsFullLeavesTheIndexAsItWas) {
    Writer writer = create("orders");
    append(&writer, 1, 9);
    EXPECT_EQ(run({"index", "orders"}).status, 0);
    const Bytes before = readFile(file("orders.idx"));
    append(&writer, 10, 4000);
    ProgramResult result;
    {
        const FileSizeLimit limit(before.size() + 4096);
        result = run({"index", "orders"});
    }
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("FILE_WRITE_ERROR"), std::string::npos) << result.errors;
    EXPECT_EQ(covered("orders"), 8);
    EXPECT_EQ(run({"index", "orders"}).status, 0);
    EXPECT_EQ(covered("orders"), 4000);
}

TEST_F(IndexVerbTest, SeveralTablesAreKeptUpUntilTheInterrupt) {
    Writer a = create("a");
    Writer b = create("b");
    append(&a, 1, 9);
    LiveCommand process = follow({file("a"), file("b"), file("a")});
    ASSERT_TRUE(process.awaitLines(2)) << process.errors();
    EXPECT_EQ(covered("a"), 8);
    append(&a, 10, 400);
    append(&b, 1, 200);
    EXPECT_TRUE(awaitCovered("a", 400)) << covered("a");
    EXPECT_TRUE(awaitCovered("b", 200)) << covered("b");
    ASSERT_TRUE(process.awaitLines(4)) << process.output() << process.errors();
    EXPECT_EQ(process.interrupt(), 130);
    EXPECT_EQ(covered("a"), 400);
    EXPECT_EQ(run({"index", "a"}).status, 0) << "nothing keeps the index any more";
}

TEST_F(IndexVerbTest, ATableThatIsEmptiedOrReplacedGetsANewIndexWhileItIsFollowed) {
    makeOrders("other", 80);
    Writer writer = create("orders");
    append(&writer, 1, 400);
    LiveCommand process = follow({file("orders")});
    ASSERT_TRUE(process.awaitLines(1)) << process.errors();
    writer.drop();
    append(&writer, 1001, 1100);
    EXPECT_TRUE(awaitCovered("orders", 100)) << covered("orders");
    writer.close();
    std::filesystem::rename(file("other"), file("orders"));
    EXPECT_TRUE(process.awaitErrors("orders was replaced by another file")) << process.errors();
    EXPECT_TRUE(awaitCovered("orders", 80)) << covered("orders");
    std::filesystem::remove(file("orders.idx"));
    EXPECT_TRUE(process.awaitErrors("orders has no index any more")) << process.errors();
    EXPECT_TRUE(awaitCovered("orders", 80)) << covered("orders");
    EXPECT_EQ(process.interrupt(), 130);
}

TEST_F(IndexVerbTest, TheTablesThatAppearInAFolderAreKeptUpToo) {
    std::filesystem::create_directory(file("tables"));
    LiveCommand process = follow({file("tables")});
    ASSERT_TRUE(process.awaitErrors("there is no table yet")) << process.errors();
    Writer writer = create("tables/orders");
    append(&writer, 1, 200);
    EXPECT_TRUE(awaitCovered("tables/orders", 200)) << process.errors();
    append(&writer, 201, 400);
    EXPECT_TRUE(awaitCovered("tables/orders", 400)) << process.errors();
    EXPECT_TRUE(process.awaitErrors("tables/orders is new, and its index is kept")) << process.errors();
    EXPECT_EQ(process.interrupt(), 130);
}

TEST_F(IndexVerbTest, AQueryOfTheCommandReadsFewerMessagesByTheIndex) {
    makeOrders("orders", 4000, 1, 1000);
    const std::vector<std::string> query = {"cat", "orders", "--where", "ClOrdID=order-700", "--explain"};
    const ProgramResult without = run(query);
    EXPECT_EQ(run({"index", "orders"}).status, 0);
    const ProgramResult with = run(query);
    EXPECT_EQ(with.output, without.output);
    const auto lookedAt = [](const std::string& text) {
        std::smatch found;
        EXPECT_TRUE(std::regex_search(text, found, std::regex("([0-9]+) messages looked at"))) << text;
        return found.empty() ? -1 : std::stoi(found[1]);
    };
    EXPECT_GE(lookedAt(without.errors), 1000);
    EXPECT_LT(lookedAt(with.errors), 20);
    EXPECT_NE(without.output, "");
}

}  // namespace
}  // namespace tabulo::tool::test
