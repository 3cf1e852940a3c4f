// What the library has written to this process's log file since a mark.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tabulo::internal::test {

// The prefix of the library's DEBUG lines and a message: what debugLine("f", "x") compares with is "... f(): x".
std::string debugLine(const std::string& function, const std::string& message);
std::string noteLine(const std::string& function, const std::string& message);
std::string warningLine(const std::string& function, const std::string& message);

class DebugLog {
  public:
    // The mark is the log's present end.
    DebugLog();

    // The log file of this process: "tabulo-<process id>.log" in the directory that was current at construction.
    const std::string& path() const { return path_; }
    std::string text() const;
    std::vector<std::string> lines() const;
    // Moves the mark to the present end.
    void clear();

  private:
    std::string path_;
    std::size_t mark_ = 0;
};

}  // namespace tabulo::internal::test
