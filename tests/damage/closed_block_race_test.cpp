// A reader beside a writer that closes a block never calls the table damaged, wherever the writer's steps fall between
// the reader's calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/damage/damage_guard.h"
#include "tests/damage/healthy_table.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/call_hook.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t PER_BLOCK = 4;
constexpr int MORE_CALLS = 8;  // that a look at a block that is being closed may take beyond those of one that is not

// How much of the last append a reader finds when it looks in the middle of it.
enum class Half { ofTheFrame, ofTheFooter };

class BlockThatIsClosed : public HealthyTable {
  protected:
    // The files that a writer makes one after another: the last message of a block and the footer, first by halves, the
    // length word, and the header's records, with which it may also have gone on.
    void make(std::int32_t block, Half half, std::int32_t goesOn) {
        const std::int32_t full = block * PER_BLOCK;
        before = full - 1;
        after = full + goesOn;
        const TableMap map = mapOf(shape, {known.begin(), known.begin() + full});
        const Bytes open = unclosed(1, before);
        const Bytes closed = unclosed(1, full);
        Bytes noTail = closed;
        std::copy_n(open.begin() + static_cast<std::ptrdiff_t>(map.tail()), 88,
                    noTail.begin() + static_cast<std::ptrdiff_t>(map.tail()));
        Bytes noWord = noTail;
        putU64(&noWord, map.blockStarts.back(), 0);
        const std::size_t frameEnd = map.frames.back().end;
        const std::size_t there =
            half == Half::ofTheFrame ? (open.size() + frameEnd) / 2 : (frameEnd + closed.size()) / 2;
        files = {open, cutAt(noWord, there), noWord, noTail, goesOn == 0 ? closed : unclosed(1, after)};
    }
    // The answer when the files change in front of these calls.
    Answer ask(const Question& question, const std::vector<int>& changes, bool hasAnswered) {
        put(files[0]);
        const MessageTablePtr table = openReader();
        if (hasAnswered) {
            question.ask(table.get());
        }
        const CallHook hook([&](int call) {
            for (std::size_t i = 0; i < changes.size(); ++i) {
                if (changes[i] == call) {
                    put(files[i + 1]);
                }
            }
        });
        return question.ask(table.get());
    }
    // The answer is that of the table as it was at some time between.
    bool isRight(const Question& question, const Answer& answer) const {
        bool right = false;
        for (std::int32_t count = before; count <= after && !right; ++count) {
            right = answer.values == question.rightAnswer(numbersFrom(1, count));
        }
        return answer.code == NO_ERROR && right;
    }
    void expectRight(const Question& question, const std::vector<int>& changes, bool hasAnswered) {
        const Answer answer = ask(question, changes, hasAnswered);
        if (!isRight(question, answer)) {
            wrong += 1;
            ADD_FAILURE() << question.name
                          << " when half the append, the append, the word and the tail come in front of calls "
                          << ::testing::PrintToString(changes) << ": " << ::testing::PrintToString(answer.values)
                          << ", then " << getErrorMessage(answer.code);
        }
    }
    // Every way in which the four changes can fall between the calls of one question of each kind.
    void expectNeverDamaged(bool hasAnswered = false) {
        const unsigned share = underSanitizer() ? 23 : 1;  // one in so many
        unsigned runs = 0;
        for (const Question& question : questions) {
            if (!isOfItsKind(question)) {
                continue;
            }
            ask(question, {}, hasAnswered);
            const int calls = CallHook::count() + MORE_CALLS;
            for (int half = 0; half <= calls; ++half) {
                for (int append = half; append <= calls; ++append) {
                    for (int word = append; word <= calls; ++word) {
                        for (int tail = word; tail <= calls && wrong < 5; ++tail) {
                            if (runs++ % share == 0) {
                                expectRight(question, {half, append, word, tail}, hasAnswered);
                            }
                        }
                    }
                }
            }
        }
        EXPECT_GT(runs, 1000U);
    }
    static bool isOfItsKind(const Question& question) {
        const std::set<std::string> kinds{
            "a walk",         "a query for everything", "a query for a range of sequence numbers",
            "reading by ids", "watching from 7",        "the last uniform id"};
        return kinds.contains(question.name.substr(0, question.name.find(',')));
    }

    std::vector<Bytes> files;
    std::int32_t before = 0;
    std::int32_t after = 0;
    int wrong = 0;
};

TEST_F(BlockThatIsClosed, TheFirstOfATable) {
    make(1, Half::ofTheFrame, 0);
    expectNeverDamaged();
}

TEST_F(BlockThatIsClosed, TheFirstOfATableByHalvesOfItsFooter) {
    make(1, Half::ofTheFooter, 0);
    expectNeverDamaged();
}

TEST_F(BlockThatIsClosed, ALaterOneWhoseWriterGoesOn) {
    make(2, Half::ofTheFrame, 1);
    expectNeverDamaged();
}

TEST_F(BlockThatIsClosed, TheFirstOfATableWhoseWriterClosesTheNextOneToo) {
    make(1, Half::ofTheFooter, 6);
    expectNeverDamaged();
}

TEST_F(BlockThatIsClosed, UnderAReaderThatHasAnswered) {
    make(2, Half::ofTheFrame, 5);
    expectNeverDamaged(true);
}

}  // namespace
}  // namespace tabulo::internal::test
