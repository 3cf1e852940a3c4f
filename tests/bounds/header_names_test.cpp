// The header of a table has room for 8096 bytes. The names of its fields are what it is filled with.
#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>

#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::size_t LARGEST_HEADER = 8096;
constexpr std::size_t HEADER_WITHOUT_NAMES = 140;
// A length word before each name and the NUL behind it.
constexpr std::size_t BYTES_BESIDE_A_NAME = 5;

// As many string and numeric fields, whose names take this many characters together, as equal as can be.
TableShape shapeWithNames(std::size_t strings, std::size_t numbers, std::size_t characters) {
    TableShape shape;
    shape.messagesPerBlock = 4;
    const std::size_t count = strings + numbers;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t length = characters / count + (i < characters % count ? 1 : 0);
        std::string name(length, static_cast<char>('a' + i % 26));
        (i < strings ? shape.stringNames : shape.numericNames).push_back(name);
    }
    return shape;
}

std::size_t charactersThatFit(std::size_t names) {
    return LARGEST_HEADER - HEADER_WITHOUT_NAMES - names * BYTES_BESIDE_A_NAME;
}

struct Names {
    std::size_t strings;
    std::size_t numbers;
};

class LongestNames : public ::testing::TestWithParam<Names> {
  protected:
    std::size_t fileSize(const TableShape& shape) const {
        return std::filesystem::file_size(directory.file(shape.name));
    }

    const std::size_t strings = GetParam().strings;
    const std::size_t numbers = GetParam().numbers;
    const std::size_t characters = charactersThatFit(strings + numbers);
    TemporaryDirectory directory;
    LogCapture log;
};

TEST_P(LongestNames, ThatFillTheHeaderMakeATableLikeAnyOther) {
    const TableShape shape = shapeWithNames(strings, numbers, characters);
    MessageTablePtr table = openTable(directory.root(), OpenMode::write, shape);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(fileSize(shape), LARGEST_HEADER);
    EXPECT_EQ(u32At(readFile(directory.file(shape.name)), 15), LARGEST_HEADER);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, 6, shape), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 6, shape));
    log.clear();
    table = openTable(directory.root(), OpenMode::write, shape);
    ASSERT_NE(table, nullptr);
    EXPECT_TRUE(log.warnings().empty()) << "it was closed";
    ASSERT_EQ(writeSimpleMessages(table.get(), 7, 9, shape), NO_ERROR);
    table.reset();
    table = openTable(directory.root(), OpenMode::write, shape);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(log.warnings().size(), 1U) << "it was not closed, and is recovered";
    EXPECT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, 9, shape));
    ASSERT_EQ(mt_drop(table.get()), NO_ERROR);
    EXPECT_EQ(fileSize(shape), LARGEST_HEADER);
    reportFigure("bounds", "layouts with the longest names", 1);
}

TEST_P(LongestNames, AreComparedToTheLastByte) {
    TableShape shape = shapeWithNames(strings, numbers, characters);
    ASSERT_NE(openTable(directory.root(), OpenMode::write, shape), nullptr);
    std::string& last = strings > 0 ? shape.stringNames.back() : shape.numericNames.back();
    last.back() = '?';
    const MessageTablePtr table = createTable(directory.root(), shape);
    EXPECT_EQ(mt_open(table.get(), OpenMode::write),
              strings > 0 ? STRING_FIELDS_NAMES_MISMATCH_ERROR : NUMERIC_FIELDS_NAMES_MISMATCH_ERROR);
}

TEST_P(LongestNames, WithOneByteMoreAreRefusedAndNothingIsWritten) {
    const TableShape shape = shapeWithNames(strings, numbers, characters + 1);
    const MessageTablePtr table = createTable(directory.root(), shape);
    for (const OpenMode mode : {OpenMode::write, OpenMode::create}) {
        EXPECT_EQ(mt_open(table.get(), mode), WRONG_PARAMETER_ERROR) << "mode " << openMode_number(mode);
        EXPECT_TRUE(!std::filesystem::exists(directory.file(shape.name)) || fileSize(shape) == 0);
    }
    EXPECT_EQ(writeMessage(table.get(), bareMessage(1, shape)), FILE_WRITE_ERROR) << "nothing is open";
    // The place is free for a table that fits.
    const TableShape smaller = shapeWithNames(strings, numbers, characters);
    EXPECT_NE(openTable(directory.root(), OpenMode::write, smaller), nullptr);
}

TEST_P(LongestNames, WithOneByteMoreLeaveATableThatIsThereAsItIs) {
    const TableShape shape = shapeWithNames(strings, numbers, characters);
    MessageTablePtr table = openTable(directory.root(), OpenMode::write, shape);
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(writeSimpleMessages(table.get(), 1, 5, shape), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    const Bytes before = readFile(directory.file(shape.name));
    table = createTable(directory.root(), shapeWithNames(strings, numbers, characters + 1));
    EXPECT_NE(mt_open(table.get(), OpenMode::write), NO_ERROR);
    EXPECT_EQ(readFile(directory.file(shape.name)), before);
}

INSTANTIATE_TEST_SUITE_P(Fields, LongestNames,
                         ::testing::Values(Names{12, 16}, Names{12, 0}, Names{0, 16}, Names{1, 0}, Names{0, 1}),
                         [](const auto& names) {
                             return std::to_string(names.param.strings) + "And" + std::to_string(names.param.numbers);
                         });

}  // namespace
}  // namespace tabulo::internal::test
