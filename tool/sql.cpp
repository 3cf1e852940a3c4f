#include "tool/sql.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "tool/listing.h"
#include "tool/sql_session.h"
#include "tool/sql_shell.h"

namespace tabulo::tool {

namespace {

bool isThere(const std::string& path) {
    std::error_code error;  // a long statement is too long for a name
    return std::filesystem::exists(path, error);
}

// What is no file may still have been meant as one.
bool isOneWord(const std::string& text) {
    return text.find_first_of(" \t\n;(") == std::string::npos;
}

}  // namespace

void runSql(Console& console, const SqlOptions& options) {
    std::vector<std::string> files = options.files;
    std::optional<std::string> statement;
    if (options.first.empty() && files.empty()) {
        throw UsageError("a FILE is missing");
    }
    if (isThere(options.first)) {
        files.insert(files.begin(), options.first);
    } else if (isOneWord(options.first)) {
        throw Failure(fmt::format("'{}' is no statement, and there is no file of that name", shownText(options.first)));
    } else {
        statement = options.first;
    }
    SqlSession session(console);
    session.addTables(files, options.timeUnit);
    if (statement.has_value()) {
        session.run(*statement, options.format);
    } else if (::isatty(STDIN_FILENO) != 0) {
        runSqlShell(console, session, options.format);
    } else {
        runSqlInput(console, session, options.format);
    }
}

}  // namespace tabulo::tool
