#include "tests/tool/typed_terminal.h"

#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace tabulo::tool::test {

TypedTerminal::TypedTerminal(const std::string& directory, const std::vector<std::string>& arguments) {
    int terminal = -1;
    struct winsize size {};
    size.ws_row = 25;
    size.ws_col = 100;
    if (::openpty(&master_, &terminal, nullptr, nullptr, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "openpty");
    }
    process_ = std::make_unique<ChildProcess>([&] {
        ::close(master_);
        ::setsid();
        ::ioctl(terminal, TIOCSCTTY, 0);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::dup2(terminal, descriptor);
        }
        ::close(terminal);
        // The user's own settings for editing stand in another home.
        return becomeCommand(
            arguments, {.directory = directory, .environment = {"TERM=xterm", "LC_ALL=C.UTF-8", "HOME=" + directory}});
    });
    ::close(terminal);
    reader_ = std::thread([this] { read(); });
}

TypedTerminal::~TypedTerminal() {
    process_->kill();
    reader_.join();
    ::close(master_);
}

void TypedTerminal::read() {
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = ::read(master_, buffer.data(), buffer.size())) > 0 || (count < 0 && errno == EINTR)) {
        const std::lock_guard lock(mutex_);
        output_.append(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

void TypedTerminal::type(const std::string& keys) const {
    if (::write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
        throw std::system_error(errno, std::generic_category(), "typing");
    }
}

bool TypedTerminal::await(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        {
            const std::lock_guard lock(mutex_);
            const std::size_t found = output_.find(text, awaited_);
            if (found != std::string::npos) {
                awaited_ = found + text.size();
                return true;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

std::string TypedTerminal::output() const {
    const std::lock_guard lock(mutex_);
    return output_;
}

}  // namespace tabulo::tool::test
