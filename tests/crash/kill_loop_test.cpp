// Writers that are killed at random moments, also while they recover what the one before left.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <random>

#include "messagetable/message_lookup.h"
#include "tests/crash/crash_writer.h"
#include "tests/crash/signal_points.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int KILLS = 20;  // of each kind of traffic
#else
constexpr int KILLS = 80;
#endif
constexpr int LONGEST_LIFE_EXPONENT = 14;  // 2^14 microseconds
constexpr int KILLED = 256 + SIGKILL;
constexpr std::int32_t LARGEST_IMAGE = 150;

struct Kind {
    const char* name;
    std::int32_t messagesPerBlock;
    bool widest = false;
    bool withLargeTexts = false;
    std::int32_t burst = 40;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class KillLoop : public TableImageTest, public ::testing::WithParamInterface<Kind> {
  protected:
    void SetUp() override {
        const Kind& kind = GetParam();
        traffic.seed = testSeed();
        random.seed(traffic.seed);
        if (kind.widest) {
            shape = widestShape(kind.messagesPerBlock);
        } else {
            shape.messagesPerBlock = kind.messagesPerBlock;
            shape.stringNames = {"Symbol"};
            shape.numericNames = {"OrderQty", "Price"};
        }
        traffic.shape = shape;
        traffic.withLargeTexts = kind.withLargeTexts;
        traffic.burst = kind.burst;
        traffic.longest = kind.withLargeTexts ? 100 : 3 * kind.messagesPerBlock + 300;
        createTable(directory.root(), shape);  // the log file is there before the first child is
    }
    bool oneIn(unsigned count) { return random() % count == 0; }

    // Either at a moment of the clock, from outside, or at one of its calls to the system.
    void killOneWriter() {
        const std::uint64_t life = random();
        const int call = oneIn(2) ? 1 + static_cast<int>(random() % (oneIn(4) ? 12 : 200)) : 0;
        const ProcessSignal begun;
        ChildProcess writer([&] {
            if (call > 0) {
                killAtCall(call, life);
            }
            begun.raise();
            return writeUntilKilled(directory.root(), traffic, state.operator->(), life);
        });
        ASSERT_TRUE(begun.await());
        if (call == 0) {
            const std::uint64_t longest = std::uint64_t{1} << (random() % (LONGEST_LIFE_EXPONENT + 1));
            const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % longest);
            while (std::chrono::steady_clock::now() < end && !state->problem.isThere()) {
                ::usleep(10);
            }
            ASSERT_EQ(writer.kill(), KILLED) << state->problem.sentence();
        } else {
            ASSERT_EQ(writer.wait(), KILLED) << state->problem.sentence();
        }
        kills += 1;
        at.at(static_cast<std::size_t>(state->step.load())) += 1;
    }
    // A recovery that is killed at one of its calls, if it is not done before.
    void killOneRecovery() {
        const std::uint64_t moment = random();
        ChildProcess recovery([&] {
            killAtCall(1 + static_cast<int>(moment % 12), moment);
            const MessageTablePtr recovered = createTable(directory.root(), shape);
            const ErrorCode code = mt_open(recovered.get(), OpenMode::write);
            const SessionTablePtr session = createSession(directory.root());
            return code == NO_ERROR && si_init(session.get(), OpenMode::write) == NO_ERROR ? 0 : 1;
        });
        const int result = recovery.wait();
        ASSERT_TRUE(result == 0 || result == KILLED) << "a recovery fails";
        recoveryKills += result == KILLED ? 1 : 0;
    }

    // Kills around the end of a large block would be rare: brings the table near one.
    void writeUpToBlockEnd() {
        const std::int32_t perBlock = shape.messagesPerBlock;
        const TableContent now = acknowledged();
        const std::int32_t last = (now.messages / perBlock + 1) * perBlock - static_cast<std::int32_t>(random() % 40);
        const MessageTablePtr writer = openTable(directory.root(), OpenMode::write, shape);
        ASSERT_NE(writer, nullptr);
        for (std::int32_t n = now.messages + 1; n <= last; ++n) {
            ASSERT_EQ(writeMessage(writer.get(), traffic.message(now.generation, n)), NO_ERROR);
            state->content.store(TableContent{now.generation, n}.packed());
        }
        state->nextContent.store(state->content.load());
    }

