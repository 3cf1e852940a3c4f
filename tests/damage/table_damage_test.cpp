// What the tests of damage go by: right answers for whole tables, and the map of a table's bytes.
#include "tests/damage/table_damage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <vector>

namespace tabulo::internal::test {
namespace {

void expectRight(std::int32_t messages, TableEnd end) {
    SCOPED_TRACE(std::to_string(messages) + " messages");
    TableDamage table(messages, end);
    const Damage none{table.image(), 0, 0, "no damage"};
    const DamageReport report = table.lookAt(none);
    EXPECT_EQ(report.faults, std::vector<std::string>{});
    EXPECT_EQ(report.wrong, std::vector<std::string>{});
    EXPECT_EQ(report.errors, 0);
    EXPECT_GT(report.answers, 60);
}

TEST(TableDamageTest, AWholeTableGivesRightAnswersOnly) {
    for (const std::int32_t messages : {0, 1, 4, 8, 11}) {
        expectRight(messages, TableEnd::closed);
        expectRight(messages, TableEnd::unclosed);
    }
}

TEST(TableDamageTest, TheRegionsCoverTheFileWithoutGapsAndNameWhatIsThere) {
    const TableDamage table(11, TableEnd::closed);
    std::size_t position = 0;
    for (const TableRegion& region : table.regions()) {
        EXPECT_EQ(region.start, position) << region.name;
        EXPECT_GT(region.end, region.start) << region.name;
        position = region.end;
    }
    EXPECT_EQ(position, table.image().size());
    const auto at = [&](const std::string& name) {
        const auto found = std::find_if(table.regions().begin(), table.regions().end(),
                                        [&](const TableRegion& region) { return region.name == name; });
        return found == table.regions().end() ? TableRegion{} : *found;
    };
    EXPECT_EQ(u64At(table.image(), at("the leading length of block 2").start),
              u64At(table.image(), at("the trailing length of block 2").start));
    EXPECT_EQ(u64At(table.image(), at("the leading length of block 3").start), 0U);
    EXPECT_EQ(u32At(table.image(), at("the bit count of a filter of block 1").start), 10000U);
    EXPECT_EQ(u32At(table.image(), at("the leading length of message 11").start),
              u32At(table.image(), at("the trailing length of message 11").start));
    EXPECT_FALSE(at("the contents of message 11").checked);
}

TEST(TableDamageTest, TheNumbersOfTheFileAreWhereTheMapSays) {
    const TableDamage table(11, TableEnd::closed);
    const std::vector<TableNumber> numbers = table.numbers();
    EXPECT_EQ(u32At(table.image(), 36), 4U) << "messagesPerBlock";
    std::size_t found = 0;
    for (const TableNumber& number : numbers) {
        ASSERT_LE(number.offset + number.width, table.image().size());
        found += number.width == 8 && u64At(table.image(), number.offset) == table.image().size() ? 1U : 0U;
        found += number.width == 4 && u32At(table.image(), number.offset) == 10000 ? 1U : 0U;
    }
    EXPECT_EQ(found, 3U) << "dataEnd and the bit counts of two filters";
}

// The expectations themselves can fail.
TEST(TableDamageTest, ATableThatLostAMessageIsFaultedForIt) {
    const Bytes shorter = TableDamage(10, TableEnd::closed).image();
    const DamageReport report = TableDamage(11, TableEnd::closed).lookAt({shorter, 0, 0, "a lost message"});
    EXPECT_EQ(report.faults, std::vector<std::string>{"message 11, which was not damaged, is neither kept nor saved"});
    EXPECT_FALSE(report.wrong.empty());
}

TEST(DamageGuardTest, MemoryWithoutMeasureIsRefusedOrTold) {
    constexpr std::size_t SIZE = 256 * 1024 * 1024;
    const DamageGuard guard;
    EXPECT_EQ(guard.memory(), "");
    if (underSanitizer()) {
        const std::vector<char> memory(SIZE);
        EXPECT_EQ(guard.memory(), "the library asked for " + std::to_string(memory.size()) + " bytes at once");
    } else {
        EXPECT_THROW(std::vector<char>{}.resize(SIZE), std::bad_alloc);
    }
}

}  // namespace
}  // namespace tabulo::internal::test
