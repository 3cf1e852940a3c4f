// What each condition of a query selects, from a table in which it is easy to see.
#include "tabulo/query.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

#include "tests/api/api_test.h"
#include "tests/api/query_model.h"
#include "tests/api/stored_table.h"

namespace tabulo::test {
namespace {

using Ids = std::vector<std::int32_t>;

class ApiQuery : public TableTest {
  protected:
    // The uniform ids that a query selects of simple messages 1 to 10, or of what was stored instead.
    Ids ask(const Query& query) {
        if (!table.has_value()) {
            store(simpleMessages(10));
        }
        return idsOf(reader->messages(query));
    }
    // Stores messages with uniform ids from 1 on.
    void store(std::vector<StoredMessage> messages) {
        for (std::size_t i = 0; i < messages.size(); ++i) {
            messages[i].uniformId = static_cast<std::int32_t>(i) + 1;
        }
        table.emplace(path(), layout, messages);
        reader.emplace(path());
    }
    // Messages with such first texts.
    void storeTexts(const std::vector<StoredText>& texts) {
        std::vector<StoredMessage> messages;
        for (const StoredText& text : texts) {
            messages.push_back({.texts = {text}});
        }
        store(messages);
    }
    void storeNumbers(const std::vector<Number>& numbers) {
        std::vector<StoredMessage> messages;
        for (const Number& number : numbers) {
            messages.push_back({.numbers = {number}});
        }
        store(messages);
    }
    Ids askText(const TextCondition& condition) { return ask(Query().text("Symbol", condition)); }
    template <typename T>
    Ids askNumber(const NumberCondition<T>& condition) {
        return ask(Query().number("Price", condition));
    }
    std::int64_t skippedBy(const Query& query) {
        Messages messages = reader->messages(query);
        while (messages.next() != nullptr) {
        }
        return messages.blocksSkipped();
    }

