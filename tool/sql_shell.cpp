#include "tool/sql_shell.h"

#include <fmt/format.h>

#include <optional>

#include "tool/listing.h"
#include "tool/sql_line_editor.h"
#include "tool/sql_words.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view HELP =
    "Statements end with ';' and may have several lines. Ctrl-C ends one, Ctrl-D this.\n"
    "  .tables          the tables, and what they are made of\n"
    "  .schema [TABLE]  the columns of all tables, or of one\n"
    "  .help            this\n"
    "  .quit            ends\n"
    "For FIX: fix_tag(wire, 54), fix_text(wire), fix_name(54, '1'), and as a table fix_tags(wire).\n";

bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::string trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n;");
    const std::size_t end = text.find_last_not_of(" \t\r\n;");
    return begin == std::string_view::npos ? std::string() : std::string(text.substr(begin, end + 1 - begin));
}

// Takes lines until they make statements, and runs those.
class Statements {
  public:
    Statements(Console& console, SqlSession& session, SqlFormat format)
        : console_(console), session_(session), format_(format) {}

    bool hasBegun() const noexcept { return !gathered_.empty(); }
    bool hasEnded() const noexcept { return hasEnded_; }
    void forget() { gathered_.clear(); }

    // One more line, without its end.
    void take(const std::string& line) {
        if (gathered_.empty() && (isBlank(line) || line[0] == '.')) {
            runCommand(trimmed(line));
            return;
        }
        gathered_ += line + '\n';
        if (sqlite3_complete(gathered_.c_str()) != 0) {
            finish();
        }
    }

    // What was taken is all that comes.
    void finish() {
        const std::string statements = std::move(gathered_);
        gathered_.clear();
        session_.run(statements, format_);
    }

  private:
    void runCommand(const std::string& line) {
        const std::string word = line.substr(0, line.find_first_of(" \t"));
        const std::string argument = trimmed(std::string_view(line).substr(word.size()));
        if (word == ".tables") {
            session_.run(tablesQuery(), format_);
        } else if (word == ".schema") {
            session_.run(columnsQuery(argument), format_);
        } else if (word == ".help") {
            console_.write(HELP);
        } else if (word == ".quit") {
            hasEnded_ = true;
        } else if (!word.empty()) {
            throw Failure(fmt::format("there is no command {}; .help lists them", shownText(word)));
        }
    }

    Console& console_;
    SqlSession& session_;
    SqlFormat format_;
    std::string gathered_;
    bool hasEnded_ = false;
};

}  // namespace

void runSqlShell(Console& console, SqlSession& session, SqlFormat format) {
    Statements statements(console, session, format);
    SqlLineEditor editor(session);
    if (editor.isForEyes()) {
        console.say(".help tells what there is, .tables lists the tables");
    }
    while (!statements.hasEnded()) {
        console.flush();
        const std::optional<std::string> line = editor.line(statements.hasBegun() ? "   ...> " : "tabulo> ");
        if (Console::takeInterrupt()) {
            statements.forget();
            continue;
        }
        if (!line.has_value()) {
            break;
        }
        try {
            statements.take(*line);
        } catch (const Failure& failure) {
            console.say(failure.what());
        } catch (const Interrupted&) {
            (void)Console::takeInterrupt();
            console.say("interrupted");
        }
    }
}

void runSqlInput(Console& console, SqlSession& session, SqlFormat format) {
    Statements statements(console, session, format);
    SqlInput input;
    while (!statements.hasEnded()) {
        const std::optional<std::string> line = input.line();
        Console::checkInterrupt();
        if (!line.has_value()) {
            statements.finish();
            break;
        }
        statements.take(*line);
    }
}

}  // namespace tabulo::tool
