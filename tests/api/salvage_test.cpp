#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::appendFile;
using internal::test::patchFile;
using internal::test::pattern;
using internal::test::writeFile;

class ApiSalvage : public TableTest {
  protected:
    void make(std::int32_t messages) { make(eachFrame(layout, messages)); }
    void make(std::vector<std::vector<std::byte>> messages) {
        frames = std::move(messages);
        writeTable(path(), layout, frames);
        sound = fileBytes();
    }
    TablePlan plan() const { return TablePlan(layout, frames); }
    void zero(std::size_t begin, std::size_t end) { patchFile(path().string(), begin, Bytes(end - begin, 0)); }
    // 1, 2, ... last, without some.
    static std::vector<std::int32_t> upTo(std::int32_t last, const std::vector<std::int32_t>& without = {}) {
        std::vector<std::int32_t> ids;
        for (std::int32_t n = 1; n <= last; ++n) {
            if (std::find(without.begin(), without.end(), n) == without.end()) {
                ids.push_back(n);
            }
        }
        return ids;
    }

    std::vector<std::vector<std::byte>> frames;
    Bytes sound;
};

TEST_F(ApiSalvage, FindsMessagesWithoutAnyFieldBehindDamage) {
    std::vector<std::vector<std::byte>> smallest(2);
    encode({.uniformId = 1, .seqNum = 1}, layout, smallest[0]);
    encode({.uniformId = 2, .seqNum = 2}, layout, smallest[1]);
    make(smallest);
    zero(plan().frames[0].begin, plan().frames[0].begin + 4);
    EXPECT_EQ(salvageAll(path()).ids(), (std::vector<std::int32_t>{2}));
}

TEST_F(ApiSalvage, TellsWhatIsLeftOfAFooterThatEndsWithTheFileAsAGap) {
    make(6);
    const TablePlan all = plan();
    const std::size_t footer = all.footers[1].begin;
    for (const std::size_t left : {std::size_t{8}, std::size_t{100}, all.footerSize - 1}) {
        SCOPED_TRACE(std::to_string(left) + " bytes are left");
        writeFile(path().string(), sound);
        patchFile(path().string(), all.blocks[1], Bytes{1});  // its length is not known either
        std::filesystem::resize_file(path(), footer + left);
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), upTo(6));
        ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
        EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(footer));
        EXPECT_EQ(salvaged.gaps[0].length, static_cast<std::int64_t>(left));
    }
}

TEST_F(ApiSalvage, GivesEveryMessageOfASoundTableWithItsPlaceAndNumber) {
    for (std::int32_t count = 0; count <= 8; ++count) {
        std::filesystem::remove(path());
        make(count);
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), upTo(count));
        EXPECT_EQ(salvaged.result.messages, count);
        EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
        EXPECT_TRUE(salvaged.result.complete);
        for (std::size_t i = 0; i < salvaged.messages.size(); ++i) {
            const Salvaged::Item& item = salvaged.messages[i];
            EXPECT_EQ(item.ordinal, static_cast<std::int64_t>(i));
            EXPECT_EQ(item.position.offset, static_cast<std::int64_t>(plan().frames[i].begin));
            EXPECT_EQ(item.position.block, static_cast<std::int64_t>(plan().blocks[i / 3]));
            EXPECT_EQ(item.file, path());
            EXPECT_TRUE(std::equal(item.frame.begin(), item.frame.end(),
                                   sound.begin() + static_cast<std::ptrdiff_t>(plan().frames[i].begin)));
        }
    }
    EXPECT_EQ(difference(fileBytes(), sound), "");
}

TEST_F(ApiSalvage, GivesWhatStandsAroundADamagedMessageAndItsPlace) {
    layout = ordersLayout(5);
    make(13);
    for (std::size_t n = 1; n <= 13; ++n) {
        for (const bool atEnd : {false, true}) {
            patchFile(path().string(), 0, sound);
            const Stretch frame = plan().frames[n - 1];
            patchFile(path().string(), atEnd ? frame.end - 4 : frame.begin, pattern(4, 9));
            const Salvaged salvaged = salvageAll(path());
            const auto id = static_cast<std::int32_t>(n);
            EXPECT_EQ(salvaged.ids(), upTo(13, {id})) << salvaged.text();
            ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
            const Gap& gap = salvaged.gaps[0];
            EXPECT_EQ(gap.offset, static_cast<std::int64_t>(frame.begin));
            EXPECT_EQ(gap.length, static_cast<std::int64_t>(frame.end - frame.begin));
            EXPECT_EQ(gap.uniformIdBefore, n == 1 ? std::nullopt : std::optional(id - 1));
            EXPECT_EQ(gap.uniformIdBehind, n == 13 ? std::nullopt : std::optional(id + 1));
            EXPECT_EQ(gap.file, path());
            EXPECT_EQ(salvaged.result.gapBytes, gap.length);
            for (const Salvaged::Item& item : salvaged.messages) {
                EXPECT_EQ(item.ordinal, item.uniformId - 1) << salvaged.text();
            }
        }
    }
}

