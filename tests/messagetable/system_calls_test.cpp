// What a stored message asks of the system: counted at the platform seam, and by strace on a process of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "messagetable/message_table.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_platform.h"
#include "tests/support/text_lines.h"

namespace tabulo::internal::test {
namespace {

class MessageSystemCalls : public MessageTableTest {
  protected:
    void TearDown() override { table.reset(); }
    FaultPlatform platform;
};

TEST_F(MessageSystemCalls, AnOrdinaryMessageIsOneWriteAtTheFilesEndAndNothingElse) {
    shape = defaultShape();
    open(OpenMode::create);
    std::int64_t end = 140;
    for (std::int32_t n = 1; n <= 20; ++n) {
        platform.clear();
        ASSERT_EQ(writeSimple(n, n), NO_ERROR);
        ASSERT_EQ(platform.sequence(), "writeAt") << "message " << n;
        const RecordedCall written = platform.calls()[0];
        EXPECT_EQ(written.offset, end);
        EXPECT_EQ(written.length,
                  static_cast<std::int64_t>(frameOf(simpleMessage(n, shape)).size()) + (n == 1 ? 8 : 0));
        end += written.length;
    }
}

TEST_F(MessageSystemCalls, AMessageOfAnySizeIsOneWrite) {
    shape = defaultShape();
    open(OpenMode::create);
    for (const std::size_t size : {4000U, 4096U, 4097U, 100000U, 3000000U}) {
        Message message = bareMessage(1, shape);
        message.strings[2] = std::string(size, 'x');
        platform.clear();
        ASSERT_EQ(write(message), NO_ERROR);
        EXPECT_EQ(platform.sequence(), "writeAt") << size << " bytes";
    }
}

TEST_F(MessageSystemCalls, AMessageThatClosesABlockTakesItsFooterAlongAndPatchesTwoPlaces) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 2), NO_ERROR);
    const auto end = static_cast<std::int64_t>(fileBytes().size());
    platform.clear();
    ASSERT_EQ(writeSimple(3, 3), NO_ERROR);
    ASSERT_EQ(platform.sequence(), "writeAt writeAt writeAt");
    const std::vector<RecordedCall> writes = platform.calls();
    EXPECT_EQ(writes[0].offset, end);
    EXPECT_EQ(writes[0].length, static_cast<std::int64_t>(frameOf(simpleMessage(3)).size()) + 2652);
    EXPECT_EQ(writes[1].offset, 140) << "the block's length word";
    EXPECT_EQ(writes[1].length, 8);
    EXPECT_EQ(writes[2].offset, 52) << "the header's tail";
    EXPECT_EQ(writes[2].length, 88);
}

TEST_F(MessageSystemCalls, ATableOpenedAgainWritesItsMessagesInTheSameWay) {
    open(OpenMode::create);
    ASSERT_EQ(writeSimple(1, 4), NO_ERROR);
    ASSERT_EQ(closeTable(table), NO_ERROR);
    open(OpenMode::write);
    platform.clear();
    ASSERT_EQ(writeSimple(5, 5), NO_ERROR);
    EXPECT_EQ(platform.sequence(), "writeAt");
}

// Runs a command line in a child process; its exit status.
int run(const std::vector<std::string>& command) {
    return runInChild([&] {
        std::vector<char*> arguments;
        for (const std::string& argument : command) {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        // A leak check cannot run beside a tracer.
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        ::execvp(arguments[0], arguments.data());
        return 127;
    });
}

// The calls that write_messages makes between its first and its last message, one a line.
class TracedMessages : public MessageTableTest {
  protected:
    void SetUp() override {
        if (run({"strace", "-o", directory.file("probe"), "true"}) != 0) {
            GTEST_SKIP() << "strace is missing or may not trace";
        }
    }
    std::vector<std::string> trace(int messagesPerBlock, int count) {
        const std::string output = directory.file("trace");
        EXPECT_EQ(run({"strace", "-f", "-qq", "-o", output, TABULO_TEST_PROGRAMS "/write_messages", directory.root(),
                       shape.name, std::to_string(messagesPerBlock), std::to_string(count)}),
                  0);
        std::vector<std::string> calls;
        bool within = false;
        for (const std::string& line : textLines(readText(output))) {
            if (line.find("\"/last message\"") != std::string::npos) {
                return calls;
            }
            if (within) {
                calls.push_back(line);
            }
            within = within || line.find("\"/first message\"") != std::string::npos;
        }
        ADD_FAILURE() << "the messages do not show in the trace";
        return {};
    }
    static bool isWrite(const std::string& call) {
        for (const char* name : {"write(", "pwrite64(", "writev(", "pwritev("}) {
            if (call.find(name) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(TracedMessages, AnOrdinaryMessageIsOneWriteCallAndNoOther) {
    const std::vector<std::string> calls = trace(1000, 500);
    for (const std::string& call : calls) {
        EXPECT_TRUE(isWrite(call)) << call;
    }
    EXPECT_EQ(calls.size(), 500U);
}

TEST_F(TracedMessages, AClosedBlockCostsTwoWriteCallsMore) {
    const std::vector<std::string> calls = trace(100, 500);
    for (const std::string& call : calls) {
        EXPECT_TRUE(isWrite(call)) << call;
    }
    EXPECT_EQ(calls.size(), 500U + 5 * 2);
}

}  // namespace
}  // namespace tabulo::internal::test
