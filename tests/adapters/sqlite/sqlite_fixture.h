// A connection to SQLite that has the extension, and answers as text that tells types apart.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "adapters/sqlite/sqlite.h"

namespace tabulo::sqlite::test {

struct Blob {
    std::string bytes;
};
// NULL, an integer, a real, a text or a blob.
using SqlValue = std::variant<std::monostate, std::int64_t, double, std::string, Blob>;

// The value as an expression of SQL, whatever bytes a text holds.
std::string sqlLiteral(const SqlValue& value);
// A text of SQL in quotes: for paths and names.
std::string sqlText(const std::string& text);

struct Answer {
    std::vector<std::vector<std::string>> rows;  // as sqlLiteral writes values
    int code = SQLITE_OK;
    std::string error;  // in SQLite's words; empty without one

    // One line for each row, its values with '|' between; behind them the error.
    std::string text() const;
};

// A connection to a database in memory, with the extension.
class Connection {
  public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    sqlite3* handle() const { return handle_; }
    // Runs one statement with these parameters.
    Answer run(const std::string& sql, const std::vector<SqlValue>& parameters = {});
    // The same; fails the test at an error.
    Answer must(const std::string& sql, const std::vector<SqlValue>& parameters = {});
    // What it answers, as text.
    std::string text(const std::string& sql) { return run(sql).text(); }
    // What SQLite says about how it goes about a statement.
    std::string plan(const std::string& sql);
    // One of the numbers of tabulo_stats().
    std::int64_t stat(const std::string& name);

  private:
    sqlite3* handle_ = nullptr;
};

// A statement that is stepped by the test.
class Statement {
  public:
    Statement(const Connection& connection, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    int step() { return sqlite3_step(handle_); }
    std::int64_t integer(int column = 0) { return sqlite3_column_int64(handle_, column); }
    sqlite3_stmt* handle() const { return handle_; }

  private:
    sqlite3_stmt* handle_ = nullptr;
};

}  // namespace tabulo::sqlite::test
