// The side indexes of several tables: made one after the other, and kept up to date in turn, for the verb index.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/index.h"
#include "tabulo/table_info.h"
#include "tool/console.h"
#include "tool/listing.h"
#include "tool/tables.h"

namespace tabulo::tool {

// What a table's index covers.
struct IndexState {
    std::filesystem::path path;
    std::int64_t messages = 0;                            // of the table
    std::int64_t bytes = 0;                               // of the table
    std::optional<IndexInfo> index{};                     // none without one that queries use
    std::optional<std::int64_t> added{};                  // messages that were not covered before; none if not tried
    std::optional<std::chrono::duration<double>> time{};  // that it took
};

// A row for each state.
class IndexListing {
  public:
    IndexListing(Console& console, ListFormat format) : console_(console), format_(format) {}

    // Flushed, so that those who follow see it.
    void show(const IndexState& state);
    // A row that may wait for others, with which it is aligned, until the end.
    void add(const IndexState& state);
    void end();

  private:
    Console& console_;
    ListFormat format_;
    std::unique_ptr<Listing> listing_;
};

class TableIndexes {
  public:
    TableIndexes(Console& console, IndexListing& listing) : console_(console), listing_(listing) {}

    // Makes the index of a table complete. With `keeps` it is then one of those that are kept. Throws the errors of an
    // Indexer; damage of the table is told (Console::warn), and what is in front of it covered.
    void add(const std::filesystem::path& path, bool keeps);
    // Keeps the indexes of those that were added, and of the tables that appear in folders, until the user ends it or
    // none is left.
    void keep(NewTables tables);

  private:
    using Clock = std::chrono::steady_clock;

    // What tells that there may be something to do for a table.
    struct FileState {
        std::uint64_t device = 0;
        std::uint64_t file = 0;
        std::int64_t size = 0;
        std::int64_t changed = 0;

        bool operator==(const FileState&) const = default;
    };
    struct Table {
        std::filesystem::path path;
        std::optional<Indexer> indexer;
        FileState seen{};
        std::int64_t told = 0;    // messages that the last row has told
        Clock::time_point row{};  // when that was; never at first
        bool isOut = false;
    };

    static FileState stateOf(const std::filesystem::path& path);
    void complete(Table* table);
    void look(Table* table);
    void tell(Table* table);
    void tellAll();
    void lookForNewTables(NewTables* tables);
    bool addNew(const std::filesystem::path& path, bool isLastTry);

    Console& console_;
    IndexListing& listing_;
    std::vector<Table> tables_;
    std::map<std::filesystem::path, int> triesOfNew_;
};

}  // namespace tabulo::tool