    std::optional<StoredTable> table;
    std::optional<Reader> reader;
};

TEST_F(ApiQuery, IsCopiedWithAllThatItAsks) {
    static_assert(std::is_copy_constructible_v<Query> && std::is_copy_assignable_v<Query>);
    Query query;
    query.seqNums(2, 5).backward();
    Query copy = query;
    Query moved = std::move(query);
    copy.seqNums(3, std::nullopt);
    EXPECT_EQ(ask(copy), (Ids{5, 4, 3}));
    EXPECT_EQ(ask(moved), (Ids{5, 4, 3, 2}));
    EXPECT_EQ(ask(query), (Ids{5, 4, 3, 2})) << "moving copies";  // NOLINT: what a move leaves is what is tested
    copy = moved;
    EXPECT_EQ(ask(copy), (Ids{5, 4, 3, 2}));
    copy = static_cast<const Query&>(copy);
    EXPECT_EQ(ask(copy), (Ids{5, 4, 3, 2}));
}

TEST_F(ApiQuery, SelectsEveryMessageWithoutACondition) {
    EXPECT_EQ(ask(Query()), idsUpTo(10));
    EXPECT_EQ(ask(Query().backward()), (Ids{10, 9, 8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(ask(Query().inverted()), Ids());
}

TEST_F(ApiQuery, SelectsRangesWithTheirEnds) {
    EXPECT_EQ(ask(Query().seqNums(3, 5)), (Ids{3, 4, 5}));
    EXPECT_EQ(ask(Query().seqNums(9, std::nullopt)), (Ids{9, 10}));
    EXPECT_EQ(ask(Query().seqNums(std::nullopt, 2)), (Ids{1, 2}));
    EXPECT_EQ(ask(Query().uniformIds(3, 5)), (Ids{3, 4, 5}));
    EXPECT_EQ(ask(Query().uniformIds(9, std::nullopt)), (Ids{9, 10}));
    EXPECT_EQ(ask(Query().uniformIds(std::nullopt, 2)), (Ids{1, 2}));
    EXPECT_EQ(ask(Query().times(2001, 4000)), (Ids{3, 4}));
    EXPECT_EQ(ask(Query().times(9000, std::nullopt)), (Ids{9, 10}));
    EXPECT_EQ(ask(Query().times(std::nullopt, 1000)), (Ids{1}));
    EXPECT_EQ(ask(Query().seqNums(7, 7)), (Ids{7}));
    EXPECT_EQ(ask(Query().seqNums(11, 20)), Ids());
}

TEST_F(ApiQuery, SelectsNegativeNumbersAndTimes) {
    constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    store({{.seqNum = -5, .time = -100}, {.seqNum = 0}, {.seqNum = lowest, .time = 7}, {.seqNum = 3, .time = -1}});
    EXPECT_EQ(ask(Query().seqNums(-5, -1)), (Ids{1}));
    EXPECT_EQ(ask(Query().seqNums(std::nullopt, 0)), (Ids{1, 2, 3}));
    EXPECT_EQ(ask(Query().seqNums(lowest, lowest)), (Ids{3}));
    EXPECT_EQ(ask(Query().times(-100, -1)), (Ids{1, 4}));
}

TEST_F(ApiQuery, SelectsByConnectionMessageIdAndClass) {
    store({{.id = 5},
           {.id = 6},
           {.id = 536870911},
           {.id = 536870915},
           {.id = 1073741823},
           {.id = 2147483647},
           {.id = -1}});
    EXPECT_EQ(ask(Query().ids(5, 5)), (Ids{1}));
    EXPECT_EQ(ask(Query().ids(0, 536870910)), (Ids{1, 2}));
    EXPECT_EQ(ask(Query().ids(536870912, 1073741822)), (Ids{4}));
    const std::vector<IdRange> ranges = {{536870911, 536870911}, {6, 9}, {2147483647, 2147483647}};
    EXPECT_EQ(ask(Query().ids(ranges)), (Ids{2, 3, 6}));
    const std::vector<std::int32_t> set = {1073741823, 5, 7, 5};
    EXPECT_EQ(ask(Query().idSet(set)), (Ids{1, 5}));
    EXPECT_EQ(ask(Query().classes({MessageClass::appTo})), (Ids{1, 2}));
    EXPECT_EQ(ask(Query().classes({MessageClass::resent, MessageClass::appFrom, MessageClass::resent})),
              (Ids{3, 4, 6}));
    EXPECT_EQ(ask(Query().classes({MessageClass::appFrom, MessageClass::appTo, MessageClass::adminFrom,
                                   MessageClass::adminTo, MessageClass::resent})),
              idsUpTo(6))
        << "a negative id belongs to no class";
}

TEST_F(ApiQuery, SelectsByFlagsAndTypes) {
    store({{.type = "D"},
           {.type = "8", .possDup = true},
           {.type = "AE", .outOfSequence = true},
           {.type = "", .possDup = true, .outOfSequence = true},
           {.type = "ABCDE"}});
    EXPECT_EQ(ask(Query().possDup(true)), (Ids{2, 4}));
    EXPECT_EQ(ask(Query().possDup(false)), (Ids{1, 3, 5}));
    EXPECT_EQ(ask(Query().outOfSequence(true)), (Ids{3, 4}));
    EXPECT_EQ(ask(Query().outOfSequence(false)), (Ids{1, 2, 5}));
    EXPECT_EQ(ask(Query().types({"D", "A", "ABCDE"})), (Ids{1, 5}));
    EXPECT_EQ(ask(Query().types({"ABCDE", "D"}).types({"D", "ABCDE"})), (Ids{1, 5})) << "in whatever order";
    EXPECT_EQ(ask(Query().types({"D", "ABCDE"}).types({"ABCDE", "D"})), (Ids{1, 5}));
    EXPECT_EQ(ask(Query().types({""})), (Ids{4}));
    EXPECT_EQ(ask(Query().types({"d"})), Ids());
    EXPECT_EQ(ask(Query().excludeTypes({"D", "8", "A"})), (Ids{3, 4, 5}));
    EXPECT_EQ(ask(Query().excludeTypes({"ABCDE", ""})), (Ids{1, 2, 3}));
    const std::vector<std::string> types = {"AE", "8"};
    EXPECT_EQ(ask(Query().types(types)), (Ids{2, 3}));
    EXPECT_EQ(ask(Query().excludeTypes(types)), (Ids{1, 4, 5}));
}

TEST_F(ApiQuery, SelectsTextsByteByByte) {
    storeTexts({"b", "a", "B", "", StoredText(), "ab", "a\x80", std::string("a\0z", 3), "\xff"});
    EXPECT_EQ(askText(TextCondition::anyOf({"a", "\xff", "zz"})), (Ids{2, 8, 9})) << "up to a zero byte";
    EXPECT_EQ(askText(TextCondition::anyOf({""})), (Ids{4})) << "an absent text is not the empty one";
    EXPECT_EQ(askText(TextCondition::absent()), (Ids{4, 5}));
    EXPECT_EQ(askText(TextCondition::between("a", "ab")), (Ids{2, 6, 8}));
    EXPECT_EQ(askText(TextCondition::between("b", "b")), (Ids{1}));
    EXPECT_EQ(askText(TextCondition::above("ab")), (Ids{1, 7, 9})) << "bytes from 128 on are the highest";
    EXPECT_EQ(askText(TextCondition::atLeast("ab")), (Ids{1, 6, 7, 9}));
    EXPECT_EQ(askText(TextCondition::below("a")), (Ids{3, 4}));
    EXPECT_EQ(askText(TextCondition::atMost("a")), (Ids{2, 3, 4, 8}));
    EXPECT_EQ(askText(TextCondition::atLeast("")), (Ids{1, 2, 3, 4, 6, 7, 8, 9}));
    EXPECT_EQ(askText(TextCondition::above("")), (Ids{1, 2, 3, 6, 7, 8, 9}));
    EXPECT_EQ(askText(TextCondition::atMost("")), (Ids{4}));
    const std::vector<std::string> values = {"B", "ab"};
    EXPECT_EQ(askText(TextCondition::anyOf(values)), (Ids{3, 6}));
}

TEST_F(ApiQuery, SelectsTextsWithoutRegardToTheCaseOfAsciiLetters) {
    storeTexts({"eurusd", "EURUSD", "EurUsd", "eur_usd", "[", "{", "\xe4", "\xc4", StoredText()});
    EXPECT_EQ(askText(TextCondition::anyOf({"eurUSD"})), Ids());
    EXPECT_EQ(askText(TextCondition::anyOf({"eurUSD", "["}).ignoringCase()), (Ids{1, 2, 3, 5}));
    EXPECT_EQ(askText(TextCondition::anyOf({"\xc4"}).ignoringCase()), (Ids{8}));
    const TextCondition joined =
        TextCondition::anyOf({"EURUSD"}).ignoringCase() || TextCondition::anyOf({"EUR_USD"}).ignoringCase();
    EXPECT_EQ(askText(joined), (Ids{1, 2, 3, 4}));
    const TextCondition eurusd = TextCondition::anyOf({"eurUSD"}).ignoringCase();
    EXPECT_EQ(askText(TextCondition::absent() || eurusd), (Ids{1, 2, 3, 9}));
    EXPECT_EQ(askText(eurusd || TextCondition::absent()), (Ids{1, 2, 3, 9}));
}

TEST_F(ApiQuery, SelectsWhatOneOfJoinedTextConditionsSelects) {
    storeTexts({"a", "b", "c", "d", "", StoredText(), "e"});
    const TextCondition anyOf = TextCondition::anyOf({"a"}) || TextCondition::anyOf({"d", "x"});
    EXPECT_EQ(askText(anyOf), (Ids{1, 4}));
    EXPECT_EQ(askText(anyOf || TextCondition::between("c", "d") || TextCondition::absent()), (Ids{1, 3, 4, 5, 6}));
    EXPECT_EQ(askText(TextCondition::below("b") || TextCondition::above("d")), (Ids{1, 5, 7}));
    EXPECT_EQ(askText(anyOf), (Ids{1, 4})) << "joining has changed a condition";
}

TEST_F(ApiQuery, SelectsBuiltInTexts) {
    store({{.type = "ABCDE", .text0 = "x", .wire = "35=D\001"},
           {.type = "8", .text1 = "x", .nonMetadata = "x"},
           {.type = "ABCDF", .text0 = "y", .text1 = "y", .wire = "x"}});
    EXPECT_EQ(ask(Query().text(BuiltInText::text0, TextCondition::anyOf({"x"}))), (Ids{1}));
    EXPECT_EQ(ask(Query().text(BuiltInText::text1, TextCondition::anyOf({"x"}))), (Ids{2}));
    EXPECT_EQ(ask(Query().text(BuiltInText::wire, TextCondition::atLeast("35=D"))), (Ids{1, 3}));
    EXPECT_EQ(ask(Query().text(BuiltInText::nonMetadata, TextCondition::anyOf({"x"}))), (Ids{2}));
    EXPECT_EQ(ask(Query().text(BuiltInText::type, TextCondition::above("8"))), (Ids{1, 3}));
    EXPECT_EQ(ask(Query().text(BuiltInText::type, TextCondition::anyOf({"ABCDE"}))), (Ids{1}));
    EXPECT_EQ(ask(Query().text(BuiltInText::type, TextCondition::anyOf({"ABCDFxyz"}))), (Ids{3}))
        << "of a type five characters are compared";
}

TEST_F(ApiQuery, SelectsDoublesAndIntegersAsDoubles) {
    const double nan = std::nan("");
    const auto integer = [](std::int64_t value) { return Number(value); };
    storeNumbers({1.5, integer(2), Number(), nan, -0.0, integer((std::int64_t{1} << 53) + 1), HUGE_VAL, -HUGE_VAL});
    EXPECT_EQ(askNumber(DoubleCondition::anyOf({1.5, 2.0, 7.0})), (Ids{1, 2}));
    EXPECT_EQ(askNumber(DoubleCondition::anyOf({0.0})), (Ids{5}));
    EXPECT_EQ(askNumber(DoubleCondition::anyOf({0x1p53})), (Ids{6})) << "the nearest double";
    EXPECT_EQ(askNumber(DoubleCondition::between(1.5, 2.0)), (Ids{1, 2}));
    EXPECT_EQ(askNumber(DoubleCondition::above(1.5)), (Ids{2, 6, 7}));
    EXPECT_EQ(askNumber(DoubleCondition::atLeast(HUGE_VAL)), (Ids{7}));
    EXPECT_EQ(askNumber(DoubleCondition::below(1.5)), (Ids{5, 8}));
    EXPECT_EQ(askNumber(DoubleCondition::below(0.0)), (Ids{8}));
    EXPECT_EQ(askNumber(DoubleCondition::atMost(1.5)), (Ids{1, 5, 8}));
    EXPECT_EQ(askNumber(DoubleCondition::absent()), (Ids{3, 4}));
    EXPECT_EQ(askNumber(DoubleCondition::absent() || DoubleCondition::above(1e300)), (Ids{3, 4, 7}));
    EXPECT_EQ(askNumber(DoubleCondition::between(-HUGE_VAL, HUGE_VAL)), (Ids{1, 2, 5, 6, 7, 8}));
}

TEST_F(ApiQuery, SelectsIntegersAndDoublesWithoutTheirFraction) {
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    const auto integer = [](std::int64_t value) { return Number(value); };
    storeNumbers({1.9, integer(2), Number(), std::nan(""), -1.9, integer(highest), integer(highest - 1)});
    EXPECT_EQ(askNumber(IntegerCondition::anyOf({1, 2})), (Ids{1, 2}));
    EXPECT_EQ(askNumber(IntegerCondition::anyOf({0})), (Ids{4})) << "NaN counts as 0";
    EXPECT_EQ(askNumber(IntegerCondition::between(-1, 1)), (Ids{1, 4, 5}));
    EXPECT_EQ(askNumber(IntegerCondition::above(highest - 1)), (Ids{6}));
    EXPECT_EQ(askNumber(IntegerCondition::atLeast(highest - 1)), (Ids{6, 7}));
    EXPECT_EQ(askNumber(IntegerCondition::below(0)), (Ids{5}));
    EXPECT_EQ(askNumber(IntegerCondition::atMost(0)), (Ids{4, 5}));
    EXPECT_EQ(askNumber(IntegerCondition::absent()), (Ids{3}));
    EXPECT_EQ(askNumber(IntegerCondition::absent() || IntegerCondition::anyOf({highest})), (Ids{3, 6}));
}

TEST_F(ApiQuery, SelectsByTheNumbersOfTheMetadata) {
    store({{.seqNum = 7, .prevSeqNum = -3, .id = 4, .time = 100, .possDup = true},
           {.seqNum = 8, .id = 2147483647, .time = 200, .outOfSequence = true}});
    EXPECT_EQ(ask(Query().number(BuiltInNumber::uniformId, IntegerCondition::anyOf({2}))), (Ids{2}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::seqNum, DoubleCondition::above(7.5))), (Ids{2}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::prevSeqNum, IntegerCondition::below(0))), (Ids{1}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::id, IntegerCondition::atLeast(5))), (Ids{2}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::time, IntegerCondition::between(100, 199))), (Ids{1}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::possDup, IntegerCondition::anyOf({1}))), (Ids{1}));
    EXPECT_EQ(ask(Query().number(BuiltInNumber::outOfSequence, DoubleCondition::anyOf({0}))), (Ids{1}));
}

