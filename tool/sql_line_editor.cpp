#include "tool/sql_line_editor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <vector>

#include "tool/sql_words.h"

#ifdef TABULO_HAS_LIBEDIT
#include <editline/readline.h>
#endif

namespace tabulo::tool {

std::optional<std::string> SqlInput::line() {
    std::size_t end = gathered_.find('\n');
    while (end == std::string::npos && !hasEnded_) {
        constexpr std::size_t ROOM = std::size_t{64} * 1024;
        const std::size_t had = gathered_.size();
        gathered_.resize(had + ROOM);
        const ssize_t count = ::read(STDIN_FILENO, gathered_.data() + had, ROOM);
        const int error = errno;
        gathered_.resize(had + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count < 0 && error == EINTR && Console::isInterrupted()) {
            return std::nullopt;
        }
        if (count < 0 && error != EINTR) {
            throw Failure(fmt::format("standard input cannot be read: {}", std::strerror(error)));
        }
        hasEnded_ = count == 0;
        end = gathered_.find('\n', had);
    }
    if (end == std::string::npos && gathered_.empty()) {
        return std::nullopt;
    }
    std::string line = gathered_.substr(0, end);
    gathered_.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

std::optional<std::string> SqlLineEditor::plainLine(const char* prompt) {
    if (isForEyes_) {
        std::fputs(prompt, stdout);
        std::fflush(stdout);
    }
    return input_.line();
}

#ifdef TABULO_HAS_LIBEDIT

namespace {

// libedit calls plain functions without an argument of ours.
const SqlSession* editedSession = nullptr;
std::vector<std::string> offered;

// A character from the terminal; -1 at its end, and when the user interrupts, which ends the line.
int readCharacter(std::FILE*) {
    std::mbstate_t state{};
    for (;;) {
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count == 0 || (count < 0 && (errno != EINTR || Console::isInterrupted()))) {
            return -1;
        }
        wchar_t character = 0;
        const std::size_t length =
            count < 0 ? static_cast<std::size_t>(-2) : std::mbrtowc(&character, &byte, 1, &state);
        if (length == static_cast<std::size_t>(-1)) {
            return '?';
        }
        if (length != static_cast<std::size_t>(-2)) {
            return static_cast<int>(character);
        }
    }
}

char* nextOffered(const char*, int state) {
    static std::size_t next = 0;
    next = state == 0 ? 0 : next;
    return next < offered.size() ? ::strdup(offered[next++].c_str()) : nullptr;
}

char** complete(const char* begun, int start, int) {
    rl_attempted_completion_over = 1;  // never names of files
    try {
        offered = sqlWords(*editedSession, std::string_view(rl_line_buffer, static_cast<std::size_t>(start)), begun);
    } catch (const std::exception&) {
        offered.clear();
    }
    return offered.empty() ? nullptr : rl_completion_matches(begun, nextOffered);
}

}  // namespace

SqlLineEditor::SqlLineEditor(const SqlSession& session) : isForEyes_(::isatty(STDOUT_FILENO) != 0) {
    editedSession = &session;
    std::setlocale(LC_CTYPE, "");
    static std::array<char, 16> name{"tabulo"};
    rl_readline_name = name.data();
    rl_basic_word_break_characters = " \t\n\"'`,;:()=<>+-*/%|&~!.";
    rl_completer_word_break_characters = const_cast<char*>(rl_basic_word_break_characters);
    rl_attempted_completion_function = complete;
    rl_getc_function = readCharacter;
    using_history();
}

SqlLineEditor::~SqlLineEditor() {
    clear_history();
    editedSession = nullptr;
}

std::optional<std::string> SqlLineEditor::line(const char* prompt) {
    if (!isForEyes_) {
        return plainLine(prompt);
    }
    const std::unique_ptr<char, void (*)(void*)> typed(::readline(prompt), std::free);
    if (typed == nullptr) {
        std::fputc('\n', stdout);  // the prompt is left as it stands
        std::fflush(stdout);
        return std::nullopt;
    }
    if (*typed != '\0') {
        add_history(typed.get());
    }
    return std::string(typed.get());
}

#else

SqlLineEditor::SqlLineEditor(const SqlSession&) : isForEyes_(::isatty(STDOUT_FILENO) != 0) {
}

SqlLineEditor::~SqlLineEditor() = default;

std::optional<std::string> SqlLineEditor::line(const char* prompt) {
    return plainLine(prompt);
}

#endif

}  // namespace tabulo::tool
