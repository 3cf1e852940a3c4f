// What the tests of the command share: tables in a directory of their own, and the program itself run as a process.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::tool::test {

using internal::test::Bytes;
using internal::test::ChildProcess;
using internal::test::ProcessSignal;
using internal::test::ProgramResult;
using internal::test::readFile;
using internal::test::readText;
using internal::test::TemporaryDirectory;

// How a command is run.
struct CommandSettings {
    std::string directory{};                 // in which it runs; empty: this process's own
    std::vector<std::string> environment{};  // "NAME=value", besides TZ=UTC and the test's own
    std::string input{};                     // on its standard input
    std::function<void(pid_t)> meanwhile{};  // called while it runs
};

// Runs build/<preset>/tabulo with arguments to its end; output and errors are its standard output and standard error.
ProgramResult runCommand(const std::vector<std::string>& arguments, const CommandSettings& settings = {});
// What a child process of a test ends with: the same in its place. 121 when it cannot be run.
int becomeCommand(const std::vector<std::string>& arguments, const CommandSettings& settings = {});
// Runs a script of bash, to which $TABULO names the command.
ProgramResult runScript(const std::string& script, const CommandSettings& settings = {});
// The same as runCommand with a terminal of so many columns as its standard output and standard error; what it has
// printed there is in `output`, with the line ends of a terminal ("\r\n") turned into "\n".
ProgramResult runOnTerminal(const std::vector<std::string>& arguments, int columns,
                            const CommandSettings& settings = {});

// An output in which every stretch of blanks is one, as a system says it that has a list of locks: where there is none,
// nobody knows who has a closed table open.
std::string withLockList(std::string output);
// How often a text stands in another.
int occurrences(std::string_view text, std::string_view wanted);

// A layout with two texts and two numbers.
Layout ordersLayout(std::int32_t messagesPerBlock = 4);

// The time of the n-th message below: milliseconds from 2026-11-20T19:31:45.673Z on, 250 apart.
std::int64_t orderTime(std::int32_t n);

// Message n, from 1 on, of a session that sends orders: odd ones are orders out (APP_TO, type D), even ones their
// reports (APP_FROM, type 8), every tenth is a heartbeat instead (ADMIN_TO, type 0). The uniform id is n, sequence
// numbers count each direction. Every third has no Symbol, every fourth no Price. Its texts are its own.
class OrderMessage {
  public:
    explicit OrderMessage(std::int32_t n);
    OrderMessage(const OrderMessage&) = delete;
    OrderMessage& operator=(const OrderMessage&) = delete;

    Message message;

  private:
    std::vector<std::string> texts_;
};

// Tables of its own in a directory of its own.
class ToolTest : public ::testing::Test {
  protected:
    std::string file(std::string_view name) const { return directory.file(name); }
    // Makes a table with order messages `first` to `last`, closed; its path.
    std::string makeOrders(std::string_view name, std::int32_t last, std::int32_t first = 1,
                           std::int32_t messagesPerBlock = 4) const;
    // A session info table with tag 1 = 17, tag 2 = 42, tag 9 = -1.
    std::string makeSession(std::string_view name) const;
    std::string makeFile(std::string_view name, std::string_view content) const;
    // Runs the command in the directory, so that tables are named without it.
    ProgramResult run(const std::vector<std::string>& arguments) const;
    // Every file in the directory, with its bytes: what no verb may change.
    std::vector<std::pair<std::string, Bytes>> contents() const;

    const TemporaryDirectory directory;
};

}  // namespace tabulo::tool::test
