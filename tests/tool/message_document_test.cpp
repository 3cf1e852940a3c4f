// The fields of messages that the document lists are those that are printed.

#include <algorithm>
#include <string>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

// The keys of the table of ndjson's fields, each with the one in Base64 behind it that its row names, or without those.
std::vector<std::string> documentedKeys(bool withBase64) {
    std::vector<std::string> keys;
    const std::string text = documentSection("Messages");
    for (const std::string& line : linesOf(text.substr(text.find("| key | value |")))) {
        if (line.empty()) {
            break;
        }
        for (const std::string& word : quotedWords(line)) {
            const bool isKey = line.starts_with("| `" + word + "` |");
            if (isKey || (withBase64 && word.ends_with("Base64"))) {
                keys.push_back(word);
            }
        }
    }
    return keys;
}

class MessageDocumentTest : public ToolTest {};

}  // namespace

TEST_F(MessageDocumentTest, NdjsonHasTheKeysThatAreListedInTheirOrder) {
    makeOrders("orders", 3);
    ASSERT_EQ(documentedKeys(false).size(), 16U);
    const auto lines = linesOf(run({"cat", "orders", "-o", "ndjson"}).output);
    ASSERT_EQ(lines.size(), 3U);
    for (const std::string& line : lines) {
        EXPECT_EQ(keysOf(line), documentedKeys(false));
    }
}

TEST_F(MessageDocumentTest, WhatIsNoUtf8HasTheKeysThatAreListedForIt) {
    Writer writer = Writer::create(file("orders"), {.texts = {"Symbol"}});
    Message message;
    message.type = "\xFF";
    message.text0 = message.text1 = message.wire = message.nonMetadata = "\xFF";
    message.texts = {"\xFF"};
    writer.append(message);
    writer.close();
    const auto lines = linesOf(run({"cat", "orders", "-o", "ndjson"}).output);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(keysOf(lines[0]), documentedKeys(true));
}

TEST_F(MessageDocumentTest, CsvHasThoseColumnsWithTheFieldsInTheirPlaceAndBase64AtTheEnd) {
    makeOrders("orders", 1);
    std::string expected;
    for (const std::string& key : documentedKeys(false)) {
        expected += key == "fields" ? "Symbol,ClOrdID,Price,OrderQty," : key + ",";
    }
    const auto lines = linesOf(run({"cat", "orders", "-o", "csv"}).output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], expected + "wireBase64,nonMetadataBase64\r");
}

TEST_F(MessageDocumentTest, EveryOptionOfTheSelectionIsDescribed) {
    const std::string text = documentSection("Messages");
    const std::string help = run({"cat", "--help"}).output;
    for (const std::string option :
         {"--seq", "--uid", "--id", "--since", "--until", "--class", "--type", "--not-type", "--poss-dup", "--where",
          "--text", "--explain", "--merge", "--reverse", "--limit"}) {
        EXPECT_NE(text.find("`" + option), std::string::npos) << option;
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}

}  // namespace tabulo::tool::test
