// What of a statement a virtual table takes upon itself: terms of its WHERE by which messages are left unread, and its
// ORDER BY. SQLite tests again every term, so that a term may select too much, and never too little.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "adapters/sqlite/columns.h"
#include "adapters/sqlite/table_set.h"

namespace tabulo::sqlite {

// rowid: the file's number and the message's ordinal in it.
inline constexpr int ROWID = -1;
inline constexpr int ROWID_FILE_SHIFT = 40;

enum class Comparison { equal, isNull, below, atMost, above, atLeast };

struct Term {
    int column = ROWID;
    Comparison comparison = Comparison::equal;
    bool isList = false;      // of an IN
    bool isLiteral = false;   // its value stands in the statement, and is not converted to suit another column
    int argument = 0;         // among those that SQLite hands over
    bool isIdentity = false;  // of an IS: NULL is NULL

    bool operator==(const Term&) const noexcept = default;
};

enum class Order {
    stored,      // each file as it is stored; several files merged by uniform id
    rowids,      // file by file
    uniformIds,  // ascending, or
    times,
    isoTimes,  // the texts of times, where none is shown as a number
    groups,    // messages with the same values one after another, and these in order
};

struct GroupTerm {
    int column = 0;
    bool isDescending = false;

    bool operator==(const GroupTerm&) const noexcept = default;
};

struct Plan {
    std::vector<Term> terms;
    Order order = Order::stored;
    bool isBackward = false;
    std::vector<GroupTerm> groups;  // of such an order: all columns that the statement uses
    int tablesArgument = -1;        // what names the tables of tabulo_messages

    bool operator==(const Plan&) const noexcept = default;
};

// For EXPLAIN QUERY PLAN: "uid>=? AND Symbol=? ORDER BY uid".
std::string describe(const Plan& plan, const std::vector<Column>& columns);

// Chooses for sqlite3_module::xBestIndex, and fills in all that it asks for but the number of the plan. Without tables,
// which are not known yet, costs are guessed and no order is promised.
Plan choosePlan(sqlite3_index_info* info, const std::vector<Column>& columns, TableSet* tables);

}  // namespace tabulo::sqlite