    TableContent acknowledged() const { return TableContent::unpacked(state->content.load()); }
    TableContent atWork() const { return TableContent::unpacked(state->nextContent.load()); }
    // Messages 1 to `count` of a generation; kept, since they are asked for behind every kill.
    std::vector<Message> expected(TableContent content) {
        if (keptGeneration != content.generation) {
            kept.clear();
            keptGeneration = content.generation;
        }
        while (static_cast<std::int32_t>(kept.size()) < content.messages) {
            kept.push_back(traffic.message(content.generation, static_cast<std::int32_t>(kept.size()) + 1));
        }
        return {kept.begin(), kept.begin() + content.messages};
    }
    // Which of the two contents that may be there is; fails the test when it is neither.
    void findContent(MessageTable* opened, TableContent* found) {
        ASSERT_EQ(mt_refresh(opened), NO_ERROR);
        const ReadMessages forward = readAll(opened);
        ASSERT_EQ(forward.code, NO_ERROR) << getErrorMessage(forward.code);
        const auto count = static_cast<std::int32_t>(forward.messages.size());
        // An empty table is that of the generation that is being made, if one is.
        const bool next = count == atWork().messages && atWork() != acknowledged();
        *found = next ? atWork() : acknowledged();
        lost += std::max(0, found->messages - count);
        ASSERT_EQ(count, found->messages)
            << "while " << acknowledged().text() << " were acknowledged and " << atWork().text() << " at work";
        const std::vector<Message> wanted = expected(*found);
        const auto pair = std::mismatch(wanted.begin(), wanted.end(), forward.messages.begin());
        ASSERT_TRUE(pair.first == wanted.end())
            << "a message is not the one that was written: " << ::testing::PrintToString(*pair.second) << " instead of "
            << ::testing::PrintToString(*pair.first);
        ReadMessages backward = readAllBackward(opened);
        ASSERT_EQ(backward.code, NO_ERROR) << getErrorMessage(backward.code);
        std::reverse(backward.messages.begin(), backward.messages.end());
        ASSERT_TRUE(backward.messages == wanted) << "a walk backward delivers other messages";
        ASSERT_EQ(lookupProblem(opened, wanted), "");
    }
    // A table that is being made may be without a header still.
    void checkReadOnly() {
        const MessageTablePtr reader = createTable(directory.root(), shape);
        const ErrorCode code = mt_open(reader.get(), OpenMode::read);
        const bool beingMade = atWork().messages == 0 && (atWork() != acknowledged() || acknowledged().messages == 0);
        if (code != NO_ERROR) {
            const bool there = std::filesystem::exists(path());
            ASSERT_TRUE(beingMade && (there ? code == FILE_SIZE_ERROR && fileBytes().empty() : code == FILE_OPEN_ERROR))
                << "a reader gets " << getErrorMessage(code) << ", the file has "
                << (there ? std::to_string(fileBytes().size()) : "no") << " bytes";
            return;
        }
        ASSERT_NO_FATAL_FAILURE(findContent(reader.get(), &seen.emplace()));
        readOnlyChecks += 1;
    }
    void checkForWriting() {
        MessageTablePtr writer = createTable(directory.root(), shape);
        const ErrorCode code = mt_open(writer.get(), OpenMode::write);
        ASSERT_EQ(code, NO_ERROR) << "the table does not open: " << getErrorMessage(code);
        TableContent found;
        ASSERT_NO_FATAL_FAILURE(findContent(writer.get(), &found));
        ASSERT_EQ(writer->records.dataInfo.messageCount, found.messages);
        ASSERT_TRUE(!seen || *seen == found)
            << "a reader saw " << seen->text() << ", the recovery left " << found.text();
        state->content.store(found.packed());
        state->nextContent.store(found.packed());
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            const std::string name = entry.path().filename().string();
            ASSERT_TRUE(name == shape.name || name == "session") << "a killed writer is no damage: " << name;
        }
        if (oneIn(4)) {
            ASSERT_EQ(closeTable(writer), NO_ERROR);
            if (found.messages <= LARGEST_IMAGE) {
                ASSERT_EQ(fileProblem(fileBytes(), closedImage(shape, expected(found))), "")
                    << "the file is not that of a writer that was never killed";
                images += 1;
            }
        }
    }
    // Each tag holds its value of the last acknowledged write, or each that of the one being written.
    void checkSession(OpenMode mode) {
        const SessionTablePtr session = createSession(directory.root());
        const ErrorCode code = si_init(session.get(), mode);
        if (mode == OpenMode::read && state->session.load() == 0 && code != NO_ERROR) {
            return;  // it is being made
        }
        ASSERT_EQ(code, NO_ERROR) << "the session table does not open: " << getErrorMessage(code);
        SessionValues values{};
        ASSERT_EQ(si_read(session.get(), 6, SESSION_TAGS.data(), values.data()), NO_ERROR);
        const bool next = values == sessionValues(state->nextSession.load());
        ASSERT_TRUE(next || values == sessionValues(state->session.load()))
            << "the session values are not those of write " << state->session.load()
            << " or the next: " << ::testing::PrintToString(values);
        if (mode == OpenMode::write) {
            const std::int64_t number = next ? state->nextSession.load() : state->session.load();
            state->session.store(number);
            state->nextSession.store(number);
        }
    }
    void checkEverything() {
        seen.reset();
        if (oneIn(2)) {
            ASSERT_NO_FATAL_FAILURE(checkReadOnly());
            ASSERT_NO_FATAL_FAILURE(checkSession(OpenMode::read));
        }
        for (std::uint64_t again = random() % 3; again > 0; --again) {
            ASSERT_NO_FATAL_FAILURE(killOneRecovery());
        }
        ASSERT_NO_FATAL_FAILURE(checkForWriting());
        ASSERT_NO_FATAL_FAILURE(checkSession(OpenMode::write));
    }

    CrashTraffic traffic;
    std::mt19937_64 random;
    SharedPage<WriterState> state;
    std::optional<TableContent> seen;  // by a reader, before any recovery
    std::vector<Message> kept;
    std::int32_t keptGeneration = -1;
    std::int64_t kills = 0;
    std::int64_t recoveryKills = 0;
    std::int64_t readOnlyChecks = 0;
    std::int64_t images = 0;
    std::int64_t lost = 0;
    std::array<std::int64_t, WRITER_STEPS.size()> at{};  // kills in the midst of each
};

