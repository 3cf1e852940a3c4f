#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

namespace {

constexpr const char* freshProcessVariable = "TABULO_TEST_FRESH_PROCESS";
constexpr int signalOffset = 256;
constexpr int awaitMilliseconds = 20000;

void redirect(int descriptor, const std::string& path) {
    const int opened = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    ::dup2(opened, descriptor);
    ::close(opened);
}

}  // namespace

ChildProcess::ChildProcess(const std::function<int()>& body) {
    id_ = ::fork();
    if (id_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (id_ == 0) {
        int result = 122;
        try {
            result = body();
        } catch (...) {  // it must not run on in the copy
        }
        ::_exit(result);
    }
}

ChildProcess::~ChildProcess() {
    kill();
}

int ChildProcess::wait() {
    if (result_ >= 0) {
        return result_;
    }
    int status = 0;
    while (::waitpid(id_, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "waitpid");
        }
    }
    result_ = WIFEXITED(status) ? WEXITSTATUS(status) : signalOffset + WTERMSIG(status);
    return result_;
}

int ChildProcess::kill() {
    if (result_ < 0) {
        ::kill(id_, SIGKILL);
    }
    return wait();
}

int runInChild(const std::function<int()>& body) {
    return ChildProcess(body).wait();
}

ProcessSignal::ProcessSignal() {
    if (::pipe2(ends_, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
}

ProcessSignal::~ProcessSignal() {
    ::close(ends_[0]);
    ::close(ends_[1]);
}

void ProcessSignal::raise() const {
    const char byte = 1;
    if (::write(ends_[1], &byte, 1) != 1) {
        throw std::system_error(errno, std::generic_category(), "write");
    }
}

bool ProcessSignal::await() const {
    pollfd waiting{ends_[0], POLLIN, 0};
    char byte = 0;
    return ::poll(&waiting, 1, awaitMilliseconds) == 1 && ::read(ends_[0], &byte, 1) == 1;
}

FreshProcess::FreshProcess(const char* name, int (*body)()) : name_(name) {
    const char* wanted = ::getenv(freshProcessVariable);
    if (wanted != nullptr && std::strcmp(wanted, name) == 0) {
        ::unsetenv(freshProcessVariable);
        ::_exit(body());
    }
}

ProgramResult FreshProcess::run(const std::string& directory) const {
    const TemporaryDirectory scratch;
    const std::string output = scratch.file("output");
    const std::string errors = scratch.file("errors");
    ChildProcess child([&] {
        redirect(STDOUT_FILENO, output);
        redirect(STDERR_FILENO, errors);
        if (::chdir(directory.c_str()) != 0 || ::setenv(freshProcessVariable, name_, 1) != 0) {
            return 120;
        }
        ::execl("/proc/self/exe", "fresh process", static_cast<char*>(nullptr));
        return 121;
    });
    ProgramResult result;
    result.status = child.wait();
    result.id = child.id();
    result.output = readText(output);
    result.errors = readText(errors);
    return result;
}

}  // namespace tabulo::internal::test
