// Random conditions of statements over twin tables.
#pragma once

#include <string>
#include <vector>

#include "tests/adapters/sqlite/twin_tables.h"

namespace tabulo::sqlite::test {

// A table in a statement, by its name there.
struct NamedTable {
    std::string name;
    const TwinTables* table = nullptr;
    int number = 0;  // of live0 or live1
};

class RandomCondition {
  public:
    // Values of parameters are added in the order of their marks, so that conditions are made in the order of the text.
    RandomCondition(Random& random, std::vector<SqlValue>* parameters) : random_(random), parameters_(parameters) {}

    // Over one of the tables; some with AND, OR and NOT.
    std::string any(const std::vector<NamedTable>& tables, int depth = 2);
    // On one column.
    std::string simple(const NamedTable& table);
    // An equality between columns of two tables, mostly one that holds for some.
    std::string join(const NamedTable& left, const NamedTable& right);
    const TwinColumn& column(const NamedTable& table);
    const TwinColumn& columnOf(const NamedTable& table, ColumnType type);

  private:
    std::string operand(const NamedTable& table, const TwinColumn& column);
    std::string value(const NamedTable& table, const TwinColumn& column);
    SqlValue someValue(const NamedTable& table, const TwinColumn& column);
    SqlValue changed(SqlValue value);
    std::string collation();
    std::string oneOf(const NamedTable& table, const TwinColumn& column);
    std::string like(const NamedTable& table, const TwinColumn& column);

    Random& random_;
    std::vector<SqlValue>* parameters_;
};

}  // namespace tabulo::sqlite::test
