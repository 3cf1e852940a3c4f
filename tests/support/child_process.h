// Processes of tests.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace tabulo::internal::test {

// A forked copy of this process that runs a function and ends with its result (0 to 255). It runs no destructors and no
// exit handlers, and must not use the assertions of the test framework; an exception ends it with 122. Killed and
// waited for at the object's end.
class ChildProcess {
  public:
    explicit ChildProcess(const std::function<int()>& body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t id() const { return id_; }
    // Waits for the end. The function's result, or 256 + the signal that ended the process.
    int wait();
    // SIGKILL, then wait().
    int kill();

  private:
    pid_t id_ = -1;
    int result_ = -1;
};

// Runs a function in a child process to its end; the result of ChildProcess::wait.
int runInChild(const std::function<int()>& body);

// A one-way signal between processes, made before the fork: one side calls raise(), the other one's await() returns.
class ProcessSignal {
  public:
    ProcessSignal();
    ~ProcessSignal();
    ProcessSignal(const ProcessSignal&) = delete;
    ProcessSignal& operator=(const ProcessSignal&) = delete;

    void raise() const;
    // False when the other side did not raise it within 20 seconds.
    bool await() const;

  private:
    int ends_[2] = {-1, -1};
};

// How a program of its own ended.
struct ProgramResult {
    int status = -1;  // as ChildProcess::wait
    pid_t id = -1;
    std::string output;  // standard output and standard error, each as a whole
    std::string errors;
};

// A function that a fresh copy of this test program runs in place of its tests: nothing has been logged, installed or
// opened there yet. Define one at namespace level; it must not rely on other objects of that level.
class FreshProcess {
  public:
    FreshProcess(const char* name, int (*body)());

    // Starts the program again in `directory`, runs the body there and waits.
    ProgramResult run(const std::string& directory) const;

  private:
    const char* name_;
};

}  // namespace tabulo::internal::test
