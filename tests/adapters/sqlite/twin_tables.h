// Random message tables twice in one connection: as a virtual table over their files, and as an ordinary table of
// SQLite with the same rows, made from what was stored.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/adapters/sqlite/sqlite_fixture.h"
#include "tests/api/random_stored.h"
#include "tests/api/stored_table.h"

namespace tabulo::sqlite::test {

using tabulo::test::Random;
using tabulo::test::StoredMessage;
using tabulo::test::StoredTable;

enum class ColumnType { integer, text, any, blob };

struct TwinColumn {
    std::string name;  // as SQL takes it: quoted where it must be
    ColumnType type = ColumnType::text;
    bool isHidden = false;  // in the virtual table
};

// The columns of tables with this layout, in their order, and the rowid behind them.
std::vector<TwinColumn> twinColumns(const Layout& layout);

// What times are in a table: how they are told, and which ones it holds.
enum class TwinTimes {
    guessed,      // milliseconds of 2026
    given,        // the same and any other, with time_unit='ms'
    withoutUnit,  // small numbers
};

// ISO 8601 in UTC of a time with so many digits behind the second's point; the number where the year has not four.
std::string isoText(std::int64_t time, int digits);

class TwinTables {
  public:
    // Makes one to three files in the folder, and the tables live<number> and kept<number>.
    TwinTables(Connection& connection, Random& random, const std::filesystem::path& folder, int number);

    // The same over a file that there is, with times in microseconds.
    TwinTables(Connection& connection, const std::filesystem::path& path, int number);

    // Stores messages, in random files and in both tables.
    void store(Random& random, int count);

    std::size_t rowCount() const { return rows.size(); }

    std::vector<TwinColumn> columns;
    std::vector<std::vector<SqlValue>> rows;  // of kept<number>, values in the order of the columns
    std::string words;                        // the files and what is in them, for a failing test

  private:
    StoredMessage nextMessage(Random& random, const StoredTable& file);
    void createKept();
    void keep(const StoredTable& file, std::size_t fileNumber);
    void keep(const StoredMessage& message, const std::filesystem::path& path, const Position& place,
              const std::string& time, std::int64_t rowid);

    Connection& connection_;
    int number_;
    TwinTimes times_ = TwinTimes::guessed;
    bool ascends_ = true;
    std::int32_t uniformId_ = 0;
    std::vector<std::unique_ptr<StoredTable>> files_;
};

}  // namespace tabulo::sqlite::test
