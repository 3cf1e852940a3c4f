// The queries that damaged tables are asked, each told twice: to the library, and plainly.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "query/query_conditions.h"
#include "tests/messagetable/message_table_fixture.h"

namespace tabulo::internal::test {

struct TableQuery {
    std::string name;
    std::function<void(QueryConditions*)> set;
    std::function<bool(const Message&)> selects;
};

// Queries that tables of damageMessages() answer with some of their messages, by every kind of condition.
std::vector<TableQuery> tableQueries();

}  // namespace tabulo::internal::test
