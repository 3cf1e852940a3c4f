// Random statements over two tables of twins.
#pragma once

#include <string>
#include <vector>

#include "tests/adapters/sqlite/twin_tables.h"

namespace tabulo::sqlite::test {

struct RandomStatement {
    std::string sql;  // over live0 and live1
    std::vector<SqlValue> parameters;
    // Columns at the end of each row by which the rows must ascend or descend in the same way; -1: the order of all
    // rows is told, 0: none is.
    int orderKeys = 0;

    // The same over kept0 and kept1.
    std::string overKept() const;
};

// The tables' numbers are 0 and 1.
RandomStatement randomStatement(Random& random, const std::vector<const TwinTables*>& tables);
// One whose time does not grow with the product of two tables' sizes.
RandomStatement randomScan(Random& random, const std::vector<const TwinTables*>& tables);

}  // namespace tabulo::sqlite::test
