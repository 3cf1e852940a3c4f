#include "tool/sql_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <stop_token>
#include <thread>

#include "adapters/sqlite/extension.h"
#include "tool/listing.h"
#include "tool/lowered.h"
#include "tool/sql_output.h"
#include "tool/sql_words.h"
#include "tool/table_cells.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

constexpr std::chrono::milliseconds INTERRUPT_TIME(10);
constexpr std::size_t SHOWN_OF_STATEMENT = 40;
// What stands where a table does, and takes its input from its arguments alone.
constexpr std::array<std::string_view, 3> FUNCTIONS_AS_TABLES = {"json_each", "json_tree", "fix_tags"};

struct StatementCloser {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

// Interrupts what a connection does when that is over: the user asks for it, for example.
class InterruptWatch {
  public:
    InterruptWatch(sqlite3* connection, std::function<bool()> isOver)
        : isOver_(std::move(isOver)),
          thread_([this, connection](const std::stop_token& stop) { watch(connection, stop); }) {}

  private:
    void watch(sqlite3* connection, const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        while (!stop.stop_requested()) {
            if (isOver_()) {
                sqlite3_interrupt(connection);  // again and again: it is forgotten when no statement runs
            }
            wake_.wait_for(lock, stop, INTERRUPT_TIME, [] { return false; });
        }
    }

    std::function<bool()> isOver_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::jthread thread_;  // the last one: it ends before what it uses
};

std::string pathArgument(const std::filesystem::path& path) {
    return sqlQuoted(path.string(), '\'');
}

std::string unitArgument(const std::string& timeUnit) {
    return timeUnit.empty() ? "" : fmt::format(", time_unit='{}'", timeUnit);
}

}  // namespace

SqlSession::SqlSession(Console& console) : console_(console) {
    sqlite3* opened = nullptr;
    constexpr int FLAGS = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY | SQLITE_OPEN_NOMUTEX;
    const int code = sqlite3_open_v2(":memory:", &opened, FLAGS, nullptr);
    connection_.reset(opened);
    if (opened == nullptr) {
        throw std::bad_alloc();
    }
    char* message = nullptr;
    if (code != SQLITE_OK || sqlite::addTo(opened, &message) != SQLITE_OK) {
        const std::string why = message != nullptr ? message : sqlite3_errmsg(opened);
        sqlite3_free(message);
        throw Failure(fmt::format("SQLite cannot be used: {}", shownText(why)));
    }
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);  // a misspelled "name" is an error, and no text
    sqlite3_set_authorizer(opened, authorize, this);
}

int SqlSession::authorize(void* data, int action, const char* first, const char* second, const char*, const char*) {
    auto* const session = static_cast<SqlSession*>(data);
    if (session->isReadingOnly_ ? session->isAllowed(action, first, second) : action != SQLITE_ATTACH) {
        return SQLITE_OK;
    }
    session->isRefused_ = true;
    return SQLITE_DENY;
}

// Tables that open a file by its name, and what SQLite tells of itself, are not among them.
bool SqlSession::isAllowed(int action, const char* first, const char* second) const {
    switch (action) {
        case SQLITE_SELECT:
        case SQLITE_RECURSIVE:
            return true;
        case SQLITE_READ: {
            const std::string table = lowered(first != nullptr ? first : "");
            return taken_.contains(table) || std::find(FUNCTIONS_AS_TABLES.begin(), FUNCTIONS_AS_TABLES.end(), table) !=
                                                 FUNCTIONS_AS_TABLES.end();
        }
        case SQLITE_FUNCTION: {
            const std::string function = lowered(second != nullptr ? second : "");
            return function != "load_extension" && function != "fts3_tokenizer" && function != "zeroblob" &&
                   function != "randomblob";
        }
        default:
            return false;
    }
}

void SqlSession::allowReadingOnly() {
    for (const std::string_view function : FUNCTIONS_AS_TABLES) {
        (void)texts(fmt::format("SELECT 1 FROM {}('')", function));  // makes its table, which is not allowed later
    }
    isReadingOnly_ = true;
}

bool SqlSession::query(const std::string& statement, const std::function<bool()>& isOver,
                       const std::function<void(sqlite3_stmt*)>& head, const std::function<bool(sqlite3_stmt*)>& row) {
    const InterruptWatch watch(connection_.get(), isOver);
    isRefused_ = false;
    sqlite3_stmt* prepared = nullptr;
    const char* rest = nullptr;
    int code = sqlite3_prepare_v2(connection_.get(), statement.c_str(), -1, &prepared, &rest);
    const Statement owned(prepared);
    if (code != SQLITE_OK) {
        fail(code, statement);
    }
    if (prepared == nullptr || std::string_view(rest).find_first_not_of(" \t\r\n;") != std::string_view::npos) {
        throw Failure(prepared == nullptr ? "there is no statement" : "one statement at a time: more stands behind it");
    }
    head(prepared);
    while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
        if (!row(prepared)) {
            return true;
        }
    }
    if (code == SQLITE_INTERRUPT) {
        return false;
    }
    if (code != SQLITE_DONE) {
        fail(code, {});
    }
    return true;
}

