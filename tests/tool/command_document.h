// What the tests of docs/command.md share: its sections, and the keys of what the command prints.
#pragma once

#include <string>
#include <vector>

namespace tabulo::tool::test {

// The lines of a text without their ends.
std::vector<std::string> linesOf(const std::string& text);
// The section of docs/command.md under "## <heading>", up to the next one of its rank; empty when there is none.
std::string documentSection(const std::string& heading);
// A command that a document shows, as in "$ tabulo ls", and what is printed by it.
struct ShownExample {
    std::string command;
    std::string output;
};
// The examples of a text, in their order.
std::vector<ShownExample> examplesIn(const std::string& text);
// All of docs/command.md.
std::string commandDocument();
// The words in backquotes of a text.
std::vector<std::string> quotedWords(const std::string& text);
// The keys of a JSON object, in their order; fails the test when the line is none.
std::vector<std::string> keysOf(const std::string& line);

}  // namespace tabulo::tool::test
