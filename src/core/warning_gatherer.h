// Gathers the lines that a thread writes to the warning channel of the log, beside the facility that prints them.
//
// They tell why the operation under way has failed, to whoever makes an error of its code.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

#include "core/compiler.h"

namespace tabulo::internal {

// While the object lives, every WARNING line of its thread goes to `take`, whole and without its end, also when no
// facility is installed. Objects nest, and the innermost one gets the lines. `take` must not throw; a line for which
// there is no memory is lost.
class WarningGatherer {
  public:
    WarningGatherer(void (*take)(void* owner, std::string_view line), void* owner) noexcept;
    ~WarningGatherer();
    WarningGatherer(const WarningGatherer&) = delete;
    WarningGatherer& operator=(const WarningGatherer&) = delete;

    // The innermost one of this thread, null for none.
    static WarningGatherer* current() noexcept;
    // Adds a piece of a line. Called by the log for every write to the warning channel.
    void add(const char* format, std::va_list arguments) noexcept TABULO_PRINTF(2, 0);

  private:
    void (*take_)(void* owner, std::string_view line);
    void* owner_;
    WarningGatherer* outer_;
    std::string pieces_;
};

}  // namespace tabulo::internal
