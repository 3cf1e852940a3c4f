// The command on a terminal at which somebody types.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

class TypedTerminal {
  public:
    // Starts build/<preset>/tabulo in a directory, on a terminal of 100 columns.
    TypedTerminal(const std::string& directory, const std::vector<std::string>& arguments);
    ~TypedTerminal();
    TypedTerminal(const TypedTerminal&) = delete;
    TypedTerminal& operator=(const TypedTerminal&) = delete;

    void type(const std::string& keys) const;
    // Waits until a text has been printed behind what was awaited before; false when it was not within 20 seconds.
    bool await(const std::string& text);
    // All that was printed, with the terminal's own codes.
    std::string output() const;
    pid_t id() const { return process_->id(); }
    int wait() { return process_->wait(); }

  private:
    void read();

    int master_ = -1;
    std::unique_ptr<ChildProcess> process_;
    mutable std::mutex mutex_;
    std::string output_;
    std::size_t awaited_ = 0;
    std::thread reader_;
};

}  // namespace tabulo::tool::test
