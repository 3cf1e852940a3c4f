// A process killed at every single call to the file system that an operation makes: before it, behind it, and in the
// midst of a write across pages.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>

#include "messagetable/message_lookup.h"
#include "tests/crash/crash_traffic.h"
#include "tests/crash/signal_points.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr int KILLED = 256 + SIGKILL;
// Random numbers for each call: before it, behind it, at one of the pages' ends.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t WAYS = 3;
#else
constexpr std::uint64_t WAYS = 6;
#endif
constexpr int MOST_CALLS = 100;
constexpr std::int32_t OPEN_BLOCK = 7;  // messages: four in a closed block, three in the open one

struct Operation {
    const char* name;
    // The table before it; -1 for no file. `closed` is how it was left.
    std::int32_t before;
    bool closed;
    // The other content that the kill may leave, as a number of messages.
    std::int32_t after;
    // What the process does once it has the table open; null for what opening it does, in the given mode.
    ErrorCode (*work)(MessageTable* table, const Message& next);
    OpenMode mode = OpenMode::write;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

ErrorCode writeNext(MessageTable* table, const Message& next) {
    return writeMessage(table, next);
}

ErrorCode saveTail(MessageTable* table, const Message&) {
    return mt_close(table);
}

ErrorCode drop(MessageTable* table, const Message&) {
    return mt_drop(table);
}

class KillPoints : public TableImageTest, public ::testing::WithParamInterface<Operation> {
  protected:
    // Larger than two pages, so that each write ends in another one than it began in.
    Message message(std::int32_t n) const {
        Message large = simpleMessage(n, shape);
        large.strings[2] = std::string(9000, static_cast<char>('a' + n));
        return large;
    }
    std::vector<Message> messages(std::int32_t count) const {
        std::vector<Message> all;
        for (std::int32_t n = 1; n <= count; ++n) {
            all.push_back(message(n));
        }
        return all;
    }
    // Places the table, does the operation in a child that is killed, and tells how it ended.
    int killAt(const Operation& operation, const Bytes& image, int call, std::uint64_t way) {
        std::filesystem::remove(path());
        if (operation.before >= 0) {
            place(image);
        }
        return runInChild([&] {
            const MessageTablePtr killed = createTable(directory.root(), shape);
            if (operation.work == nullptr) {
                killAtCall(call, way);
            }
            if (mt_open(killed.get(), operation.mode) != NO_ERROR) {
                return 1;
            }
            if (operation.work == nullptr) {
                return 0;
            }
            killAtCall(call, way);
            return operation.work(killed.get(), message(operation.before + 1)) == NO_ERROR ? 0 : 2;
        });
    }
    // A reader sees the old content or the new one, unless the table has no header yet.
    void checkReader(const std::vector<std::vector<Message>>& allowed) {
        const MessageTablePtr reader = createTable(directory.root(), shape);
        const ErrorCode code = mt_open(reader.get(), OpenMode::read);
        if (code != NO_ERROR) {
            const bool exists = std::filesystem::exists(path());
            ASSERT_EQ(code, exists ? FILE_SIZE_ERROR : FILE_OPEN_ERROR);
            ASSERT_TRUE(allowed.back().empty() && (!exists || fileBytes().empty()));
            return;
        }
        ASSERT_EQ(mt_refresh(reader.get()), NO_ERROR);
        const ReadMessages read = readAll(reader.get());
        ASSERT_EQ(read.code, NO_ERROR);
        ASSERT_TRUE(std::count(allowed.begin(), allowed.end(), read.messages) > 0)
            << "a reader sees " << read.messages.size() << " messages";
        ASSERT_EQ(lookupProblem(reader.get(), read.messages), "");
    }
    void checkRecovered(const std::vector<std::vector<Message>>& allowed) {
        MessageTablePtr writer = openTable(directory.root(), OpenMode::write, shape);
        ASSERT_NE(writer, nullptr);
        std::vector<Message> found = readAll(writer.get()).messages;
        ASSERT_TRUE(std::count(allowed.begin(), allowed.end(), found) > 0) << found.size() << " messages are left";
        ASSERT_EQ(lookupProblem(writer.get(), found), "");
        found.push_back(message(static_cast<std::int32_t>(found.size()) + 1));
        ASSERT_EQ(writeMessage(writer.get(), found.back()), NO_ERROR);
        ASSERT_EQ(closeTable(writer), NO_ERROR);
        ASSERT_EQ(fileProblem(fileBytes(), closedImage(shape, found)), "");
        ASSERT_TRUE(others().empty()) << "a killed writer is no damage: " << others().begin()->first;
    }
};

TEST_P(KillPoints, LeaveTheOldContentOrTheNewOne) {
    const Operation& operation = GetParam();
    const std::int32_t count = std::max(0, operation.before);
    const Bytes image = operation.closed ? closedImage(shape, messages(count)) : unclosedImage(shape, messages(count));
    const std::vector<std::vector<Message>> allowed{messages(count), messages(operation.after)};
    std::int64_t kills = 0;
    int call = 0;
    for (bool killed = true; killed;) {
        call += 1;
        ASSERT_LT(call, MOST_CALLS) << "the operation does not end";
        killed = false;
        for (std::uint64_t way = 0; way < WAYS; ++way) {
            SCOPED_TRACE("call " + std::to_string(call) + ", way " + std::to_string(way));
            const int result = killAt(operation, image, call, way);
            ASSERT_TRUE(result == 0 || result == KILLED) << "the operation fails: " << result;
            killed = killed || result == KILLED;
            kills += result == KILLED ? 1 : 0;
            ASSERT_NO_FATAL_FAILURE(checkReader(allowed));
            ASSERT_NO_FATAL_FAILURE(checkRecovered(allowed));
        }
    }
    EXPECT_GT(call, 1) << "the operation made no call";
    reportFigure("kills", "kills at every call of an operation", kills);
}

INSTANTIATE_TEST_SUITE_P(Of, KillPoints,
                         ::testing::Values(Operation{"Creating", -1, true, 0, nullptr},
                                           Operation{"Appending", 1, false, 2, writeNext},
                                           Operation{"BeginningABlock", 4, false, 5, writeNext},
                                           Operation{"ClosingABlock", OPEN_BLOCK, false, OPEN_BLOCK + 1, writeNext},
                                           Operation{"Closing", OPEN_BLOCK, false, OPEN_BLOCK, saveTail},
                                           Operation{"Recovering", OPEN_BLOCK, false, OPEN_BLOCK, nullptr},
                                           Operation{"Dropping", OPEN_BLOCK, false, 0, drop},
                                           Operation{"DroppingAClosedTable", OPEN_BLOCK, true, 0, drop},
                                           Operation{"CreatingAnew", OPEN_BLOCK, true, 0, nullptr, OpenMode::create}),
                         [](const auto& operation) { return operation.param.name; });

// The bytes that a recovery cuts are saved whole, whenever it is killed.
class KilledSalvage : public KillPoints {};

TEST_F(KilledSalvage, HasSavedWhatIsCutBeforeItCuts) {
    const std::vector<Message> all = messages(OPEN_BLOCK);
    Bytes damaged = unclosedImage(shape, all);
    const TableMap map = mapOf(shape, all);
    damaged.at(map.frame(6).end - 1) ^= 0xff;
    const Bytes cut = slice(damaged, map.frame(6).start, damaged.size());
    int call = 0;
    for (bool killed = true; killed;) {
        call += 1;
        ASSERT_LT(call, MOST_CALLS);
        killed = false;
        for (std::uint64_t way = 0; way < WAYS; ++way) {
            SCOPED_TRACE("call " + std::to_string(call) + ", way " + std::to_string(way));
            for (const auto& [name, bytes] : others()) {
                std::filesystem::remove(directory.file(name));
            }
            const int result = killAt({"", OPEN_BLOCK, false, 0, nullptr}, damaged, call, way);
            ASSERT_TRUE(result == 0 || result == KILLED);
            killed = killed || result == KILLED;
            ASSERT_EQ(recover(), NO_ERROR);
            ASSERT_EQ(messagesIn(directory.root(), shape), messages(5));
            const std::map<std::string, Bytes> beside = others();
            ASSERT_TRUE(std::any_of(beside.begin(), beside.end(), [&](const auto& file) { return file.second == cut; }))
                << "none of the " << beside.size() << " files beside the table holds what was cut";
        }
    }
    EXPECT_GT(call, 4);
}

}  // namespace
}  // namespace tabulo::internal::test
