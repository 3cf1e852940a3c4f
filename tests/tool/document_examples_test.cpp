// The examples of docs/command.md, run as they stand there: they print what they show.

#include <functional>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/recorded_session.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

// The sections whose examples are run below.
const std::vector<std::string> SECTIONS = {"Looking at tables",
                                           "Messages",
                                           "Checking, rescuing and copying tables",
                                           "Side indexes",
                                           "SQL",
                                           "Orders",
                                           "Help",
                                           "The long form, and dictionaries"};

class DocumentExamplesTest : public ToolTest {
  protected:
    // An output without what differs from run to run: the time that making an index took, and the messages in a second.
    static std::string shown(const std::string& output) {
        return std::regex_replace(withLockList(output), std::regex(R"( [0-9]+\.[0-9]{3} s [0-9]+)"), " 0.000 s 0");
    }

    // Runs the examples of a section one after the other. `isErrorShown` where the document shows standard error, too;
    // `before` is called with each command.
    void expectExamples(const std::string& section, bool isErrorShown = false,
                        const std::function<void(const std::string&)>& before = {}) const {
        CommandSettings settings;
        settings.directory = directory.path();
        const std::vector<ShownExample> examples = examplesIn(documentSection(section));
        EXPECT_FALSE(examples.empty()) << section;
        for (const ShownExample& example : examples) {
            if (before) {
                before(example.command);
            }
            const std::string command = isErrorShown ? "{ " + example.command + "; } 2>&1" : example.command;
            const ProgramResult result = runScript("tabulo() { \"$TABULO\" \"$@\"; }\n" + command, settings);
            EXPECT_EQ(shown(result.output), shown(example.output)) << example.command;
            const bool isIncomplete = example.output.find("tabulo: data/damaged is damaged") != std::string::npos ||
                                      example.output.find("hold no whole message") != std::string::npos;
            EXPECT_EQ(result.status, isIncomplete ? 3 : 0) << example.command << ": " << result.errors;
        }
    }

    // A copy of a table, in which a message was overwritten with zeros.
    void makeDamaged(const std::string& name, const std::string& table, std::int64_t ordinal) const {
        Bytes bytes = readFile(file(table));
        Reader reader(file(table));
        Messages messages = reader.messages(Query().from(*reader.positionOf(ordinal)));
        const MessageView* message = messages.next();
        const auto begin = bytes.begin() + message->position().offset;
        std::fill(begin, begin + static_cast<std::ptrdiff_t>(message->frame().size()), std::uint8_t{0});
        internal::test::writeFile(file(name), bytes);
    }
};

}  // namespace

TEST_F(DocumentExamplesTest, EveryExampleOfTheDocumentIsInASectionThatIsRun) {
    std::size_t run = 0;
    for (const std::string& section : SECTIONS) {
        run += examplesIn(documentSection(section)).size();
    }
    EXPECT_EQ(run, examplesIn(commandDocument()).size());
    EXPECT_GE(run, 25U);
}

TEST_F(DocumentExamplesTest, LookingAtTables) {
    makeOrders("orders", 23);
    makeSession("session");
    expectExamples("Looking at tables");
}

TEST_F(DocumentExamplesTest, Messages) {
    makeOrders("orders", 23);
    expectExamples("Messages");
}

TEST_F(DocumentExamplesTest, CheckingRescuingAndCopyingTables) {
    std::filesystem::create_directory(file("data"));
    makeOrders("data/orders", 23);
    makeSession("data/session");
    makeDamaged("data/damaged", "data/orders", 5);
    int backups = 0;
    expectExamples("Checking, rescuing and copying tables", true, [&](const std::string& command) {
        backups += command.starts_with("tabulo backup") ? 1 : 0;
        if (backups == 1) {
            std::filesystem::remove(file("data/damaged"));
        } else if (backups == 2) {
            Writer writer = Writer::open(file("data/orders"));
            for (int n = 24; n <= 30; ++n) {
                writer.append(OrderMessage(n).message);
            }
            writer.close();
        }
    });
    EXPECT_EQ(backups, 3);
}

TEST_F(DocumentExamplesTest, SideIndexes) {
    std::filesystem::create_directory(file("data"));
    makeOrders("data/orders", 23);
    makeSession("data/session");
    makeRecorded(file("client-day1"), "client-day1", orderIdsLayout());
    expectExamples("Side indexes", true);
}

TEST_F(DocumentExamplesTest, Sql) {
#ifndef TABULO_HAS_SQLITE
    GTEST_SKIP() << "built without SQLite";
#endif
    makeOrders("orders", 23);
    makeSession("session");
    expectExamples("SQL");
}

TEST_F(DocumentExamplesTest, Orders) {
    makeRecorded(file("client-day2"), "client-day2", plainLayout(),
                 makeRecorded(file("client-day1"), "client-day1", plainLayout()));
    expectExamples("Orders");
}

TEST_F(DocumentExamplesTest, TheLongForm) {
    makeRecorded(file("client-day1"), "client-day1", plainLayout());
    expectExamples("The long form, and dictionaries");
}

TEST_F(DocumentExamplesTest, HelpAndCompletion) {
    expectExamples("Help");
    CommandSettings settings;
    settings.directory = directory.path();
    settings.environment = {"HOME=" + directory.path()};
    const std::string section = documentSection("Help");
    int commands = 0;
    for (const std::string& line : linesOf(section.substr(section.find("# in this bash")))) {
        if (line.find("tabulo completion") != std::string::npos && !line.starts_with("`")) {
            const ProgramResult result = runScript(
                "set -e; mkdir -p ~/.zfunc ~/.config/fish/completions; tabulo() { \"$TABULO\" \"$@\"; }\n" + line,
                settings);
            EXPECT_EQ(result.status, 0) << line << ": " << result.errors;
            ++commands;
        }
    }
    EXPECT_EQ(commands, 3);
    EXPECT_NE(readText(file(".zfunc/_tabulo")), "");
    EXPECT_NE(readText(file(".config/fish/completions/tabulo.fish")), "");
}

}  // namespace tabulo::tool::test