void SqlSession::addTables(const std::vector<std::string>& arguments, const std::string& timeUnit) {
    std::vector<TableInfo> messages;
    for (const NamedFile& file : expandPaths(console_, arguments)) {
        Console::checkInterrupt();
        try {
            TableInfo info = inspect(file.path);
            addTable(file, info, timeUnit);
            if (info.kind == TableKind::messages) {
                messages.push_back(std::move(info));
            }
        } catch (const Error&) {
            skipOrThrow(console_, file);
        }
    }
    if (taken_.empty() && !arguments.empty()) {
        throw Failure("there is no table to read");
    }
    addMessages(messages, timeUnit);
}

void SqlSession::addTable(const NamedFile& file, const TableInfo& info, const std::string& timeUnit) {
    const bool hasMessages = info.kind == TableKind::messages;
    const std::string name = nameFor(info);
    const bool isMade = create(fmt::format("CREATE VIRTUAL TABLE {} USING {}({}{})", sqlQuoted(name, '"'),
                                           hasMessages ? "tabulo" : "tabulo_session", pathArgument(file.path),
                                           hasMessages ? unitArgument(timeUnit) : ""));
    if (!isMade) {
        const std::string why = shownText(sqlite3_errmsg(connection_.get()));
        if (!file.fromFolder) {
            throw Failure(why);
        }
        console_.warn(fmt::format("{} is left out: {}", shownPath(file.path), why));
        return;
    }
    taken_.insert(lowered(name));
    if (name != info.name) {
        console_.say(fmt::format("{} is the table {}", shownPath(file.path), name));
    }
}

// All message tables as one, where they can be; a single one by a name that is always there.
void SqlSession::addMessages(const std::vector<TableInfo>& tables, const std::string& timeUnit) {
    const auto isOther = [&tables](const TableInfo& info) {
        return info.layout.texts != tables[0].layout.texts || info.layout.numbers != tables[0].layout.numbers;
    };
    const std::string name = "messages";
    if (tables.empty() || taken_.contains(name) || std::any_of(tables.begin(), tables.end(), isOther)) {
        return;
    }
    std::string paths;
    for (const TableInfo& info : tables) {
        paths += (paths.empty() ? "" : ", ") + pathArgument(info.path);
    }
    if (create(fmt::format("CREATE VIRTUAL TABLE {} USING tabulo({}{})", name, paths, unitArgument(timeUnit)))) {
        taken_.insert(name);
    } else {
        console_.say(fmt::format("there is no table {}: {}", name, shownText(sqlite3_errmsg(connection_.get()))));
    }
}

// The name of a table for a file: free, and none that SQLite keeps for itself.
std::string SqlSession::nameFor(const TableInfo& info) {
    std::string name = isUtf8(info.name) ? info.name : shownText(info.name);
    if (lowered(name).starts_with("sqlite_")) {
        name.insert(0, "_");
    }
    std::string unique = name;
    for (int n = 2; taken_.contains(lowered(unique)); ++n) {
        unique = fmt::format("{}_{}", name, n);
    }
    return unique;
}

bool SqlSession::create(const std::string& statement) {
    return sqlite3_exec(connection_.get(), statement.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

void SqlSession::run(const std::string& text, SqlFormat format) {
    const InterruptWatch watch(connection_.get(), &Console::isInterrupted);
    const char* next = text.c_str();
    while (*next != '\0') {
        Console::checkInterrupt();
        isRefused_ = false;
        const char* const begin = next;
        sqlite3_stmt* prepared = nullptr;
        const int code = sqlite3_prepare_v2(connection_.get(), next, -1, &prepared, &next);
        const Statement statement(prepared);
        if (code != SQLITE_OK) {
            fail(code, begin);
        }
        if (statement != nullptr) {  // else there was but a comment
            runStatement(statement.get(), format);
            console_.flush();
        }
    }
    Console::checkInterrupt();
}

void SqlSession::runStatement(sqlite3_stmt* statement, SqlFormat format) {
    SqlOutput output(console_, format, statement);
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
        output.add();
    }
    output.end();
    if (code != SQLITE_DONE) {
        fail(code, {});
    }
}

void SqlSession::fail(int code, std::string_view statement) const {
    console_.flush();
    if (code == SQLITE_INTERRUPT) {
        Console::checkInterrupt();
    }
    if (code == SQLITE_NOMEM) {
        throw std::bad_alloc();
    }
    if (isRefused_ && isReadingOnly_) {
        throw Failure(fmt::format("this may not be asked here: statements SELECT from the tables that are served ({})",
                                  shownText(sqlite3_errmsg(connection_.get()))));
    }
    if (isRefused_) {
        throw Failure(
            "ATTACH and VACUUM are refused, because they can write files and this verb never does; copy rows out with "
            "-o csv or -o ndjson, or load the extension tabulo_sqlite into sqlite3 to use tables beside a database");
    }
    std::string why = shownText(sqlite3_errmsg(connection_.get()));
    const int offset = statement.empty() ? -1 : sqlite3_error_offset(connection_.get());
    if (offset >= 0 && static_cast<std::size_t>(offset) < statement.size()) {
        const std::string place = shownText(statement.substr(static_cast<std::size_t>(offset)));
        why += fmt::format(", at: {}", cutText(place, SHOWN_OF_STATEMENT));
    }
    throw Failure(why);
}

std::vector<std::string> SqlSession::texts(const std::string& query) const {
    std::vector<std::string> texts;
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(connection_.get(), query.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
        return texts;
    }
    const Statement statement(prepared);
    while (sqlite3_step(prepared) == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(prepared, 0));
        if (text != nullptr) {
            texts.emplace_back(text);
        }
    }
    return texts;
}

}  // namespace tabulo::tool
