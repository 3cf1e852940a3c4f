// What the virtual tables of one SQLite connection share: the files, and the moment of which they are seen.
//
// A moment begins with a connection's first open cursor and lasts until its last one closes: all statements that run
// meanwhile see of each file what it held when the moment began, so that a table joined with itself agrees with itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "adapters/sqlite/sqlite.h"
#include "adapters/sqlite/table_file.h"

namespace tabulo::sqlite {

class TableSet;

// Ends the work of a cursor: the statement was interrupted.
struct Interrupted {};

struct WorkCounts {
    std::int64_t blocksRead = 0;
    std::int64_t blocksSkipped = 0;
    std::int64_t messagesRead = 0;
};

class Connection {
  public:
    explicit Connection(sqlite3* database) noexcept : database_(database) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Tables that are looked at when a moment begins.
    void add(TableSet* tables) { sets_.push_back(tables); }
    void remove(TableSet* tables) noexcept;

    void cursorOpened();
    void cursorClosed() noexcept;
    // Counts the moments: what was looked at in an earlier one is out of date. While no cursor is open, each question
    // is of a moment of its own.
    std::int64_t moment() noexcept { return openCursors_ > 0 ? moment_ : ++moment_; }

    // Throws Interrupted when the running statement is to end. Asked again and again during long work.
    void checkInterrupt();
    // The same as what watches long work of the library.
    Work work();

    sqlite3* database() const noexcept { return database_; }
    WorkCounts counts;  // of all cursors, for tabulo_stats

  private:
    sqlite3* database_;
    sqlite3_stmt* question_ = nullptr;  // whether the statement was interrupted,
    std::chrono::steady_clock::time_point askedLast_{};
    int openCursors_ = 0;
    std::int64_t moment_ = 0;
    std::vector<TableSet*> sets_;
};

}  // namespace tabulo::sqlite
