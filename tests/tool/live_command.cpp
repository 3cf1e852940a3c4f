#include "tests/tool/live_command.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tabulo::tool::test {

namespace {

void appendTo(int descriptor, const std::string& path) {
    const int opened = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    ::dup2(opened, descriptor);
    ::close(opened);
}

template <typename Condition>
bool await(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// What the file has at this moment: a command that prints without end is faster than who reads on to the file's end.
std::string readNow(const std::string& path) {
    std::error_code none;
    const auto size = std::filesystem::file_size(path, none);
    std::string text(none ? 0 : static_cast<std::size_t>(size), '\0');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

}  // namespace

LiveCommand::LiveCommand(const std::string& outputs, const std::vector<std::string>& arguments) : outputs_(outputs) {
    process_ = std::make_unique<ChildProcess>([&] {
        appendTo(STDOUT_FILENO, outputs + ".out");
        appendTo(STDERR_FILENO, outputs + ".err");
        return becomeCommand(arguments);
    });
}

bool LiveCommand::awaitLines(std::size_t count) const {
    return await([&] {
        const std::string text = readNow(outputs_ + ".out");
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= count;
    });
}

bool LiveCommand::awaitText(const std::string& text) const {
    return await([&] { return output().find(text) != std::string::npos; });
}

bool LiveCommand::awaitErrors(const std::string& text) const {
    return await([&] { return errors().find(text) != std::string::npos; });
}

int LiveCommand::interrupt() {
    ::kill(process_->id(), SIGINT);
    return process_->wait();
}

}  // namespace tabulo::tool::test
