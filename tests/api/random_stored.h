// Random tables.
#pragma once

#include <string>
#include <vector>

#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"

namespace tabulo::test {

using internal::test::Random;

// One of several layouts, with blocks of 1 to 7 messages.
Layout randomLayout(Random& random);
// A message like those in front of it, so that blocks differ from one another.
StoredMessage randomMessage(Random& random, const StoredTable& table);
// Texts and types that such messages hold.
const std::vector<std::string>& someTexts();
const std::vector<std::string>& someTypes();

}  // namespace tabulo::test
