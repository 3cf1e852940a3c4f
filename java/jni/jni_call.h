// What an entry point knows of its failure besides the code: warnings, a refused system call, a Java exception.
#pragma once

#include <jni.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/warning_gatherer.h"

namespace tabulo::internal {

// Stands first in every entry point that may fail for more than its arguments. While it lives, what this thread learns
// of a failure is kept in it. Calls nest, when a callback calls the library again; each keeps its own.
class JniCall {
  public:
    explicit JniCall(JNIEnv* env) noexcept;
    ~JniCall();
    JniCall(const JniCall&) = delete;
    JniCall& operator=(const JniCall&) = delete;

    // The innermost one of this thread, null for none.
    static JniCall* current() noexcept;

    // Keeps a Java exception that was cleared, as the cause of what is thrown; only the first one. No exception may be
    // pending.
    void keepCause(jthrowable thrown) noexcept;
    // Null when none was kept.
    jthrowable cause() const noexcept { return cause_; }
    // Adds a sentence of our own; without memory it is lost.
    void add(std::string_view sentence) noexcept;
    // Everything that is known, in one line: the sentences, the system call that was refused, the warnings (the last
    // ones of very many). Empty when nothing is. Throws std::bad_alloc.
    std::string detail() const;

  private:
    // Keeps the system call that was refused as a sentence: a call inside this one begins anew.
    void keepRefused() noexcept;

    JNIEnv* env_;
    JniCall* outer_;
    jthrowable cause_ = nullptr;  // global reference
    std::vector<std::string> sentences_;
    std::vector<std::string> warnings_;
    WarningGatherer gatherer_;
};

}  // namespace tabulo::internal
