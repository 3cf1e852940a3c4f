// The table that docs/file_format.md shows byte by byte: it must be the one that the library writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/text_lines.h"

namespace tabulo::internal::test {
namespace {

std::vector<std::string> documentedLines() {
    return textLines(readText(TABULO_SOURCE_DIRECTORY "/docs/file_format.md"));
}

// The rows of the dump, "00000010: 00 0d ...  ascii" without their indentation, as xxd -g1 prints them.
std::vector<std::string> dumpRows() {
    static const std::regex row("    ([0-9a-f]{8}: .*)");
    std::vector<std::string> rows;
    for (const std::string& line : documentedLines()) {
        std::smatch match;
        if (std::regex_match(line, match, row)) {
            rows.push_back(match[1]);
        }
    }
    return rows;
}

// The bytes of the rows; the text at their ends is left aside.
Bytes bytesOf(const std::vector<std::string>& rows) {
    constexpr std::size_t HEX_BEGIN = 10;
    constexpr std::size_t HEX_WIDTH = 16 * 3;
    Bytes bytes;
    for (const std::string& row : rows) {
        if (std::stoul(row.substr(0, 8), nullptr, 16) != bytes.size()) {
            throw std::runtime_error("the row stands in the wrong place of the dump: " + row);
        }
        const Bytes more = fromHex(row.substr(HEX_BEGIN, HEX_WIDTH));
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return bytes;
}

// Bytes as xxd -g1 prints them.
std::vector<std::string> rowsOf(const Bytes& bytes) {
    std::vector<std::string> rows;
    for (std::size_t begin = 0; begin < bytes.size(); begin += 16) {
        char offset[24];
        std::snprintf(offset, sizeof(offset), "%08zx:", begin);
        std::string hex;
        std::string text;
        for (std::size_t i = begin; i < std::min(begin + 16, bytes.size()); ++i) {
            hex += " " + toHex(std::span(bytes).subspan(i, 1));
            text += bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
        }
        hex.resize(16 * 3, ' ');
        rows.push_back(offset + hex + "  " + text);
    }
    return rows;
}

// First and last offset of each range that the table under the dump explains, in its order.
std::vector<std::pair<std::size_t, std::size_t>> explainedRanges() {
    static const std::regex row(R"(\| ([0-9a-f]{2,3}(?:-[0-9a-f]{2,3})?(?:, [0-9a-f]{2,3}(?:-[0-9a-f]{2,3})?)*) \|.*)");
    static const std::regex range("([0-9a-f]+)(?:-([0-9a-f]+))?");
    std::vector<std::pair<std::size_t, std::size_t>> ranges;
    bool behindDump = false;
    for (const std::string& line : documentedLines()) {
        behindDump = line.find("    00000000: ") == 0 || (behindDump && line.find("## ") != 0);
        std::smatch match;
        if (!behindDump || !std::regex_match(line, match, row)) {
            continue;
        }
        const std::string cell = match[1];
        for (std::sregex_iterator it(cell.begin(), cell.end(), range), end; it != end; ++it) {
            const std::size_t first = std::stoul((*it)[1], nullptr, 16);
            ranges.emplace_back(first, (*it)[2].matched ? std::stoul((*it)[2], nullptr, 16) : first);
        }
    }
    return ranges;
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

class DocumentedDump : public MessageTableTest {
  protected:
    // The file of the two messages that the document tells of, closed.
    Bytes writtenTable() {
        shape.messagesPerBlock = 1000;
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
        return fileBytes();
    }
};

TEST_F(DocumentedDump, HasTheBytesThatTheLibraryWrites) {
    const Bytes documented = bytesOf(dumpRows());
    ASSERT_FALSE(documented.empty()) << "docs/file_format.md has no rows such as '    00000000: 4b 65 ...'";
    const Bytes written = writtenTable();
    const auto different = std::mismatch(written.begin(), written.end(), documented.begin(), documented.end());
    EXPECT_EQ(difference(written, documented), "") << "docs/file_format.md shows another file from offset " << std::hex
                                                   << different.first - written.begin() << " (hexadecimal) on";
}

TEST_F(DocumentedDump, IsPrintedAsXxdPrintsIt) {
    const std::vector<std::string> documented = dumpRows();
    const std::vector<std::string> printed = rowsOf(writtenTable());
    ASSERT_EQ(documented.size(), printed.size());
    for (std::size_t i = 0; i < printed.size(); ++i) {
        EXPECT_EQ(documented[i], printed[i]);
    }
}

TEST_F(DocumentedDump, IsExplainedFromItsFirstByteToItsLast) {
    std::size_t next = 0;
    for (const auto& [first, last] : explainedRanges()) {
        EXPECT_EQ(first, next) << std::hex << "the explanation of " << first << " should be that of " << next;
        EXPECT_GE(last, first) << std::hex << "the explanation of " << first << " ends at " << last;
        next = last + 1;
    }
    EXPECT_EQ(next, writtenTable().size()) << "the explanations under the dump end too early or too late";
}

}  // namespace
}  // namespace tabulo::internal::test
