// The command as a process that goes on while a test does something beside it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

class LiveCommand {
  public:
    // Starts build/<preset>/tabulo. What it prints is appended to the files "<outputs>.out" and "<outputs>.err".
    LiveCommand(const std::string& outputs, const std::vector<std::string>& arguments);

    // Waits until so many lines have been printed, or a text; false when they were not within 20 seconds.
    bool awaitLines(std::size_t count) const;
    bool awaitText(const std::string& text) const;
    bool awaitErrors(const std::string& text) const;

    std::string output() const { return readText(outputs_ + ".out"); }
    std::string errors() const { return readText(outputs_ + ".err"); }
    pid_t id() const { return process_->id(); }
    // Interrupts it, or kills it, and gives how it has ended, as ChildProcess::wait.
    int interrupt();
    int kill() { return process_->kill(); }
    int wait() { return process_->wait(); }

  private:
    std::string outputs_;
    std::unique_ptr<ChildProcess> process_;
};

}  // namespace tabulo::tool::test
