// Messages in the order of a few columns that say all a statement asks of them: their values, each with the number of
// messages that have it. Nothing is sorted but the values.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "adapters/sqlite/columns.h"
#include "adapters/sqlite/message_stream.h"
#include "adapters/sqlite/plan.h"

namespace tabulo::sqlite {

// The values of a few columns, one behind the other, each with its length in front.
class GroupKeys {
  public:
    GroupKeys(const std::vector<Column>& columns, const std::vector<GroupTerm>& terms);

    // Whether the values of such a column can be taken.
    static bool canTake(ColumnKind kind) noexcept;

    void take(const MessageView& message, std::string* key) const;
    // As SQLite orders them: NULL, then texts byte by byte.
    bool isBefore(const std::string& a, const std::string& b) const;
    // The value of a column of the table, where it is one of these; NULL otherwise.
    void give(sqlite3_context* context, const std::string& key, int column) const;

  private:
    struct Part {
        int number;  // of the column in the table
        Column column;
        bool isDescending;
    };
    std::vector<Part> parts_;
};

class GroupedRows {
  public:
    // Begins with the first row. `open` gives the messages, in any order: they are read again when there are more
    // values than are kept at a time, and when a rowid is asked for. The errors of MessageStream::next.
    GroupedRows(GroupKeys keys, std::function<std::unique_ptr<MessageStream>()> open, std::size_t mostValues = 200'000);

    void next();
    bool isAtEnd() const noexcept { return at_ == groups_.size(); }
    void give(sqlite3_context* context, int column) const { keys_.give(context, *groups_[at_].key, column); }
    sqlite3_int64 rowid();

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
    };
    using Counts = std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>>;
    struct Group {
        const std::string* key;
        std::int64_t count;
    };

    void gather();
    void halve();
    bool isWanted(const std::string& key) const;

    GroupKeys keys_;
    std::function<std::unique_ptr<MessageStream>()> open_;
    const std::size_t mostValues_;  // that are kept at a time
    Counts counts_;
    std::size_t bytes_ = 0;            // of the keys in them
    std::optional<std::string> from_;  // values up to it have been given
    std::optional<std::string> last_;  // those behind it are left to another time
    std::vector<Group> groups_;        // of counts_, in order
    std::size_t at_ = 0;
    std::int64_t given_ = 0;  // of that group
    std::unordered_map<const std::string*, std::vector<sqlite3_int64>> rowids_;
};

// Whether the tables seem to have few values of these columns for their many messages. Some of their blocks are looked
// at, again when there are twice as many messages.
bool haveFewValues(TableSet& tables, const std::vector<Column>& columns, const std::vector<GroupTerm>& terms);

}  // namespace tabulo::sqlite
