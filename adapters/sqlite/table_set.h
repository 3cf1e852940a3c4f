// The message tables that a virtual table shows.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adapters/sqlite/connection.h"
#include "adapters/sqlite/table_file.h"

namespace tabulo::sqlite {

class TableSet {
  public:
    enum class Layouts { one, any };

    // The files that these paths and globs stand for, in their order. A glob leaves out folders, hidden files, side
    // indexes, what recoveries have cut out, and session info tables; files that come are found when a moment begins,
    // and files that go are left out. Throws the errors of TableFile; fileOpen for a glob without a match;
    // configMismatch for a file whose fields are not those of the first one, where all must have the same.
    TableSet(Connection& connection, std::vector<std::string> patterns, Layouts layouts,
             std::optional<TimeUnit> unit = std::nullopt);
    ~TableSet();
    TableSet(const TableSet&) = delete;
    TableSet& operator=(const TableSet&) = delete;

    // Looks at the files as of a moment. What is wrong with them is kept, and thrown by files().
    void look(std::int64_t moment) noexcept;
    // Of the connection's moment: what there is at each number; null for a file that has gone.
    const std::vector<std::unique_ptr<TableFile>>& files();
    // The layout of the first file.
    const Layout& layout() const noexcept { return layout_; }
    // The unit of a file's times: the one that was given, or that of the first table with one where all have the same
    // fields, or its own.
    std::optional<TimeUnit> unitOf(const TableFile& file) const noexcept;

    // What was found, by looking at some messages, about the values of some columns (grouped_rows.h).
    struct Guess {
        double messages;  // that there were then
        bool haveFewValues;
    };
    std::map<std::vector<int>, Guess> guesses;

  private:
    void find(std::int64_t moment);
    void addFile(const std::string& path, bool isFound);
    std::vector<std::string> expand(const std::string& pattern) const;

    Connection& connection_;
    const std::vector<std::string> patterns_;
    const Layouts layouts_;
    const std::optional<TimeUnit> unit_;
    Layout layout_;
    std::string first_;  // the path of the file that has given it
    std::vector<std::unique_ptr<TableFile>> files_;
    std::map<std::string, std::size_t> numbers_;  // of the paths in files_
    std::int64_t moment_ = -1;
    std::exception_ptr failure_;
};

}  // namespace tabulo::sqlite
