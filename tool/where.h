// Conditions on fields, as --where takes them.
//
//   Symbol=ACME      Price>=10.5      Account!=A1      Symbol in (ACME, "A, B")      Price is absent      tag:54=1
//
// A field is one of the layout's, or a tag of the wire message (its first occurrence). An absent value meets != and
// "is absent" only. Numbers are compared exactly; texts byte by byte; a tag as text with =, != and in, and with the
// others as a number where both sides are one.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/query.h"

namespace tabulo::tool {

enum class WhereOperator { equal, notEqual, below, atMost, above, atLeast, in, absent };

struct WhereExpression {
    std::string field;
    WhereOperator operation = WhereOperator::equal;
    std::vector<std::string> values;  // one; several of "in", none of "is absent"
};

// UsageError for what is no such condition.
WhereExpression parseWhere(std::string_view text);

// A condition made ready for the tables of one layout.
class WhereTest {
  public:
    // UsageError for a field that the layout lacks, with the names of those that it has, or has twice, and for a value
    // that is not a number where the field is one.
    WhereTest(WhereExpression expression, const Layout& layout);

    // Adds what footers and filters can answer. False when they cannot: every message must be tested. What is added
    // may select more than the condition, so that the messages are tested anyway.
    bool push(Query* query) const;
    bool operator()(const MessageView& message) const;

  private:
    enum class Kind { text, number, tag };

    bool matchesText(const Text& text) const;
    bool matchesNumber(const Number& number) const;

    WhereExpression expression_;
    Kind kind_ = Kind::text;
    std::size_t index_ = 0;        // of the text or the number
    std::string tag_;              // with "=" behind it
    std::vector<Number> numbers_;  // the values of a condition on a number
};

// The value of a tag ("54=") in a wire message; none when it has no such tag.
Text wireValue(std::string_view wire, std::string_view tag) noexcept;

}  // namespace tabulo::tool
