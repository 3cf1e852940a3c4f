// DEBUG lines written by all threads at once. Lines may interleave between their two pieces; each piece stays whole.
#include <filesystem>

#include "tests/support/debug_log.h"
#include "tests/support/test_run.h"
#include "tests/threads/thread_fixture.h"

namespace tabulo::internal::test {
namespace {

constexpr int THREADS = 4;
constexpr int LINES = 1000;

// The pieces of a thread, longer and shorter than the log's buffer, each with its own number and letter.
std::string messageOf(int thread, int line) {
    const std::size_t length = line % 50 == 0 ? 10000 : 40 + static_cast<std::size_t>(line % 13);
    return "<" + std::to_string(thread) + "." + std::to_string(line) + " " +
           std::string(length, static_cast<char>('a' + thread)) + ">\n";
}

std::string functionOf(int thread, int line) {
    return "thread" + std::to_string(thread) + "line" + std::to_string(line);
}

std::size_t countOf(const std::string& text, const std::string& piece) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size())) {
        count += 1;
    }
    return count;
}

class SharedLog : public ThreadsTest {};

TEST_F(SharedLog, KeepsEveryPieceOfEveryThreadWhole) {
    const DebugLog log;
    const int lines = LINES * testEffort();
    std::vector<std::function<void()>> bodies;
    for (int thread = 0; thread < THREADS; ++thread) {
        bodies.emplace_back([thread, lines] {
            for (int line = 0; line < lines; ++line) {
                log_debug(functionOf(thread, line).c_str(), "%s", messageOf(thread, line).c_str());
                log_write("[%d.%d]\n", thread, line);
            }
        });
    }
    runTogether(bodies);
    // Taken apart piece by piece: what is left over was torn.
    std::string text = log.text();
    std::size_t at = 0;
    std::vector<int> next(THREADS, 0);
    std::vector<int> piece(THREADS, 0);
    while (at < text.size()) {
        bool whole = false;
        for (std::size_t thread = 0; thread < THREADS && !whole; ++thread) {
            const int line = next[thread];
            const int number = static_cast<int>(thread);
            const std::string expected = piece[thread] == 0 ? debugLine(functionOf(number, line), "")
                                         : piece[thread] == 1
                                             ? messageOf(number, line)
                                             : "[" + std::to_string(number) + "." + std::to_string(line) + "]\n";
            whole = line < lines && text.compare(at, expected.size(), expected) == 0;
            if (whole) {
                at += expected.size();
                piece[thread] = (piece[thread] + 1) % 3;
                next[thread] += piece[thread] == 0 ? 1 : 0;
            }
        }
        ASSERT_TRUE(whole) << "no thread's next piece stands at byte " << at << ": " << text.substr(at, 100);
    }
    EXPECT_EQ(next, std::vector<int>(THREADS, lines)) << "each thread's lines are there, in its order";
    reportFigure("threads", "log lines written at once", std::int64_t{THREADS} * lines);
}

TEST_F(SharedLog, HoldsTheLinesOfTablesThatAreOpenedAndClosedAtOnce) {
    const DebugLog log;
    constexpr int OPENINGS = 40;
    std::vector<std::function<void()>> bodies;
    for (int thread = 0; thread < THREADS; ++thread) {
        bodies.emplace_back([this, thread] {
            TableShape shape;
            shape.name = "table" + std::to_string(thread);
            for (int i = 0; i < OPENINGS; ++i) {
                const MessageTablePtr table = openOwn(directory.root(), OpenMode::create, shape);
                requireCode(writeMessage(table.get(), simpleMessage(1, shape)), NO_ERROR, "a write");
            }
        });
    }
    runTogether(bodies);
    const std::string text = log.text();
    EXPECT_EQ(countOf(text, debugLine("+ mt_create", "").substr(0, 30)), std::size_t{THREADS * OPENINGS});
    for (int thread = 0; thread < THREADS; ++thread) {
        const std::string line = "opening file '" + directory.file("table" + std::to_string(thread)) + "' in mode 2 ";
        EXPECT_EQ(countOf(text, line), std::size_t{OPENINGS}) << line;
    }
    EXPECT_EQ(countOf(text, "physical sync performed: "), countOf(text, "timeSinceFlush = "));
}

}  // namespace
}  // namespace tabulo::internal::test
