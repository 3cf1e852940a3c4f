// The verb sql: statements over tables, by SQLite. A build without SQLite has another source behind this header, which
// tells what is missing.
#pragma once

#include <string>
#include <vector>

#include "tool/console.h"
#include "tool/times.h"

namespace tabulo::tool {

enum class SqlFormat { text, csv, ndjson };

struct SqlOptions {
    std::string first;               // the statement, or a file when there is one of that name
    std::vector<std::string> files;  // what stands behind it
    SqlFormat format = SqlFormat::text;
    std::string timeUnit;  // empty: guessed
};

// Runs the statement, or those from standard input, or asks for them on a terminal. Failure with SQLite's words.
void runSql(Console& console, const SqlOptions& options);

}  // namespace tabulo::tool
