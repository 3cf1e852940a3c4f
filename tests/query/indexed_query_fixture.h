// A table with a side index, and what a query over it has asked of the system.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "index/index_builder.h"
#include "tests/query/query_fixture.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {

// What a query has asked of the system.
struct Cost {
    std::vector<std::int32_t> ids;
    int calls = 0;
    std::int64_t bytes = 0;
    int blocksRead = 0;
    int messagesAsked = 0;
};

class IndexedQuery : public QueryTest {
  protected:
    IndexedQuery() { layout = layoutOf(10, 1, 1); }

    void build() {
        IndexBuilder builder(path(), layout);
        ASSERT_EQ(builder.open(), NO_ERROR);
        const MessageTablePtr reader = openReader();
        ASSERT_EQ(builder.update(reader.get(), 1, {}), NO_ERROR);
        ASSERT_EQ(builder.merge(), NO_ERROR);
    }
    // The table anew, with an index of all its closed blocks.
    void fill(std::int32_t messages) {
        table.reset();
        std::filesystem::remove(path());
        std::filesystem::remove(path() + ".idx");
        create();
        writePlain(1, messages);
        build();
    }
    static void setText(QueryConditions* conditions, const std::string& text) {
        EXPECT_EQ(conditions_addStringFilter(conditions, 2, false, false), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
        EXPECT_EQ(conditions_setStringFilterValue(conditions, text.c_str(), 0), NO_ERROR);
    }
    static QueryConditionsPtr byText(const std::string& text, bool backward = false) {
        QueryConditionsPtr conditions = newConditions(backward);
        setText(conditions.get(), text);
        return conditions;
    }
    static QueryConditionsPtr bySeqNum(std::int32_t first, std::int32_t last, bool backward = false) {
        QueryConditionsPtr conditions = newConditions(backward);
        EXPECT_EQ(conditions_setSeqNumRange(conditions.get(), first, last), NO_ERROR);
        return conditions;
    }
    static std::string textOf(std::int32_t n) { return "f2-" + std::to_string(n); }

    static Cost cost(MessageTable* reader, QueryConditionsPtr conditions) {
        Cost found;
        FaultPlatform platform;
        const MessageTableIteratorPtr iterator = openIterator(reader, std::move(conditions));
        const WatchedIterator watched(iterator.get(), true);
        found.ids = remainingIds(iterator.get());
        found.calls = static_cast<int>(platform.calls().size());
        for (const RecordedCall& call : platform.calls(FileCall::readAt)) {
            found.bytes += call.length;
        }
        found.blocksRead = watched.blocksAsked - watched.blocksUnread;
        found.messagesAsked = watched.messagesAsked;
        return found;
    }
    // Of a query by a reader that has asked another one before: what is kept of the index is there.
    Cost secondCost(const std::function<QueryConditionsPtr()>& query,
                    const std::function<QueryConditionsPtr()>& first) {
        const MessageTablePtr reader = openReader();
        static_cast<void>(cost(reader.get(), first()));
        return cost(reader.get(), query());
    }
};

}  // namespace tabulo::internal::test