TEST_F(ApiSalvage, SaysMinusOneForTheNumberOfAMessageBehindAnUnknownNumberOfLostOnes) {
    layout = ordersLayout(8);
    make(7);
    zero(plan().frames[1].begin, plan().frames[3].end);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(7, {2, 3, 4})) << salvaged.text();
    ASSERT_EQ(salvaged.messages.size(), 4U);
    EXPECT_EQ(salvaged.messages[0].ordinal, 0);
    EXPECT_EQ(salvaged.messages[1].ordinal, -1);
    EXPECT_EQ(salvaged.messages[1].position.block, 0);
}

TEST_F(ApiSalvage, GoesOnBehindDamagedLengthsOfBlocksWithoutCallingThemGaps) {
    make(11);
    for (const std::size_t block : plan().blocks) {
        patchFile(path().string(), block, pattern(8, 77));
    }
    Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(11)) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
    for (const Stretch& footer : plan().footers) {
        zero(footer.end - 8, footer.end);
    }
    salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(11)) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
}

TEST_F(ApiSalvage, FindsTheNextBlockByItsFooterWhenLengthAndMessagesAreGone) {
    make(11);
    // Block 2: the length and its first message; block 3: the length.
    zero(plan().blocks[1], plan().frames[3].end);
    zero(plan().blocks[2], plan().blocks[2] + 8);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(11, {4})) << salvaged.text();
    ASSERT_EQ(salvaged.gaps.size(), 1U) << salvaged.text();
    EXPECT_EQ(salvaged.gaps[0].offset, static_cast<std::int64_t>(plan().frames[3].begin));
    EXPECT_EQ(salvaged.gaps[0].length, static_cast<std::int64_t>(frames[3].size()));
}

TEST_F(ApiSalvage, GivesWhatStandsBehindAZeroedPageThatCoversBlocks) {
    layout = ordersLayout(4);
    make(30);
    // From inside message 6 over the footer of block 2 and the beginning of block 3.
    zero(plan().frames[5].begin + 10, plan().frames[8].begin + 20);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(30, {6, 7, 8, 9})) << salvaged.text();
    std::int64_t bytes = 0;
    for (const Gap& gap : salvaged.gaps) {
        EXPECT_GE(gap.offset, static_cast<std::int64_t>(plan().frames[5].begin));
        EXPECT_LE(gap.offset + gap.length, static_cast<std::int64_t>(plan().frames[8].end));
        bytes += gap.length;
    }
    EXPECT_EQ(bytes, salvaged.result.gapBytes);
}

class ApiSalvageQuotes : public ApiSalvage {
  protected:
    // Message 2 of each table quotes whole messages, with other text between and around them.
    void makeQuoting(const std::string& between) {
        std::string quoted = between;
        for (std::int32_t n = 101; n <= 103; ++n) {
            const std::vector<std::byte> frame = simpleFrames(layout, n, n);
            quoted.append(reinterpret_cast<const char*>(frame.data()), frame.size()).append(between);
        }
        std::vector<std::vector<std::byte>> messages = eachFrame(layout, 7);
        Message quoting{.uniformId = 2, .id = 2, .type = "D"};
        quoting.wire = quoted;
        quoting.nonMetadata = "behind";
        messages[1].clear();
        encode(quoting, layout, messages[1]);
        make(std::move(messages));
    }
};

TEST_F(ApiSalvageQuotes, AreNotTakenForMessagesWhateverOfTheQuotingOneIsDamaged) {
    for (const std::string& between : {std::string(), std::string("; ")}) {
        std::filesystem::remove(path());
        makeQuoting(between);
        EXPECT_EQ(salvageAll(path()).ids(), upTo(7));
        const Stretch frame = plan().frames[1];
        // Each length alone; the first bytes with the field before them; the last bytes; numbers; the quoted text's
        // length.
        const std::vector<Stretch> damages = {{frame.begin, frame.begin + 4},      {frame.end - 4, frame.end},
                                              {frame.begin, frame.begin + 40},     {frame.end - 12, frame.end},
                                              {frame.begin, frame.begin + 200},    {frame.begin + 35, frame.begin + 36},
                                              {frame.begin + 53, frame.begin + 57}};
        for (const Stretch& damage : damages) {
            for (const bool zeros : {true, false}) {
                patchFile(path().string(), 0, sound);
                const std::size_t length = damage.end - damage.begin;
                patchFile(path().string(), damage.begin, zeros ? Bytes(length, 0) : pattern(length, 200));
                const Salvaged salvaged = salvageAll(path());
                EXPECT_TRUE(salvaged.ids() == upTo(7, {2}) || salvaged.ids() == upTo(7))
                    << "bytes " << damage.begin - frame.begin << " to " << damage.end - frame.begin << " of "
                    << frame.end - frame.begin << ": " << salvaged.text();
            }
        }
    }
}

