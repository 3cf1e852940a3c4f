// Queries with what their conditions say, which is evaluated here message by message in the plainest way.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/query.h"
#include "tests/api/stored_table.h"
#include "tests/query/random_table.h"

namespace tabulo::test {

using internal::test::Random;
using Condition = std::function<bool(const StoredMessage&)>;

// A condition on a text, and what it says.
struct ModelText {
    struct Range {
        StoredText low{};
        StoredText high{};
        bool includesLow = true;
        bool includesHigh = true;
    };
    std::vector<std::string> values{};
    std::vector<Range> ranges{};
    bool absent = false;
    bool ignoresCase = false;

    // Whether such a text is selected; of a type five characters count.
    bool selects(const StoredText& text, bool isType = false) const;
    // The condition, put together part by part.
    TextCondition condition() const;
    std::string words() const;
};

template <typename T>
struct ModelNumber {
    struct Range {
        std::optional<T> low{};
        std::optional<T> high{};
        bool includesLow = true;
        bool includesHigh = true;
    };
    std::vector<T> values{};
    std::vector<Range> ranges{};
    bool absent = false;

    bool selects(const Number& number) const;
    NumberCondition<T> condition() const;
    std::string words() const;
};
extern template struct ModelNumber<double>;
extern template struct ModelNumber<std::int64_t>;

// The text or number of a message, as a query names it.
StoredText textOf(const StoredMessage& message, BuiltInText field);
StoredText textOf(const StoredMessage& message, std::size_t field);
Number numberOf(const StoredMessage& message, BuiltInNumber field);
Number numberOf(const StoredMessage& message, std::size_t field);

// A query with all that it says.
class ModelQuery {
  public:
    Query query;
    bool backward = false;
    bool inverted = false;
    std::optional<std::size_t> from{};    // a message's number, or the number of messages for the end
    std::optional<std::size_t> before{};  // likewise
    std::vector<Condition> conditions{};
    std::string words{};  // what was asked for

    // Asks the query for one more condition. When that is refused the query has to stay as it was, and the condition
    // must be one that leaves nothing of the table: empty, or what is wrong.
    std::string add(const StoredTable& table, const std::string& condition, const Condition& selects,
                    const std::function<void(Query&)>& ask);
    std::int64_t refused = 0;

    bool meetsConditions(const StoredMessage& message) const;
    // Whether the conditions, turned around when the query is inverted, select it.
    bool selects(const StoredMessage& message) const { return meetsConditions(message) != inverted; }
    // The numbers of the selected messages of the table in the query's order.
    std::vector<std::size_t> expected(const StoredTable& table) const;
};

}  // namespace tabulo::test