TEST_F(ApiQuery, NarrowsWithEachConditionWhatTheOnesBeforeHaveSelected) {
    EXPECT_EQ(ask(Query().seqNums(2, 7).seqNums(5, 9)), (Ids{5, 6, 7}));
    EXPECT_EQ(ask(Query().seqNums(2, std::nullopt).seqNums(std::nullopt, 3).uniformIds(3, 9)), (Ids{3}));
    EXPECT_EQ(ask(Query().times(2000, 7000).times(5000, 9000)), (Ids{5, 6, 7}));
    const std::vector<std::int32_t> one = {2, 3, 5, 9};
    const std::vector<std::int32_t> other = {1, 3, 5};
    EXPECT_EQ(ask(Query().idSet(one).idSet(other)), (Ids{3, 5}));
    EXPECT_EQ(ask(Query().ids(3, 8).idSet(one)), (Ids{3, 5}));
    EXPECT_EQ(ask(Query().idSet(one).ids(3, 8).ids(4, 20)), (Ids{5}));
    EXPECT_EQ(ask(Query().ids(3, 8).classes({MessageClass::appTo, MessageClass::resent})), (Ids{3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(ask(Query().possDup(true).seqNums(6, 20)), (Ids{10}));
    EXPECT_EQ(ask(Query().types({"D", "8"}).types({"D", "F"}).excludeTypes({"8"}).excludeTypes({"F"})), idsUpTo(10));
    EXPECT_EQ(ask(Query().text("ClOrdID", TextCondition::atLeast("order-3")).text(1, TextCondition::below("order-6"))),
              (Ids{3, 4, 5}));
    EXPECT_EQ(
        ask(Query().number("OrderQty", IntegerCondition::atLeast(300)).number("OrderQty", DoubleCondition::below(500))),
        (Ids{3, 4}));
    EXPECT_EQ(ask(Query().text("ClOrdID", TextCondition::anyOf({"order-3"})).number(1, IntegerCondition::above(300))),
              Ids());
    EXPECT_EQ(ask(Query().seqNums(2, 7).inverted().seqNums(5, 9)), (Ids{1, 2, 3, 4, 8, 9, 10}));
}

TEST_F(ApiQuery, SkipsBlocksThatHoldNothingThatIsWanted) {
    store(simpleMessages(30));
    EXPECT_EQ(skippedBy(Query()), 0);
    EXPECT_EQ(skippedBy(Query().seqNums(5, 5)), 9);
    EXPECT_EQ(skippedBy(Query().times(5000, 7000)), 8);
    EXPECT_EQ(skippedBy(Query().uniformIds(31, std::nullopt)), 10);
    EXPECT_EQ(skippedBy(Query().ids(5, 5)), 9);
    EXPECT_EQ(skippedBy(Query().classes({MessageClass::appFrom})), 10);
    const std::vector<std::int32_t> set = {5, 6, 25};
    EXPECT_EQ(skippedBy(Query().idSet(set)), 8);
    EXPECT_EQ(skippedBy(Query().text("ClOrdID", TextCondition::anyOf({"order-5"}))), 9);
    EXPECT_EQ(skippedBy(Query().text("ClOrdID", TextCondition::anyOf({"order-5"}).ignoringCase())), 0);
    EXPECT_EQ(skippedBy(Query().text("ClOrdID", TextCondition::anyOf({"order-5"}) || TextCondition::absent())), 0);
    EXPECT_EQ(skippedBy(Query().text("ClOrdID", TextCondition::between("order-5", "order-5"))), 0);
    EXPECT_EQ(skippedBy(Query().number("OrderQty", IntegerCondition::anyOf({500}))), 9);
    EXPECT_EQ(skippedBy(Query().number(BuiltInNumber::seqNum, DoubleCondition::above(27.5))), 9);
    EXPECT_EQ(skippedBy(Query().seqNums(5, 5).inverted()), 0);
}

}  // namespace
}  // namespace tabulo::test
