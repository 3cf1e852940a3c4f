// Random queries over random tables.
#pragma once

#include "tests/api/query_model.h"
#include "tests/api/random_stored.h"

namespace tabulo::test {

// A query whose values mostly come from the table, or lie close to its; what is wrong with a refusal goes to `fault`.
ModelQuery randomQuery(Random& random, const StoredTable& table, std::string* fault);
// The same without places and direction: up to three conditions.
void addRandomConditions(Random& random, const StoredTable& table, ModelQuery& model, std::string* fault);
// A direction, and mostly all messages, else those from some place on, or before one.
void addRandomPlaces(Random& random, const StoredTable& table, ModelQuery& model);

}  // namespace tabulo::test
