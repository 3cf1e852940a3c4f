#include "tests/tool/command_document.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <sstream>

#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<ShownExample> examplesIn(const std::string& text) {
    std::vector<ShownExample> examples;
    bool isShown = false;
    for (const std::string& line : linesOf(text)) {
        if (line.starts_with("$ ")) {
            examples.push_back({line.substr(2), ""});
            isShown = true;
        } else if (line == "```") {
            isShown = false;
        } else if (isShown) {
            examples.back().output += line + "\n";
        }
    }
    return examples;
}

std::string commandDocument() {
    return readText(TABULO_SOURCE_DIRECTORY "/docs/command.md");
}

std::string documentSection(const std::string& heading) {
    const std::string whole = commandDocument();
    const std::size_t begin = whole.find("\n## " + heading + "\n");
    return begin == std::string::npos ? "" : whole.substr(begin, whole.find("\n## ", begin + 1) - begin);
}

std::vector<std::string> quotedWords(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t begin = text.find('`'); begin != std::string::npos; begin = text.find('`', begin)) {
        const std::size_t end = text.find('`', begin + 1);
        words.push_back(text.substr(begin + 1, end - begin - 1));
        begin = end + 1;
    }
    return words;
}

std::vector<std::string> keysOf(const std::string& line) {
    std::vector<std::string> keys;
    rapidjson::Document json;
    json.Parse(line.c_str());
    EXPECT_TRUE(!json.HasParseError() && json.IsObject()) << line;
    if (json.IsObject()) {
        for (const auto& member : json.GetObject()) {
            keys.emplace_back(member.name.GetString());
        }
    }
    return keys;
}

}  // namespace tabulo::tool::test
