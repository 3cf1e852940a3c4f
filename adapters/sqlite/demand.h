// What the terms of a plan ask of messages, with the values of one run of a statement.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "adapters/sqlite/columns.h"
#include "adapters/sqlite/plan.h"
#include "tabulo/query.h"

namespace tabulo::sqlite {

// Whole numbers of a range; of some of them when there are values.
struct IntegerDemand {
    std::int64_t first = INT64_MIN;
    std::int64_t last = INT64_MAX;
    std::optional<std::set<std::int64_t>> values;

    void keep(std::int64_t from, std::int64_t to);
    void keep(std::set<std::int64_t> wanted);
    bool isAll() const noexcept { return first == INT64_MIN && last == INT64_MAX && !values.has_value(); }
    bool isEmpty() const noexcept { return first > last || (values.has_value() && values->empty()); }
};

struct NumberDemand {
    std::optional<double> first;
    std::optional<double> last;
    std::optional<std::set<double>> values;
    bool isNull = false;
};

struct TextDemand {
    std::optional<std::string> first;
    std::optional<std::string> last;
    std::optional<std::set<std::string>> values;
    bool isNull = false;
};

class Demand {
  public:
    // Takes the values that SQLite hands over for the plan's terms.
    Demand(sqlite3* database, const Plan& plan, const std::vector<Column>& columns, sqlite3_value** arguments);

    // True when no message can meet it.
    bool isEmpty() const noexcept { return isEmpty_; }
    // Whether messages of the file may be asked for, by its name and its path; and which of their ordinals.
    bool mayHold(std::size_t number, const TableFile& file, IntegerDemand* ordinals) const;
    // A query that selects every message that meets the demand, and perhaps others; none when no message of such a
    // table can.
    std::optional<Query> query(const Layout& layout, std::optional<TimeUnit> unit) const;

  private:
    void take(const Term& term, sqlite3_value* value);
    void takeInteger(IntegerDemand* demand, const Term& term, sqlite3_value* value);
    void takeNumber(NumberDemand* demand, const Term& term, sqlite3_value* value);
    void takeText(TextDemand* demand, const Term& term, sqlite3_value* value);
    bool areLiteralsPlain();

    const std::vector<Column>& columns_;
    sqlite3* database_;
    bool isEmpty_ = false;
    std::optional<bool> areLiteralsPlain_;
    std::map<int, IntegerDemand> integers_;  // by column
    std::map<int, NumberDemand> numbers_;
    std::map<int, TextDemand> texts_;
};

}  // namespace tabulo::sqlite
