// The side index that docs/side_index.md shows byte by byte: it must be the one that the library makes.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <span>
#include <string>
#include <vector>

#include "index/index_builder.h"
#include "index/index_page.h"
#include "index/side_index.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/text_lines.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t ROW = 16;

std::vector<std::string> documentedLines() {
    return textLines(readText(TABULO_SOURCE_DIRECTORY "/docs/side_index.md"));
}

// The rows of the dump by their offset, "00000010: 00 0d ...  ascii" without their indentation.
std::map<std::size_t, std::string> dumpRows() {
    static const std::regex row("    ([0-9a-f]{8}): (.*)");
    std::map<std::size_t, std::string> rows;
    for (const std::string& line : documentedLines()) {
        std::smatch match;
        if (std::regex_match(line, match, row)) {
            rows.emplace(std::stoul(match[1], nullptr, 16), match[2]);
        }
    }
    return rows;
}

// What differs from one index of the same table to another: checksums, and the file key by which they begin.
bool isOwn(std::size_t offset) {
    constexpr std::size_t FILE_KEY = 24;
    const std::size_t inPage = offset % INDEX_PAGE_SIZE;
    const bool isSlot = offset < 2 * INDEX_PAGE_SIZE;
    return inPage < INDEX_PAGE_CONTENT || (isSlot && inPage >= FILE_KEY && inPage < FILE_KEY + 8);
}

// A row as xxd -g1 prints it behind the offset, with ".." for what is the index's own.
std::string rowAt(const Bytes& bytes, std::size_t begin) {
    std::string hex;
    std::string text;
    for (std::size_t i = begin; i < begin + ROW; ++i) {
        hex += (i == begin ? "" : " ") + (isOwn(i) ? std::string("..") : toHex(std::span(bytes).subspan(i, 1)));
        text += !isOwn(i) && bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
    }
    return hex + "  " + text;
}

bool isZero(const Bytes& bytes, std::size_t begin) {
    bool found = false;
    for (std::size_t i = begin; i < begin + ROW; ++i) {
        found = found || isOwn(i) || bytes[i] != 0;
    }
    return !found;
}

Message documentedMessage(std::int32_t uniformId, std::int32_t connMsgId) {
    Message message;
    message.metadata.uniformId = uniformId;
    message.metadata.seqNum = uniformId + 1;
    message.metadata.connMsgId = connMsgId;
    message.metadata.timestamp = 1'700'000'000'000 + uniformId - 1;
    message.strings.resize(5);
    message.numbers.resize(1);
    return message;
}

class DocumentedIndex : public MessageTableTest {
  protected:
    // The index of the table that the document tells of.
    Bytes indexBytes() {
        shape.name = "t";
        shape.messagesPerBlock = 2;
        shape.stringNames = {"Symbol"};
        shape.numericNames = {"Price"};
        open(OpenMode::create);
        Message order = documentedMessage(1, 7);
        setMsgType(&order.metadata, "D");
        order.numbers[0] = numericValue_ofDouble(10.5);
        order.strings = {withNul("A1"), std::nullopt, withNul("ACME"), withNul("35=D\00155=ACME\001"), std::nullopt};
        EXPECT_EQ(write(order), NO_ERROR);
        Message report = documentedMessage(2, 536870911);
        setMsgType(&report.metadata, "8");
        report.metadata.isPossDupFlag = 1;
        report.strings[3] = withNul("35=8\001");
        EXPECT_EQ(write(report), NO_ERROR);
        EXPECT_EQ(closeTable(table), NO_ERROR);
        open(OpenMode::read);
        IndexBuilder builder(path(), mt_layout(table.get()));
        EXPECT_EQ(builder.open(), NO_ERROR);
        EXPECT_EQ(builder.update(table.get(), 1, {}), NO_ERROR);
        return readFile(path() + std::string(INDEX_SUFFIX));
    }
};

TEST_F(DocumentedIndex, HasTheBytesThatTheLibraryWrites) {
    const std::map<std::size_t, std::string> documented = dumpRows();
    const Bytes written = indexBytes();
    ASSERT_EQ(written.size() % INDEX_PAGE_SIZE, 0U);
    for (std::size_t begin = 0; begin < written.size(); begin += ROW) {
        const auto found = documented.find(begin);
        if (found == documented.end()) {
            EXPECT_TRUE(isZero(written, begin)) << std::hex << begin << ": " << rowAt(written, begin);
        } else {
            EXPECT_EQ(found->second, rowAt(written, begin)) << std::hex << begin;
        }
    }
    ASSERT_FALSE(documented.empty()) << "docs/side_index.md has no rows such as '    00000000: .. ..'";
    EXPECT_LT(documented.rbegin()->first, written.size()) << "the document shows more than there is";
}

// The rows "| `ACME` | 7e87 | 0123456789abcdef |" under the description of the checksum.
TEST(DocumentedChecksum, IsTheOneThatPagesHave) {
    static const std::regex row(R"(\| `([^`]*)` \| ([0-9a-f]+) \| ([0-9a-f]{16}) \|)");
    int rows = 0;
    for (const std::string& line : documentedLines()) {
        std::smatch match;
        if (std::regex_match(line, match, row)) {
            const Bytes bytes = fromHex(match[1].str());
            const std::uint64_t sum = indexChecksum(bytes, std::stoull(match[2], nullptr, 16));
            EXPECT_EQ(sum, std::stoull(match[3], nullptr, 16)) << line << ": it is " << std::hex << sum;
            ++rows;
        }
    }
    EXPECT_GE(rows, 4);
}

}  // namespace
}  // namespace tabulo::internal::test
