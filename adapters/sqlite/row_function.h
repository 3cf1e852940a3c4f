// Table-valued functions that make all their rows when they are asked.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "adapters/sqlite/sqlite.h"

namespace tabulo::sqlite {

using RowCell = std::variant<std::monostate, std::int64_t, std::string>;
using Row = std::vector<RowCell>;

struct RowFunction {
    const char* name;
    // CREATE TABLE with the columns and, behind them, the hidden one that is the argument.
    const char* declaration;
    int columns;  // without the argument
    // Makes the rows for an argument that is not NULL. What it throws is the statement's error.
    std::vector<Row> (*rowsOf)(std::string_view argument);
    // Also for CREATE VIRTUAL TABLE with the argument, which is then a file's path.
    bool isTable;
};

// The function must outlive the connection. SQLite's codes.
int addRowFunction(sqlite3* database, const RowFunction* function);

}  // namespace tabulo::sqlite
