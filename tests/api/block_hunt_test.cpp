// Where salvaging takes blocks to begin and to end when their lengths and footers do not tell.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "tests/api/damaged_table.h"

namespace tabulo::test {
namespace {

using internal::test::patchFile;
using internal::test::pattern;
using internal::test::writeFile;

class ApiBlockHunt : public TableTest {
  protected:
    void make(std::vector<std::vector<std::byte>> messages) {
        frames = std::move(messages);
        std::filesystem::remove(path());
        writeTable(path(), layout, frames);
    }
    TablePlan plan() const { return TablePlan(layout, frames); }
    void zero(std::size_t begin, std::size_t end) { patchFile(path().string(), begin, Bytes(end - begin, 0)); }
    // Message 1 and the length of its block are damaged: the block's end is found, and no end before it.
    void expectAllOfSevenButTheFirst() {
        patchFile(path().string(), plan().blocks[0], pattern(8, 77));
        zero(plan().frames[0].begin, plan().frames[0].begin + 4);
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{2, 3, 4, 5, 6, 7})) << salvaged.text();
        for (const Salvaged::Item& item : salvaged.messages) {
            EXPECT_EQ(item.ordinal, item.uniformId - 1) << salvaged.text();
        }
    }

    std::vector<std::vector<std::byte>> frames;
};

TEST_F(ApiBlockHunt, AFullBlockAtTheEndOfTheFileEndsBehindItsFooterAlsoWhenNoneOfItsLengthsTells) {
    make(eachFrame(layout, 9));
    patchFile(path().string(), plan().blocks[2], pattern(8, 77));
    zero(plan().footers[2].end - 8, plan().footers[2].end);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.result.messages, 9) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
}

TEST_F(ApiBlockHunt, AFooterThatAMessageQuotesEndsNoBlock) {
    layout = ordersLayout(5);
    make(eachFrame(layout, 5));
    const Bytes other = fileBytes();
    const std::string footer(other.begin() + static_cast<std::ptrdiff_t>(plan().footers[0].begin), other.end());
    const std::string filling(other.size(), 'x');  // the quoted length leads back into it
    std::vector<std::vector<std::byte>> messages = eachFrame(layout, 7);
    for (const auto& [n, text] : {std::pair(2, filling), std::pair(3, footer)}) {
        SimpleMessage simple(n);
        simple.message.wire = text;
        messages[static_cast<std::size_t>(n) - 1].clear();
        encode(simple.message, layout, messages[static_cast<std::size_t>(n) - 1]);
    }
    make(messages);
    expectAllOfSevenButTheFirst();
}

TEST_F(ApiBlockHunt, AFooterThatAMessageQuotesBehindTooFewMessagesEndsNoBlock) {
    layout = ordersLayout(5);
    make(eachFrame(layout, 5));
    const Bytes other = fileBytes();
    const std::string footer(other.begin() + static_cast<std::ptrdiff_t>(plan().footers[0].begin), other.end() - 8);
    const Message bare{.uniformId = 77};
    std::vector<std::byte> frame;
    encode(bare, layout, frame);
    std::string quoted(8 + frame.size(), 'x');
    std::memcpy(quoted.data() + 8, frame.data(), frame.size());
    quoted += footer;
    const std::uint64_t length = quoted.size() + 8;
    quoted.append(8, '\0');
    std::memcpy(quoted.data() + quoted.size() - 8, &length, sizeof(length));
    std::vector<std::vector<std::byte>> messages = eachFrame(layout, 7);
    SimpleMessage simple(2);
    simple.message.wire = quoted;
    messages[1].clear();
    encode(simple.message, layout, messages[1]);
    make(messages);
    expectAllOfSevenButTheFirst();
}

// Letters alone are no footer: where the types of numbers would stand there are none.
TEST_F(ApiBlockHunt, ANumberThatLeadsToTheBlocksBeginningEndsNoBlockWithoutAFooterInFrontOfIt) {
    layout.summarisedTexts = 0;
    std::vector<std::vector<std::byte>> messages = eachFrame(layout, 7);
    const std::string number = "[number]";
    const std::string wire = std::string(2000, 'x') + number;
    SimpleMessage simple(2);
    simple.message.wire = wire;
    messages[1].clear();
    encode(simple.message, layout, messages[1]);
    make(messages);
    const Bytes bytes = fileBytes();
    const auto found = std::search(bytes.begin(), bytes.end(), number.begin(), number.end());
    ASSERT_NE(found, bytes.end()) << "the test itself";
    const auto place = static_cast<std::size_t>(found - bytes.begin());
    const std::uint64_t distance = place + number.size() - plan().blocks[0];
    Bytes length(sizeof(distance));
    std::memcpy(length.data(), &distance, sizeof(distance));
    patchFile(path().string(), place, length);
    patchFile(path().string(), plan().blocks[0], pattern(8, 77));
    zero(plan().frames[0].begin, plan().frames[0].begin + 4);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), (std::vector<std::int32_t>{2, 3, 4, 5, 6, 7}))
        << "the block is taken to end in the midst of message 2: " << salvaged.text();
}