TEST_F(ApiSalvageQuotes, AreToldByTheTextTheyStandInWhenOnlyTheBeginningOfTheQuotingOneIsLeft) {
    makeQuoting("; ");
    // The length of the last text and all that follows, up to inside message 3.
    zero(plan().frames[1].end - 15, plan().frames[2].begin + 30);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(7, {2, 3})) << salvaged.text();
}

TEST_F(ApiSalvageQuotes, AreNotTakenForMessagesInTheOpenBlockEither) {
    layout = ordersLayout(100);
    makeQuoting("x");
    const Stretch frame = plan().frames[1];
    for (const std::size_t place : {frame.begin, frame.end - 4}) {
        patchFile(path().string(), 0, sound);
        zero(place, place + 4);
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), upTo(7, {2})) << salvaged.text();
    }
}

TEST_F(ApiSalvage, FindsABlockByItsTwoLengthsWhenItsFooterIsLost) {
    layout = ordersLayout(6);
    make(26);
    const TablePlan places = plan();
    zero(places.blocks[1], places.footers[1].end - 8);
    zero(places.frames[13].begin, places.frames[17].end - 4);
    zero(places.footers[2].begin, places.footers[2].end - 8);
    // As if another message quoted the 13th, which stands where the block begins.
    const auto reaching = static_cast<std::uint32_t>(places.frames[17].end - places.blocks[2] + 20);
    Bytes length(sizeof(reaching));
    std::memcpy(length.data(), &reaching, sizeof(reaching));
    patchFile(path().string(), places.frames[17].end - length.size(), length);
    const Salvaged salvaged = salvageAll(path());
    EXPECT_EQ(salvaged.ids(), upTo(26, {7, 8, 9, 10, 11, 12, 14, 15, 16, 17, 18})) << salvaged.text();
}

TEST_F(ApiSalvage, TakesTheGivenLayoutWhenTheHeaderIsLost) {
    make(10);
    for (const std::size_t lost : {std::size_t{19}, plan().headerEnd, plan().frames[0].begin + 5}) {
        patchFile(path().string(), 0, sound);
        zero(0, lost);
        const Salvaged salvaged = salvageAll(path(), {.layout = layout});
        EXPECT_EQ(salvaged.ids(), lost > plan().headerEnd ? upTo(10, {1}) : upTo(10)) << salvaged.text();
        EXPECT_EQ(salvaged.result.gaps, lost > plan().headerEnd ? 1 : 0) << salvaged.text();
        for (const Salvaged::Item& item : salvaged.messages) {
            EXPECT_EQ(item.ordinal, item.uniformId - 1) << "blocks begin behind the header: " << salvaged.text();
        }
    }
    EXPECT_TABULO_ERROR(signature, static_cast<void>(salvageAll(path())));
}

TEST_F(ApiSalvage, TakesAGivenLayoutWithFieldsThatHaveNoName) {
    layout.texts[0].clear();
    layout.numbers[1].clear();
    make(7);
    zero(0, plan().headerEnd);
    const Salvaged salvaged = salvageAll(path(), {.layout = layout});
    EXPECT_EQ(salvaged.ids(), upTo(7)) << salvaged.text();
    ASSERT_FALSE(salvaged.messages.empty());
    EXPECT_EQ(salvaged.messages[0].position.block, static_cast<std::int64_t>(plan().headerEnd)) << salvaged.text();
    EXPECT_EQ(salvaged.result.gaps, 0) << salvaged.text();
}

TEST_F(ApiSalvage, RefusesALayoutThatIsNotTheTablesOwn) {
    make(4);
    EXPECT_EQ(salvageAll(path(), {.layout = layout}).ids(), upTo(4));
    EXPECT_TABULO_ERROR(configMismatch, static_cast<void>(salvageAll(path(), {.layout = ordersLayout(4)})));
    EXPECT_TABULO_ERROR(wrongParameter,
                        static_cast<void>(salvageAll(path(), {.layout = Layout{.messagesPerBlock = 0}})));
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(salvageAll(directory.file("none"), {.layout = layout})));
    const std::vector<std::int32_t> tags = {1};
    SessionInfo::create(directory.file("session"), tags).close();
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(salvageAll(directory.file("session"))));
}

