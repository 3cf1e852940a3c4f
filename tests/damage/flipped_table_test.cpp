// Every single bit of a small table turned over: what is read afterwards is an error or what was written. Bytes that
// nothing can be compared with are counted apart: a changed one there may give a wrong answer, and still must not cost
// more than that.
#include <gtest/gtest.h>

#include <random>

#include "tests/damage/table_damage.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MESSAGES = 11;  // two closed blocks of four and three messages of the open one

// One bit of how many an ordinary run looks at; all of them in a longer one.
struct Share {
    unsigned oneOf = 1;
    unsigned oneOfUnderSanitizer = 1;
};

class FlippedTable : public ::testing::Test {
  protected:
    // Turns over the bits of all regions with a word in their names, or a random share of them.
    void flipAll(const std::string& part, Share share, TableEnd end = TableEnd::closed) {
        TableDamage table(MESSAGES, end);
        const unsigned oneOf = testEffort() > 1 ? 1 : (underSanitizer() ? share.oneOfUnderSanitizer : share.oneOf);
        std::mt19937 random(oneOf > 1 ? testSeed() : 0);
        for (const TableRegion& region : table.regions()) {
            if (region.name.find(part) == std::string::npos) {
                continue;
            }
            for (std::size_t bit = 8 * region.start; bit < 8 * region.end && !tooManyFailures(); ++bit) {
                if (oneOf == 1 || random() % oneOf == 0) {
                    flip(&table, region, bit);
                }
            }
        }
        EXPECT_GT(flips, 0) << "no region is called " << part;
        reportFigure("flips", "single bits of a message table", flips);
        reportFigure("flips", "single bits of a message table in bytes that no check covers", uncovered);
        reportFigure("flips", "single bits of a message table answered wrongly in such bytes", wrongUncovered);
        reportFigure("flips", "single bits of a message table answered wrongly elsewhere", wrongElsewhere);
        EXPECT_EQ(wrongElsewhere, 0);
    }

  private:
    void flip(TableDamage* table, const TableRegion& region, std::size_t bit) {
        Damage damage{table->image(), bit / 8, bit / 8 + 1,
                      "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8)};
        damage.file[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        const DamageReport report = table->lookAt(damage);
        expectAcceptable(report, damage, region.name);
        flips += 1;
        (region.checked ? wrongElsewhere : wrongUncovered) += report.wrongAnswers == 0 ? 0 : 1;
        uncovered += region.checked ? 0 : 1;
    }

    int flips = 0;
    int uncovered = 0;
    int wrongUncovered = 0;
    int wrongElsewhere = 0;
};

TEST_F(FlippedTable, InTheHeader) {
    flipAll("header", {1, 4});
}

TEST_F(FlippedTable, InALength) {
    flipAll("length of", {1, 2});
}

TEST_F(FlippedTable, InTheContentsOfAMessage) {
    flipAll("contents of", {1, 16});
}

TEST_F(FlippedTable, InTheRangesOfAFooter) {
    flipAll("ranges of", {1, 16});
}

TEST_F(FlippedTable, InTheBitCountOfAFilter) {
    flipAll("bit count of a filter", {1, 1});
}

TEST_F(FlippedTable, InTheBitsOfTheFirstFilter) {
    flipAll("bits of a filter of block 1", {1, 64});
}

TEST_F(FlippedTable, InTheBitsOfTheSecondFilter) {
    flipAll("bits of a filter of block 2", {1, 64});
}

TEST_F(FlippedTable, InTheStaticIndexesOfAFooter) {
    flipAll("static indexes of", {1, 16});
}

// The header's records are those of the last closed block.
TEST_F(FlippedTable, ThatWasNotClosedInTheHeader) {
    flipAll("header", {2, 32}, TableEnd::unclosed);
}

TEST_F(FlippedTable, ThatWasNotClosedInALength) {
    flipAll("length of", {2, 32}, TableEnd::unclosed);
}

TEST_F(FlippedTable, ThatWasNotClosedInTheContentsOfAMessage) {
    flipAll("contents of", {8, 128}, TableEnd::unclosed);
}

}  // namespace
}  // namespace tabulo::internal::test
