// What this process prints to standard error or standard output while the object lives.
#pragma once

#include <cstdio>
#include <string>

#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

class CapturedOutput {
  public:
    // `stream` is stderr or stdout.
    explicit CapturedOutput(std::FILE* stream);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string text() const;

  private:
    TemporaryDirectory directory_;
    std::FILE* stream_;
    int descriptor_;
    int original_;
};

}  // namespace tabulo::internal::test
