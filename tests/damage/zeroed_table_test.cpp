// Pages, lengths, frames and footers of tables of several blocks, zeroed and overwritten at random: whatever ends with
// success has left out no message that stands whole in a closed block, and nothing crashes, hangs or is lost that was
// not hit.
#include <gtest/gtest.h>

#include "tests/damage/zeroed_table.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

// Of each table, in an ordinary run: 20,000 in the tests below together, and one in eight under a sanitizer.
constexpr int IMAGES = 2500;
constexpr int IMAGES_UNDER_SANITIZER = 300;
constexpr std::int32_t WRITTEN_ON = 5;  // messages written behind the damage: they close a block

// Messages of up to so many bytes, so that several pages lie in a block of four; small ones stand between them.
std::vector<Message> largeMessages(std::int32_t count, std::size_t largest) {
    std::vector<Message> messages = damageMessages(count);
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const std::size_t length = i % 3 == 1 ? 0 : largest * (i % 5 + 1) / 5;
        messages[i].strings[3] = withNul("35=D|58=" + std::string(length, static_cast<char>('a' + i % 26)));
        messages[i].strings[4] = i % 4 == 2 ? std::optional(withNul(std::string(largest / 4, 'z'))) : std::nullopt;
    }
    return messages;
}

void lookAtImages(const std::vector<Message>& known, TableEnd end) {
    ZeroedTable table(known, static_cast<std::int32_t>(known.size()) - WRITTEN_ON, end);
    const std::uint32_t seed = testSeed();
    BlockDamage damage(table.image(), table.map(), table.regions(), seed);
    const int count = (underSanitizer() ? IMAGES_UNDER_SANITIZER : IMAGES) * testEffort();
    int done = 0;
    int wrong = 0;
    std::int64_t successes = 0;
    std::int64_t errors = 0;
    for (; done < count && wrong < 20; ++done) {
        const HitTable image = damage.next();
        const Look look{done % 4 == 3, done % 3 == 2};
        const std::vector<std::string> faults = table.lookAt(image, look);
        wrong += faults.empty() ? 0 : 1;
        successes += table.successes();
        errors += table.errors();
        for (std::size_t i = 0; i < faults.size() && i < 3; ++i) {
            ADD_FAILURE() << image.name << (look.underReader ? " under a reader," : "")
                          << (look.writtenBeforeStart ? " before the machine was started," : "") << " seed " << seed
                          << ": " << faults[i];
        }
    }
    EXPECT_GT(successes, 0);
    EXPECT_GT(errors, 0);
    reportFigure("flips", "damaged tables of several blocks", done);
    reportFigure("flips", "answers of damaged tables of several blocks", successes);
    reportFigure("flips", "errors told by damaged tables of several blocks", errors);
    reportFigure("flips", "damaged tables of several blocks that left out in silence what stands whole", wrong);
}

TEST(ZeroedTable, OfSmallMessagesThatWasClosed) {
    lookAtImages(damageMessages(14 + WRITTEN_ON), TableEnd::closed);
}

TEST(ZeroedTable, OfSmallMessagesThatWasNotClosed) {
    lookAtImages(damageMessages(15 + WRITTEN_ON), TableEnd::unclosed);
}

TEST(ZeroedTable, OfSmallMessagesWhoseLastBlockIsFull) {
    lookAtImages(damageMessages(12 + WRITTEN_ON), TableEnd::unclosed);
}

TEST(ZeroedTable, OfManyBlocks) {
    lookAtImages(damageMessages(25 + WRITTEN_ON), TableEnd::closed);
}

TEST(ZeroedTable, WithSeveralPagesInABlockThatWasClosed) {
    lookAtImages(largeMessages(13 + WRITTEN_ON, 4500), TableEnd::closed);
}

TEST(ZeroedTable, WithSeveralPagesInABlockThatWasNotClosed) {
    lookAtImages(largeMessages(15 + WRITTEN_ON, 3000), TableEnd::unclosed);
}

TEST(ZeroedTable, WithSeveralPagesInABlockWhoseLastBlockIsFull) {
    lookAtImages(largeMessages(12 + WRITTEN_ON, 4500), TableEnd::closed);
}

TEST(ZeroedTable, WithSeveralPagesInAMessage) {
    lookAtImages(largeMessages(13 + WRITTEN_ON, 14000), TableEnd::unclosed);
}

}  // namespace
}  // namespace tabulo::internal::test
