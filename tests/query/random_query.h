// Random queries over random messages.
#pragma once

#include "tests/query/plain_query.h"
#include "tests/query/random_table.h"

namespace tabulo::internal::test {

// A query whose values mostly come from the messages, or lie close to theirs.
PlainQuery randomQuery(Random* random, const RandomMessages& all);

}  // namespace tabulo::internal::test