// A large file is looked through piece by piece. What looks like a length stands at every sixteenth byte of this one,
// so that it stands at each place of a piece once.
TEST_F(ApiBlockHunt, AFooterIsFoundBehindWhateverLooksLikeALengthAtTheEndOfAPiece) {
    constexpr std::size_t LARGE = 1'000'000;
    constexpr std::array<std::uint8_t, 8> LENGTH{0, 0x20};
    std::vector<std::vector<std::byte>> messages = eachFrame(layout, 7);
    const std::string wire(LARGE, 'x');
    SimpleMessage simple(2);
    simple.message.wire = wire;
    messages[1].clear();
    encode(simple.message, layout, messages[1]);
    make(messages);
    const Bytes sound = fileBytes();
    const auto text = static_cast<std::size_t>(std::search_n(sound.begin(), sound.end(), LARGE, 'x') - sound.begin());
    ASSERT_LT(text, sound.size()) << "the test itself";
    for (std::size_t phase = 0; phase < 2 * LENGTH.size(); ++phase) {
        SCOPED_TRACE("phase " + std::to_string(phase));
        Bytes damaged = sound;
        for (std::size_t i = phase; i + LENGTH.size() <= LARGE; i += 2 * LENGTH.size()) {
            std::copy(LENGTH.begin(), LENGTH.end(), damaged.begin() + static_cast<std::ptrdiff_t>(text + i));
        }
        writeFile(path().string(), damaged);
        patchFile(path().string(), plan().blocks[0], pattern(8, 77));
        zero(plan().frames[1].begin, plan().frames[1].begin + 4);
        zero(plan().frames[1].end - 4, plan().frames[1].end);
        const Salvaged salvaged = salvageAll(path());
        ASSERT_EQ(salvaged.ids(), (std::vector<std::int32_t>{1, 3, 4, 5, 6, 7})) << salvaged.text();
        EXPECT_EQ(salvaged.messages[2].position.block, static_cast<std::int64_t>(plan().blocks[1])) << salvaged.text();
    }
}

TEST_F(ApiBlockHunt, ABlockWhoseLengthIsDamagedIsFoundByItsFooterAndTheMessagesAtItsEnds) {
    for (const std::optional<std::int32_t> summarisedTexts : {std::optional<std::int32_t>(0), {}}) {
        SCOPED_TRACE(summarisedTexts.has_value() ? "without filters" : "with filters");
        layout.summarisedTexts = summarisedTexts;
        make(eachFrame(layout, 9));
        zero(plan().blocks[0], plan().footers[0].end);
        patchFile(path().string(), plan().blocks[1], pattern(8, 77));
        patchFile(path().string(), plan().blocks[2], pattern(8, 77));
        if (!summarisedTexts.has_value()) {  // filters tell enough
            zero(plan().frames[5].end - 4, plan().frames[5].end);
        }
        const Salvaged salvaged = salvageAll(path());
        ASSERT_GE(salvaged.messages.size(), 5U) << salvaged.text();
        EXPECT_EQ(salvaged.messages[0].uniformId, 4) << salvaged.text();
        EXPECT_EQ(salvaged.messages[0].position.block, static_cast<std::int64_t>(plan().blocks[1])) << salvaged.text();
    }
}

// What was cut out of a table from the beginning of its second block on: that block's length, and that of its first
// message, are damaged.
class ApiBlockHuntInACut : public ApiBlockHunt {
  protected:
    Salvaged salvageCut(std::optional<std::int32_t> summarisedTexts) {
        layout.summarisedTexts = summarisedTexts;
        make(eachFrame(layout, 9));
        begin = plan().blocks[1];
        Bytes cut = fileBytes();
        cut.erase(cut.begin(), cut.begin() + static_cast<std::ptrdiff_t>(begin));
        const std::string file = directory.file("orders.cut-" + std::to_string(begin));
        writeFile(file, cut);
        patchFile(file, 0, pattern(12, 77));
        std::filesystem::resize_file(path(), begin);
        return salvageAll(path());
    }

    std::size_t begin = 0;
    const std::vector<std::int32_t> whole = {1, 2, 3, 5, 6, 7, 8, 9};
};

TEST_F(ApiBlockHuntInACut, AFooterThatLeadsToItsFirstByteNeedsAMessageThereAsAnywhereElse) {
    const Salvaged salvaged = salvageCut(std::nullopt);
    EXPECT_EQ(salvaged.ids(), whole) << salvaged.text();
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(begin)) << "no block is known to begin there";
    EXPECT_EQ(salvaged.messages[3].position.block, 0) << salvaged.text();
    EXPECT_EQ(salvaged.messages[5].position.block, static_cast<std::int64_t>(plan().blocks[2])) << salvaged.text();
}

TEST_F(ApiBlockHuntInACut, AFooterWithoutFiltersNeedsOneToo) {
    const Salvaged salvaged = salvageCut(0);
    EXPECT_EQ(salvaged.ids(), whole) << salvaged.text();
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(begin)) << "no block is known to begin there";
    EXPECT_EQ(salvaged.messages[3].position.block, 0) << salvaged.text();
}

TEST_F(ApiBlockHuntInACut, ANumberThatLeadsToAMessageByChanceIsNoFootersLength) {
    // The smallest number of the third block, 700, leads to the length word's place in front of message 6, and what
    // stands in front of that number could be a footer without filters.
    const Salvaged salvaged = salvageCut(0);
    const std::size_t number = plan().footers[2].begin + 36 + 9 + 1;
    ASSERT_EQ(number + 8 - 700 + 8, plan().frames[5].begin) << "the test itself";
    EXPECT_EQ(salvaged.ids(), whole) << salvaged.text();
}

}  // namespace
}  // namespace tabulo::test
