// What the document of the command says: its examples print what they show, and objects have the keys that it lists.

#include <string>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

// The keys in the table of fields under "### `tabulo <verb>".
std::vector<std::string> documentedKeys(const std::string& verb) {
    std::vector<std::string> keys;
    bool isVerb = false;
    for (const std::string& line : linesOf(commandDocument())) {
        if (line.starts_with("#")) {
            isVerb = line.starts_with("### `tabulo " + verb + " ");
        }
        const std::string cell = line.starts_with("| `") ? line.substr(1, line.find(" | ") - 1) : "";
        if (isVerb) {
            const std::vector<std::string> words = quotedWords(cell);
            keys.insert(keys.end(), words.begin(), words.end());
        }
    }
    return keys;
}

class CommandDocumentTest : public ToolTest {
  protected:
    CommandDocumentTest() {
        makeOrders("orders", 23);
        makeSession("session");
    }
};

TEST_F(CommandDocumentTest, ObjectsHaveTheKeysThatAreListedInTheirOrder) {
    const std::vector<std::vector<std::string>> commands = {
        {"ls", "orders"},
        {"ls", "session"},
        {"info", "orders"},
        {"info", "session"},
        {"blocks", "orders"},
        {"session", "session"},
        {"stats", "orders", "--by", "type,class,table,field:NAME,minute,hour,day"},
        {"index", "orders"},
        {"index", "orders", "--check"},
    };
    Writer::create(file("named"), {.texts = {"NAME"}}).close();
    for (std::vector<std::string> arguments : commands) {
        const std::string verb = arguments[0];
        arguments.insert(arguments.end(), {"-o", "ndjson"});
        if (verb == "stats") {
            arguments.emplace_back("named");  // it has the field
        }
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        for (const std::string& line : linesOf(result.output)) {
            EXPECT_EQ(keysOf(line), documentedKeys(verb)) << verb << ": " << line;
        }
        EXPECT_NE(result.output, "") << verb;
    }
}

}  // namespace

}  // namespace tabulo::tool::test
