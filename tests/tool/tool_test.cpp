#include "tests/tool/tool_test.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"

namespace tabulo::tool::test {

namespace {

constexpr std::int64_t FIRST_TIME = 1795203105673;  // 2026-11-20T19:31:45.673Z
constexpr std::int64_t TIME_STEP = 250;

void redirect(int descriptor, const std::string& path, int flags) {
    const int opened = ::open(path.c_str(), flags, 0666);
    ::dup2(opened, descriptor);
    ::close(opened);
}

// Replaces this process by a program with its words, the first of which is its name; 121 when that fails.
int execute(const char* program, std::vector<std::string> words, const CommandSettings& settings) {
    if (!settings.directory.empty() && ::chdir(settings.directory.c_str()) != 0) {
        return 120;
    }
    ::setenv("TZ", "UTC", 1);
    ::unsetenv("NO_COLOR");
    for (std::string variable : settings.environment) {
        const std::size_t equals = variable.find('=');
        ::setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
    }
    ::setenv("TABULO", TABULO_COMMAND, 1);
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    ::execv(program, pointers.data());
    return 121;
}

// What is printed to a terminal until the last process that has it is gone.
std::string readTerminal(int descriptor) {
    std::string printed;
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0 || (count < 0 && errno == EINTR)) {
        printed.append(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    for (std::size_t end = 0; (end = printed.find("\r\n", end)) != std::string::npos;) {
        printed.erase(end, 1);
    }
    return printed;
}

std::vector<std::string> commandWords(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"tabulo"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

ProgramResult runProgram(const char* program, const std::vector<std::string>& words, const CommandSettings& settings) {
    const TemporaryDirectory scratch;
    const std::string input = scratch.file("input");
    const std::string output = scratch.file("output");
    const std::string errors = scratch.file("errors");
    internal::test::writeFile(input, internal::test::fromText(settings.input));
    ChildProcess child([&] {
        redirect(STDIN_FILENO, input, O_RDONLY);
        redirect(STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC);
        redirect(STDERR_FILENO, errors, O_WRONLY | O_CREAT | O_TRUNC);
        return execute(program, words, settings);
    });
    if (settings.meanwhile) {
        settings.meanwhile(child.id());
    }
    ProgramResult result;
    result.status = child.wait();
    result.id = child.id();
    result.output = readText(output);
    result.errors = readText(errors);
    return result;
}

}  // namespace

int becomeCommand(const std::vector<std::string>& arguments, const CommandSettings& settings) {
    return execute(TABULO_COMMAND, commandWords(arguments), settings);
}

ProgramResult runCommand(const std::vector<std::string>& arguments, const CommandSettings& settings) {
    return runProgram(TABULO_COMMAND, commandWords(arguments), settings);
}

ProgramResult runScript(const std::string& script, const CommandSettings& settings) {
    return runProgram("/bin/bash", {"bash", "-c", script}, settings);
}

ProgramResult runOnTerminal(const std::vector<std::string>& arguments, int columns, const CommandSettings& settings) {
    int master = -1;
    int terminal = -1;
    struct winsize size {};
    size.ws_row = 25;
    size.ws_col = static_cast<unsigned short>(columns);
    if (::openpty(&master, &terminal, nullptr, nullptr, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "openpty");
    }
    ChildProcess child([&] {
        ::close(master);
        ::setsid();
        ::ioctl(terminal, TIOCSCTTY, 0);
        ::dup2(terminal, STDIN_FILENO);
        ::dup2(terminal, STDOUT_FILENO);
        ::dup2(terminal, STDERR_FILENO);
        return becomeCommand(arguments, settings);
    });
    ::close(terminal);
    ProgramResult result;
    std::thread reader([&] { result.output = readTerminal(master); });
    if (settings.meanwhile) {
        settings.meanwhile(child.id());
    }
    result.status = child.wait();
    result.id = child.id();
    reader.join();
    ::close(master);
    return result;
}

std::string withLockList(std::string output) {
    const auto replaceAll = [&output](std::string_view what, std::string_view with) {
        for (std::size_t at = 0; (at = output.find(what, at)) != std::string::npos;) {
            output.replace(at, what.size(), with);
        }
    };
    replaceAll("  ", " ");
    replaceAll(" unknown ", " no ");
    replaceAll("\"openForWriting\":null", "\"openForWriting\":false");
    return output;
}

int occurrences(std::string_view text, std::string_view wanted) {
    int count = 0;
    for (std::size_t at = 0; (at = text.find(wanted, at)) != std::string_view::npos; at += wanted.size()) {
        ++count;
    }
    return count;
}

Layout ordersLayout(std::int32_t messagesPerBlock) {
    return {.texts = {"Symbol", "ClOrdID"}, .numbers = {"Price", "OrderQty"}, .messagesPerBlock = messagesPerBlock};
}

std::int64_t orderTime(std::int32_t n) {
    return FIRST_TIME + TIME_STEP * (n - 1);
}

OrderMessage::OrderMessage(std::int32_t n) {
    const bool isHeartbeat = n % 10 == 0;
    const bool isReport = n % 2 == 0 && !isHeartbeat;
    const MessageClass messageClass = isHeartbeat ? MessageClass::adminTo
                                      : isReport  ? MessageClass::appFrom
                                                  : MessageClass::appTo;
    const std::string type = isHeartbeat ? "0" : isReport ? "8" : "D";
    const std::int32_t seqNum = isReport ? n / 2 - n / 10 : n - (n / 2 - n / 10);
    const std::string number = std::to_string(n);
    const std::string symbol = n % 2 == 0 ? "ACME" : "INITECH";
    const std::string order = "order-" + std::to_string((n + 1) / 2);
    const std::string wire = "8=FIX.4.4\00135=" + type + "\00134=" + std::to_string(seqNum) + "\00111=" + order +
                             "\00155=" + symbol + "\00110=000\001";
    texts_ = {type, symbol, order, wire, "note " + number, "t" + number};
    message.uniformId = n;
    message.seqNum = seqNum;
    message.id = firstId(messageClass) + n;
    message.time = orderTime(n);
    message.type = texts_[0];
    message.possDup = n % 7 == 0;
    message.text0 = texts_[5];
    message.texts = {n % 3 == 0 ? Text() : Text(texts_[1]), Text(texts_[2])};
    message.numbers = {n % 4 == 0 ? Number() : Number(100 + n * 0.25), Number(std::int64_t{100} * n)};
    message.wire = texts_[3];
    message.nonMetadata = texts_[4];
}

std::string ToolTest::makeOrders(std::string_view name, std::int32_t last, std::int32_t first,
                                 std::int32_t messagesPerBlock) const {
    const std::string path = file(name);
    Writer writer = Writer::create(path, ordersLayout(messagesPerBlock));
    for (std::int32_t n = first; n <= last; ++n) {
        writer.append(OrderMessage(n).message);
    }
    writer.close();
    return path;
}

std::string ToolTest::makeSession(std::string_view name) const {
    const std::string path = file(name);
    SessionInfo session = SessionInfo::create(path, std::vector<std::int32_t>{1, 2, 9});
    session.write(std::vector<SessionValue>{{1, 17}, {2, 42}, {9, -1}});
    session.close();
    return path;
}

std::string ToolTest::makeFile(std::string_view name, std::string_view content) const {
    internal::test::writeFile(file(name), internal::test::fromText(content));
    return file(name);
}

ProgramResult ToolTest::run(const std::vector<std::string>& arguments) const {
    CommandSettings settings;
    settings.directory = directory.path();
    return runCommand(arguments, settings);
}

std::vector<std::pair<std::string, Bytes>> ToolTest::contents() const {
    std::vector<std::pair<std::string, Bytes>> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
        if (entry.is_regular_file()) {
            files.emplace_back(entry.path().string(), readFile(entry.path().string()));
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace tabulo::tool::test
