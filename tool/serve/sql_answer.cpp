// /api/sql: the rows of a statement over the served tables.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "tabulo/columns.h"
#include "tool/serve/answers.h"
#include "tool/serve/limits.h"
#include "tool/sql_session.h"
#include "tool/text_bytes.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::int64_t LARGEST_VALUE = std::int64_t{16} * 1024 * 1024;
constexpr std::size_t LONGEST_SHOWN = 4096;

// SQLite's memory is that of the process, so that statements run one after the other; a sorter that needs more uses
// temporary files. Values that one statement builds are bounded, too.
std::mutex& statementMutex() {
    static std::mutex mutex;
    return mutex;
}

void appendValue(sqlite3_stmt* statement, int column, Json* json) {
    const auto bytes = [&](const void* data) {
        return std::string_view(static_cast<const char*>(data),
                                static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
    };
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER: {
            const std::int64_t value = sqlite3_column_int64(statement, column);
            constexpr std::int64_t LARGEST = std::int64_t{1} << 53U;  // that a page's numbers hold exactly
            value <= LARGEST&& value >= -LARGEST ? json->number(value) : json->text(std::to_string(value));
            break;
        }
        case SQLITE_FLOAT:
            json->number(sqlite3_column_double(statement, column));
            break;
        case SQLITE_TEXT:
        case SQLITE_BLOB: {
            const bool isText = sqlite3_column_type(statement, column) == SQLITE_TEXT;
            const std::string_view whole =
                bytes(isText ? sqlite3_column_text(statement, column) : sqlite3_column_blob(statement, column));
            const std::string_view shown = whole.substr(0, LONGEST_SHOWN);
            if (shown.size() == whole.size() && isText && isUtf8(whole)) {
                json->text(whole);
            } else if (isText) {
                json->text(shown);
            } else {
                std::string base64;
                appendBase64(shown, &base64);
                json->begin().key("base64").text(base64).end();
            }
            break;
        }
        default:
            json->null();
    }
}

}  // namespace

std::string answerSql(Question& question, const std::string& statement) {
    if (statement.empty() || statement.find('\0') != std::string::npos) {
        throw Refusal(400, "the body of the request is the statement");
    }
    const std::lock_guard one(statementMutex());
    question.check();
    sqlite3_soft_heap_limit64(STATEMENT_MEMORY / 2);
    sqlite3_hard_heap_limit64(STATEMENT_MEMORY);
    const auto begun = std::chrono::steady_clock::now();
    std::vector<std::string> paths;
    for (const Sight& table : question.sights()) {
        paths.push_back(table->path.string());
    }
    Json json;
    json.begin().key("columns").beginList();
    std::int64_t rows = 0;
    bool isMore = false;
    try {
        SqlSession session(question.console());
        session.addTables(paths, "");
        session.limit(LARGEST_VALUE);
        session.allowReadingOnly();
        const bool isDone = session.query(
            statement, [&] { return std::chrono::steady_clock::now() - begun > STATEMENT_TIME || question.isOver(); },
            [&](sqlite3_stmt* prepared) {
                for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                    json.text(sqlite3_column_name(prepared, i));
                }
                json.endList().key("rows").beginList();
            },
            [&](sqlite3_stmt* prepared) {
                isMore = rows >= MOST_ROWS || json.size() > LARGEST_ANSWER;
                if (isMore) {
                    return false;
                }
                rows += 1;
                json.beginList();
                for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                    appendValue(prepared, i, &json);
                }
                json.endList();
                return true;
            });
        if (!isDone) {
            throw Refusal(408,
                          fmt::format("the statement took more than {} s, and was ended: ask for less, with WHERE or "
                                      "LIMIT",
                                      STATEMENT_TIME.count()));
        }
    } catch (const Failure& failure) {
        throw Refusal(400, failure.what());
    } catch (const std::bad_alloc&) {
        throw Refusal(413,
                      fmt::format("the statement needs more than {} MiB of memory", STATEMENT_MEMORY / 1024 / 1024));
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
    json.endList().key("more").flag(isMore).key("seconds").number(seconds.count()).end();
    return json.take();
}

}  // namespace tabulo::tool::serve
