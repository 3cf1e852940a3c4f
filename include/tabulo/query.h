// What a reader is asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo {

namespace api {
struct TextConditionState;
template <typename T>
struct NumberConditionState;
struct QueryState;
struct MatcherState;
}  // namespace api

// A text that every message has a place for.
enum class BuiltInText { text0, text1, wire, nonMetadata, type };
// A number of the metadata; flags are 0 or 1.
enum class BuiltInNumber { uniformId, seqNum, prevSeqNum, id, time, possDup, outOfSequence };

// Which values of a text are wanted: any of those named one after another. Texts are compared byte by byte, as unsigned
// bytes and up to a zero byte if the stored one holds one; of a type five characters are compared. What selects nothing
// is refused with wrongParameter: an empty set, a range without anything in it; so is a value with a zero byte. Only
// anyOf lets whole blocks be skipped, and only where it is neither wider nor without regard to case.
class TextCondition {
  public:
    static TextCondition anyOf(std::initializer_list<std::string_view> values);
    static TextCondition anyOf(std::span<const std::string> values);
    static TextCondition between(std::string_view first, std::string_view last);  // both included
    static TextCondition above(std::string_view value);
    static TextCondition atLeast(std::string_view value);
    static TextCondition below(std::string_view value);
    static TextCondition atMost(std::string_view value);
    // Absent texts and empty ones.
    static TextCondition absent();

    // The same without regard to the case of ASCII letters. wrongParameter for a condition with ranges.
    TextCondition ignoringCase() const;
    // What one of the two selects. wrongParameter when both have texts and only one of them disregards the case.
    TextCondition operator||(const TextCondition& other) const;

    // For the library.
    const api::TextConditionState& state() const noexcept { return *state_; }

  private:
    explicit TextCondition(api::TextConditionState state);
    std::shared_ptr<const api::TextConditionState> state_;
};

// Which values of a number are wanted. T is double or std::int64_t: a stored integer is compared as a double with the
// first, a stored double is truncated towards zero for the second, and beyond its ends counts as the end. A stored NaN
// counts as absent among doubles and as 0 among integers. Refused with wrongParameter: an empty set, a range without
// anything in it, NaN.
template <typename T>
class NumberCondition {
  public:
    static NumberCondition anyOf(std::initializer_list<T> values);
    static NumberCondition anyOf(std::span<const T> values);
    static NumberCondition between(T first, T last);  // both included
    static NumberCondition above(T value);
    static NumberCondition atLeast(T value);
    static NumberCondition below(T value);
    static NumberCondition atMost(T value);
    static NumberCondition absent();

    // What one of the two selects.
    NumberCondition operator||(const NumberCondition& other) const;

    // For the library.
    const api::NumberConditionState<T>& state() const noexcept { return *state_; }

  private:
    explicit NumberCondition(api::NumberConditionState<T> state);
    std::shared_ptr<const api::NumberConditionState<T>> state_;
};
using DoubleCondition = NumberCondition<double>;
using IntegerCondition = NumberCondition<std::int64_t>;
extern template class NumberCondition<double>;
extern template class NumberCondition<std::int64_t>;

// A range of ids, both ends included.
struct IdRange {
    std::int32_t first = 0;
    std::int32_t last = 0;
};

// A query, put together condition by condition. Without any it selects every message, forwards. Each condition narrows
// what those before it have selected. Ends of ranges are included, and one without a value is open; not both. No
// condition turns into "everything": an empty set, a reversed range, ids that belong to no class and conditions on the
// metadata that exclude each other are refused with wrongParameter, and the query stays as it was.
//
// A block of a table is skipped unread when what is recorded about it (smallest and largest values, filters of texts)
// shows that no message of it is selected; one that only touches the end of a range is read.
class Query {
  public:
    Query();
    Query(const Query& other);  // moving copies
    Query& operator=(const Query& other);
    ~Query();

    // From the table's end to its beginning.
    Query& backward();
    // What the conditions would leave out instead; positions and direction stay. No block is skipped then.
    Query& inverted();

    // Messages at this place and behind it; messages in front of it. For both directions alike; at last one of each,
    // the newest holds. A place is checked when the query is asked: vseek when no message can stand there.
    // A place to begin at that lies behind the one to end at selects nothing.
    Query& from(const Position& position);
    Query& before(const Position& position);

    Query& seqNums(std::optional<std::int32_t> first, std::optional<std::int32_t> last);
    Query& uniformIds(std::optional<std::int32_t> first, std::optional<std::int32_t> last);
    Query& times(std::optional<std::int64_t> first, std::optional<std::int64_t> last);
    // Connection message ids: one range, both ends in one class; or at most one range for each class.
    Query& ids(std::int32_t first, std::int32_t last);
    Query& ids(std::span<const IdRange> ranges);
    // Exactly these connection message ids.
    Query& idSet(std::span<const std::int32_t> ids);
    Query& classes(std::initializer_list<MessageClass> classes);
    Query& classes(std::span<const MessageClass> classes);
    Query& possDup(bool value);
    Query& outOfSequence(bool value);
    // Types of at most five characters.
    Query& types(std::initializer_list<std::string_view> types);
    Query& types(std::span<const std::string> types);
    Query& excludeTypes(std::initializer_list<std::string_view> types);
    Query& excludeTypes(std::span<const std::string> types);

    // A field of the layout, by its name or by its number. That it exists is checked when the query is asked:
    // wrongParameter for an unknown name or one that two fields have, indexOutOfBounds for a number, and for a built-in
    // text that the table lacks (Layout::builtInTexts). Types are compared with case: wrongParameter for others.
    Query& text(std::string_view field, const TextCondition& condition);
    Query& text(std::size_t field, const TextCondition& condition);
    Query& text(BuiltInText field, const TextCondition& condition);
    Query& number(std::string_view field, const DoubleCondition& condition);
    Query& number(std::string_view field, const IntegerCondition& condition);
    Query& number(std::size_t field, const DoubleCondition& condition);
    Query& number(std::size_t field, const IntegerCondition& condition);
    Query& number(BuiltInNumber field, const DoubleCondition& condition);
    Query& number(BuiltInNumber field, const IntegerCondition& condition);

    // For the library.
    const api::QueryState& state() const noexcept { return *state_; }

  private:
    template <typename Change>
    Query& change(const Change& change);
    std::unique_ptr<api::QueryState> state_;
};

// Tests single messages against a query's conditions; its positions and its direction are not looked at. One thread at
// a time uses a Matcher.
class Matcher {
  public:
    // The errors of asking such a query.
    Matcher(const Query& query, const Layout& layout);
    Matcher(Matcher&& other) noexcept;
    Matcher& operator=(Matcher&& other) noexcept;
    ~Matcher();

    // The message must be of a table with the layout: wrongParameter otherwise.
    bool operator()(const MessageView& message) const;

  private:
    std::unique_ptr<const api::MatcherState> state_;
};

}  // namespace tabulo