TEST_P(KillLoop, LosesNoAcknowledgedMessageAndLeavesAtMostTheOneOperationThatWasAtWork) {
    // Looking at large tables takes long.
    const int rounds = (shape.messagesPerBlock == 1000 ? KILLS / 2 : KILLS) * testEffort();
    std::size_t recovered = 0;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("seed " + std::to_string(traffic.seed) + ", round " + std::to_string(round));
        if (shape.messagesPerBlock > traffic.burst && oneIn(3)) {
            ASSERT_NO_FATAL_FAILURE(writeUpToBlockEnd());
        }
        ASSERT_NO_FATAL_FAILURE(killOneWriter());
        SCOPED_TRACE(std::string("killed while ") + WRITER_STEPS.at(static_cast<std::size_t>(state->step.load())));
        log.clear();
        ASSERT_NO_FATAL_FAILURE(checkEverything());
        recovered += recoveries();
    }
    EXPECT_EQ(lost, 0);
    EXPECT_GT(state->written.load(), rounds) << "the writers hardly wrote";
    EXPECT_GE(at.at(static_cast<std::size_t>(WriterStep::writing)), rounds / 20)
        << "the kills hardly hit a writer at work";
    for (std::size_t i = 0; i < at.size(); ++i) {
        std::cout << WRITER_STEPS.at(i) << ": " << at.at(i) << (i + 1 < at.size() ? ", " : " kills; ");
    }
    std::cout << state->written.load() << " messages, " << recovered << " recoveries, " << readOnlyChecks
              << " read-only looks, " << images << " files compared\n";
    reportFigure("kills", "kills of a native writer", kills);
    reportFigure("kills", "kills of a native recovery", recoveryKills);
    reportFigure("kills", "messages acknowledged by native writers", state->written.load());
    reportFigure("kills", "acknowledged messages lost", lost);
}

INSTANTIATE_TEST_SUITE_P(Of, KillLoop,
                         ::testing::Values(Kind{"BlocksOfFour", 4}, Kind{"BlocksOfOne", 1},
                                           Kind{"BlocksOfAThousand", 1000, false, false, 300},
                                           Kind{"WidestFields", 4, true}, Kind{"LargeTexts", 4, false, true, 10}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace tabulo::internal::test
