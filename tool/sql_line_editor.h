// Lines from standard input: as they come, or edited on a terminal.
#pragma once

#include <optional>
#include <string>

#include "tool/sql_session.h"

namespace tabulo::tool {

// Lines as they come.
class SqlInput {
  public:
    // The next line without its end; none at the end, and after an interrupt.
    std::optional<std::string> line();

  private:
    std::string gathered_;
    bool hasEnded_ = false;
};

// Lines that a user types; with libedit edited, completed, and remembered until the program ends. There is one at a
// time.
class SqlLineEditor {
  public:
    explicit SqlLineEditor(const SqlSession& session);
    ~SqlLineEditor();
    SqlLineEditor(const SqlLineEditor&) = delete;
    SqlLineEditor& operator=(const SqlLineEditor&) = delete;

    // Whether somebody sees the prompt: standard output is a terminal.
    bool isForEyes() const noexcept { return isForEyes_; }
    // The next line; none at the end of the input, and after an interrupt.
    std::optional<std::string> line(const char* prompt);

  private:
    std::optional<std::string> plainLine(const char* prompt);

    bool isForEyes_;
    SqlInput input_;
};

}  // namespace tabulo::tool