TEST_F(ApiSalvage, DoesNotCallTheBeginningOfAMessageAtTheEndAGap) {
    make(5);
    for (std::size_t end = plan().frames[3].end; end < plan().frames[4].end; ++end) {
        writeFile(path().string(), Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(end)));
        const Salvaged salvaged = salvageAll(path());
        EXPECT_EQ(salvaged.ids(), upTo(4)) << end;
        EXPECT_EQ(salvaged.result.gaps, 0) << end << ": " << salvaged.text();
    }
    for (const std::size_t zeros : {7U, 8U, 100U}) {  // less than a block's length is nothing
        writeFile(path().string(), sound);
        appendFile(path().string(), Bytes(zeros, 0));
        EXPECT_EQ(salvageAll(path()).result.gapBytes, zeros < 8 ? 0 : static_cast<std::int64_t>(zeros))
            << zeros << " zero bytes: messages may have stood there before the power was lost";
    }
}

TEST_F(ApiSalvage, EndsWhenItIsToldToAndTellsHowFarItHasCome) {
    layout = ordersLayout(10);
    make(2000);
    std::stop_source stop;
    std::int64_t last = 0;
    std::int64_t between = 0;
    SalvageSink sink;
    sink.message = [&](const MessageView& message, const auto&) {
        if (message.uniformId() == 500) {
            stop.request_stop();
        }
    };
    Work work{.stop = stop.get_token(), .progress = [&](const Progress& progress) {
                  EXPECT_GE(progress.done, last);
                  last = progress.done;
                  between += last > 0 && last < progress.total ? 1 : 0;
                  EXPECT_EQ(progress.total, static_cast<std::int64_t>(sound.size()));
              }};
    const SalvageResult stopped = salvage(path(), sink, {}, work);
    EXPECT_FALSE(stopped.complete);
    EXPECT_GE(stopped.messages, 500);
    EXPECT_LT(stopped.messages, 1500);
    work.stop = {};
    last = 0;
    between = 0;
    EXPECT_TRUE(salvage(path(), {}, {}, work).complete);
    EXPECT_EQ(last, static_cast<std::int64_t>(sound.size()));
    EXPECT_GT(between, 10) << "of two hundred blocks";
    sink.message = [](const MessageView&, const auto&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(static_cast<void>(salvage(path(), sink)), std::runtime_error);
    work.progress = [](const Progress&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(static_cast<void>(salvage(path(), {}, {}, work)), std::runtime_error);
}

TEST_F(ApiSalvage, GivesEveryWholeMessageAndNoOtherOfTablesThatAreDamagedAtRandom) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    layout = ordersLayout(6);
    make(40);
    const TablePlan places = plan();
    const int rounds = 2000 * internal::test::testEffort();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Bytes image = sound;
        std::vector<Stretch> damages;
        for (std::size_t i = 1 + random() % 4; i > 0; --i) {
            damages.push_back(damageAtRandom(&image, round % 8 == 0 ? 0 : places.headerEnd, &random));
        }
        patchFile(path().string(), 0, image);
        std::vector<std::int32_t> whole;
        for (std::size_t i = 0; i < places.frames.size(); ++i) {
            const Stretch& frame = places.frames[i];
            const auto begin = static_cast<std::ptrdiff_t>(frame.begin);
            if (std::equal(sound.begin() + begin, sound.begin() + static_cast<std::ptrdiff_t>(frame.end),
                           image.begin() + begin)) {
                whole.push_back(static_cast<std::int32_t>(i + 1));
            }
        }
        const bool headerHit = std::any_of(damages.begin(), damages.end(), [&](const Stretch& damage) {
            return damage.begin < places.headerEnd - 88;  // not in front of its last records
        });
        Salvaged salvaged;
        try {
            salvaged = salvageAll(path(), {.layout = layout});
        } catch (const Error& error) {
            EXPECT_TRUE(headerHit) << error.what();
            continue;
        }
        // A message whose lengths and kinds of fields are still whole is one, whatever it says.
        std::vector<std::int64_t> given;
        for (const Salvaged::Item& item : salvaged.messages) {
            const auto at = std::find_if(places.frames.begin(), places.frames.end(), [&](const Stretch& frame) {
                return static_cast<std::int64_t>(frame.begin) == item.position.offset;
            });
            ASSERT_NE(at, places.frames.end()) << "an invented message in round " << round << "\n" << salvaged.text();
            EXPECT_EQ(item.frame.size(), at->end - at->begin);
            const std::int64_t n = at - places.frames.begin();
            EXPECT_TRUE(item.ordinal == n || item.ordinal == -1) << item.ordinal << " is not " << n;
            given.push_back(n + 1);
        }
        EXPECT_TRUE(std::includes(given.begin(), given.end(), whole.begin(), whole.end()))
            << "a whole message is missing in round " << round << ", damaged" << stretchesText(damages) << "\n"
            << salvaged.text();
    }
}

}  // namespace
}  // namespace tabulo::test
