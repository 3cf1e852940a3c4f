// Random bytes overwritten in small tables, a few at a time: what is read afterwards is an error or what was written,
// as long as one of the bytes can be compared with another; wherever they are, nothing crashes, hangs or is lost that
// was not hit.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <random>

#include "tests/damage/table_damage.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

// Of each table, in an ordinary run.
constexpr int OVERWRITES = 2000;
constexpr int OVERWRITES_UNDER_SANITIZER = 800;
constexpr std::size_t LONGEST = 64;

class Overwriter {
  public:
    Overwriter(const TableDamage& table, std::uint32_t seed)
        : image_(table.image()), numbers_(table.numbers()), random_(seed) {}

    // The next damage; it changes at least one byte.
    Damage next() {
        Damage damage{image_, 0, 0, ""};
        while (damage.file == image_) {
            if (below(2) == 0) {
                overwriteBytes(&damage.file);
            } else {
                overwriteNumber(&damage.file);
            }
        }
        const auto first = std::mismatch(image_.begin(), image_.end(), damage.file.begin()).first;
        const auto last = std::mismatch(image_.rbegin(), image_.rend(), damage.file.rbegin()).first;
        damage.start = static_cast<std::size_t>(first - image_.begin());
        damage.end = static_cast<std::size_t>(last.base() - image_.begin());
        count_ += 1;
        damage.name = "overwrite " + std::to_string(count_) + ", of bytes " + std::to_string(damage.start) + " to " +
                      std::to_string(damage.end - 1) + " by " +
                      toHex(std::span(damage.file).subspan(damage.start, damage.end - damage.start));
        return damage;
    }

  private:
    std::size_t below(std::size_t count) { return random_() % count; }

    // Random bytes, zeros, ones, or bytes from elsewhere in the file.
    void overwriteBytes(Bytes* file) {
        const std::size_t length = 1 + below(LONGEST);
        const std::size_t start = below(file->size() - length + 1);
        const std::size_t kind = below(4);
        const std::size_t source = below(file->size() - length + 1);
        for (std::size_t i = 0; i < length; ++i) {
            const std::array<std::uint8_t, 4> bytes{static_cast<std::uint8_t>(random_()), 0, 0xff, image_[source + i]};
            (*file)[start + i] = bytes[kind];
        }
    }

    // A length, a count or a place becomes a number with which arithmetic goes wrong.
    void overwriteNumber(Bytes* file) {
        const TableNumber number = numbers_[below(numbers_.size())];
        std::uint64_t present = 0;
        for (std::size_t i = number.width; i-- > 0;) {
            present = present << 8 | image_[number.offset + i];
        }
        const std::uint64_t size = image_.size();
        const std::array<std::uint64_t, 20> values{0,
                                                   1,
                                                   2,
                                                   present - 1,
                                                   present + 1,
                                                   2 * present,
                                                   0 - present,
                                                   size,
                                                   size - 1,
                                                   size + 1,
                                                   size - number.offset,
                                                   0x7f,
                                                   0x80,
                                                   0x7fff,
                                                   std::numeric_limits<std::int32_t>::max(),
                                                   std::uint64_t{1} << 31,
                                                   std::numeric_limits<std::uint32_t>::max(),
                                                   std::numeric_limits<std::int64_t>::max(),
                                                   std::uint64_t{1} << 63,
                                                   std::numeric_limits<std::uint64_t>::max()};
        const std::uint64_t value = values[below(values.size())];
        for (std::size_t i = 0; i < number.width; ++i) {
            (*file)[number.offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
        }
    }

    const Bytes image_;
    const std::vector<TableNumber> numbers_;
    std::mt19937 random_;
    int count_ = 0;
};

void overwriteAll(std::int32_t messages, TableEnd end) {
    TableDamage table(messages, end);
    Overwriter overwriter(table, testSeed());
    const int count = (underSanitizer() ? OVERWRITES_UNDER_SANITIZER : OVERWRITES) * testEffort();
    int done = 0;
    int uncovered = 0;
    int wrongUncovered = 0;
    int wrongElsewhere = 0;
    for (; done < count && !tooManyFailures(); ++done) {
        const Damage damage = overwriter.next();
        const DamageReport report = table.lookAt(damage);
        const DamageReport readerReport = table.lookAtUnderReader(damage);
        const bool isChecked = table.isChecked(damage);
        expectAcceptable(report, damage, table.placeOf(damage));
        expectAcceptable(readerReport, damage, table.placeOf(damage));
        uncovered += isChecked ? 0 : 1;
        (isChecked ? wrongElsewhere : wrongUncovered) += report.wrongAnswers + readerReport.wrongAnswers == 0 ? 0 : 1;
    }
    reportFigure("flips", "random overwrites of a message table", done);
    reportFigure("flips", "random overwrites of a message table that reach bytes that no check covers", uncovered);
    reportFigure("flips", "random overwrites of a message table answered wrongly in such bytes", wrongUncovered);
    reportFigure("flips", "random overwrites of a message table answered wrongly elsewhere", wrongElsewhere);
    EXPECT_EQ(wrongElsewhere, 0);
}

TEST(OverwrittenTable, ThatWasClosed) {
    overwriteAll(11, TableEnd::closed);
}

TEST(OverwrittenTable, ThatWasNotClosed) {
    overwriteAll(11, TableEnd::unclosed);
}

TEST(OverwrittenTable, WhoseLastBlockIsFull) {
    overwriteAll(8, TableEnd::unclosed);
}

}  // namespace
}  // namespace tabulo::internal::test
