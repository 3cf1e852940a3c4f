// Random tables with a side index that was built while they grew.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tests/api/api_test.h"
#include "tests/api/index_content.h"
#include "tests/api/random_query.h"

namespace tabulo::test {

// A layout with blocks of one message on, mostly of a few and now and then of more than an index has places for.
Layout randomIndexedLayout(Random& random);

class IndexedTable {
  public:
    // Stores messages, and builds the index at several moments: in one run, or in several of which some are merged.
    // What stands behind the last of them it does not cover. Another table gives the foreign index.
    IndexedTable(Random& random, const TemporaryDirectory& directory, int number);

    void store(Random& random, std::int32_t count);
    // The table is dropped and filled again, mostly with the same beginning; the index stays that of before.
    void refill(Random& random);
    // The file's path.
    const std::filesystem::path& path() const { return table.writer.path(); }

    StoredTable table;
    IndexImages images;

  private:
    std::int32_t fewMessages(Random& random) const;
};

// A query with a condition that mostly few messages meet, mostly alone.
ModelQuery selectiveQuery(Random& random, const StoredTable& table, std::string* fault);

}  // namespace tabulo::test
