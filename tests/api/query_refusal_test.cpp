// What cannot be asked for is refused, and never becomes "everything" or "nothing".
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tabulo/query.h"
#include "tests/api/api_test.h"
#include "tests/api/stored_table.h"

namespace tabulo::test {
namespace {

using Ids = std::vector<std::int32_t>;
using Change = std::function<void(Query&)>;

constexpr std::int32_t highestInt = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t highestLong = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t lowestLong = std::numeric_limits<std::int64_t>::min();

TEST(ApiTextCondition, IsRefusedWhenItSelectsNothing) {
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::anyOf({}));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::anyOf(std::vector<std::string>()));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between("b", "a"));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between("a", ""));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between("\x80", "z"));  // bytes from 128 on are the highest
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::below(""));
    EXPECT_NO_THROW(TextCondition::between("", ""));
    EXPECT_NO_THROW(TextCondition::atMost(""));
    EXPECT_NO_THROW(TextCondition::anyOf({""}));
}

TEST(ApiTextCondition, IsRefusedWithAZeroByte) {
    const std::string_view zero("a\0b", 3);
    const std::string_view onlyZero("\0", 1);
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::anyOf({zero}));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::anyOf({"a", onlyZero}));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::anyOf(std::vector<std::string>{std::string(zero)}));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between(zero, "z"));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between("", zero));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::above(zero));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::atLeast(onlyZero));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::below(zero));
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::atMost(onlyZero));
}

TEST(ApiTextCondition, IsRefusedWhenItsCaseIsNotClear) {
    const TextCondition plain = TextCondition::anyOf({"a"});
    const TextCondition folded = plain.ignoringCase();
    EXPECT_TABULO_ERROR(wrongParameter, TextCondition::between("a", "b").ignoringCase());
    EXPECT_TABULO_ERROR(wrongParameter, (plain || TextCondition::above("b")).ignoringCase());
    EXPECT_TABULO_ERROR(wrongParameter, plain || folded);
    EXPECT_TABULO_ERROR(wrongParameter, folded || plain);
    EXPECT_TABULO_ERROR(wrongParameter, folded || TextCondition::above("b"));
    EXPECT_NO_THROW(folded || folded.ignoringCase());
}

TEST(ApiQueryRange, IsRefusedWithoutAFirstAndALastOne) {
    EXPECT_TABULO_ERROR(wrongParameter, Query().seqNums(std::nullopt, std::nullopt));
    EXPECT_TABULO_ERROR(wrongParameter, Query().uniformIds(std::nullopt, std::nullopt));
    EXPECT_TABULO_ERROR(wrongParameter, Query().times(std::nullopt, std::nullopt));
}

TEST(ApiNumberCondition, IsRefusedWhenItSelectsNothing) {
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::anyOf({}));
    EXPECT_TABULO_ERROR(wrongParameter, IntegerCondition::anyOf({}));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::anyOf(std::vector<double>()));
    EXPECT_TABULO_ERROR(wrongParameter, IntegerCondition::anyOf(std::vector<std::int64_t>()));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::between(1.5, 1.0));
    EXPECT_TABULO_ERROR(wrongParameter, IntegerCondition::between(2, 1));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::above(HUGE_VAL));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::below(-HUGE_VAL));
    EXPECT_TABULO_ERROR(wrongParameter, IntegerCondition::above(highestLong));
    EXPECT_TABULO_ERROR(wrongParameter, IntegerCondition::below(lowestLong));
    EXPECT_NO_THROW(DoubleCondition::between(0.0, -0.0));
    EXPECT_NO_THROW(DoubleCondition::atLeast(HUGE_VAL));
    EXPECT_NO_THROW(IntegerCondition::atMost(lowestLong));
    EXPECT_NO_THROW(IntegerCondition::between(highestLong, highestLong));
}

TEST(ApiNumberCondition, IsRefusedWithNaN) {
    const double nan = std::nan("");
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::anyOf({1.0, nan}));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::anyOf(std::vector<double>{nan}));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::between(nan, 1.0));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::between(1.0, nan));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::above(nan));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::atLeast(-nan));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::below(nan));
    EXPECT_TABULO_ERROR(wrongParameter, DoubleCondition::atMost(nan));
}

class ApiQueryRefusal : public TableTest {
  protected:
    // The change must be refused, and leave the query as it was.
    void expectRefused(const char* what, const Change& change, const Query& begun = Query()) {
        Query query = begun;
        const Ids before = idsOf(reader.messages(query));
        try {
            change(query);
            ADD_FAILURE() << what << " is taken";
        } catch (const Error& error) {
            EXPECT_EQ(error.name(), "WRONG_PARAMETER_ERROR") << what;
            EXPECT_FALSE(error.detail().empty()) << what;
        }
        EXPECT_EQ(idsOf(reader.messages(query)), before) << what << " has changed the query";
        query.seqNums(2, 3);
        EXPECT_EQ(idsOf(reader.messages(query)), (Ids{2, 3})) << what << " has spoilt the query";
    }

    const StoredTable table{path(), layout, simpleMessages(10)};
    Reader reader{path()};
};

TEST_F(ApiQueryRefusal, OfReversedRangesLeavesTheQueryAsItWas) {
    expectRefused("seqNums", [](Query& query) { query.seqNums(5, 4); });
    expectRefused("uniformIds", [](Query& query) { query.uniformIds(highestInt, -highestInt); });
    expectRefused("times", [](Query& query) { query.times(0, -1); });
    expectRefused("ids", [](Query& query) { query.ids(7, 6); });
    const std::vector<IdRange> second = {{1, 9}, {536870915, 536870912}};
    expectRefused("ids", [&](Query& query) { query.ids(second); });
}

TEST_F(ApiQueryRefusal, OfEmptySetsLeavesTheQueryAsItWas) {
    expectRefused("ids", [](Query& query) { query.ids(std::span<const IdRange>()); });
    expectRefused("idSet", [](Query& query) { query.idSet({}); });
    expectRefused("classes", [](Query& query) { query.classes(std::initializer_list<MessageClass>()); });
    expectRefused("classes", [](Query& query) { query.classes(std::span<const MessageClass>()); });
    expectRefused("types", [](Query& query) { query.types(std::initializer_list<std::string_view>()); });
    expectRefused("types", [](Query& query) { query.types(std::span<const std::string>()); });
    expectRefused("excludeTypes", [](Query& query) { query.excludeTypes(std::initializer_list<std::string_view>()); });
    expectRefused("excludeTypes", [](Query& query) { query.excludeTypes(std::span<const std::string>()); });
}

TEST_F(ApiQueryRefusal, OfAnEmptySetSaysSo) {
    EXPECT_EQ(errorOf([] { Query().ids(std::span<const IdRange>()); }).detail(), "a set of ranges of ids is empty");
    EXPECT_EQ(errorOf([] { Query().idSet({}); }).detail(), "a set of ids is empty");
}

TEST_F(ApiQueryRefusal, OfIdsThatDoNotBelongTogetherLeavesTheQueryAsItWas) {
    expectRefused("a range over two classes", [](Query& query) { query.ids(5, 536870911); });
    expectRefused("a range from no class", [](Query& query) { query.ids(-1, 5); });
    expectRefused("a range of no class", [](Query& query) { query.ids(-7, -3); });
    const std::vector<IdRange> twice = {{1, 3}, {536870911, 536870912}, {5, 7}};
    expectRefused("two ranges for a class", [&](Query& query) { query.ids(twice); });
    const std::vector<IdRange> negative = {{1, 3}, {-5, -4}};
    expectRefused("a range of no class", [&](Query& query) { query.ids(negative); });
    const std::vector<std::int32_t> set = {5, -1, 6};
    expectRefused("an id of no class", [&](Query& query) { query.idSet(set); });
    expectRefused("a class that is none", [](Query& query) {
        query.classes({MessageClass::appTo, static_cast<MessageClass>(5)});
    });
    expectRefused("a class that is none", [](Query& query) { query.classes({static_cast<MessageClass>(-1)}); });
}

TEST_F(ApiQueryRefusal, OfTypesThatNoMessageHasLeavesTheQueryAsItWas) {
    expectRefused("a long type", [](Query& query) { query.types({"D", "ABCDEF"}); });
    expectRefused("a long type", [](Query& query) { query.excludeTypes({"ABCDEF"}); });
    expectRefused("a type with a zero byte", [](Query& query) { query.types({std::string_view("A\0B", 3)}); });
    const std::vector<std::string> types = {"D", std::string("\0", 1)};
    expectRefused("a type with a zero byte", [&](Query& query) { query.excludeTypes(types); });
}

TEST_F(ApiQueryRefusal, OfConditionsOnTheMetadataThatExcludeEachOtherLeavesTheQueryAsItWas) {
    expectRefused(
        "seqNums", [](Query& query) { query.seqNums(6, 9); }, Query().seqNums(1, 5));
    expectRefused(
        "seqNums", [](Query& query) { query.seqNums(std::nullopt, 0); }, Query().seqNums(1, std::nullopt));
    expectRefused(
        "uniformIds", [](Query& query) { query.uniformIds(6, 9); }, Query().uniformIds(1, 5));
    expectRefused(
        "times", [](Query& query) { query.times(6000, 9000); }, Query().times(1000, 5000));
    expectRefused(
        "ids", [](Query& query) { query.ids(6, 9); }, Query().ids(1, 5));
    expectRefused(
        "ids of another class", [](Query& query) { query.ids(536870911, 536870912); }, Query().ids(1, 5));
    const std::vector<std::int32_t> set = {1, 2, 3};
    const std::vector<std::int32_t> other = {4, 5, 6};
    expectRefused(
        "idSet", [&](Query& query) { query.idSet(other); }, Query().idSet(set));
    expectRefused(
        "ids and idSet", [](Query& query) { query.ids(4, 9); }, Query().idSet(set));
    expectRefused(
        "idSet and ids", [&](Query& query) { query.idSet(other); }, Query().ids(1, 3));
    expectRefused(
        "classes", [](Query& query) { query.classes({MessageClass::resent}); },
        Query().classes({MessageClass::appTo, MessageClass::appFrom}));
    expectRefused(
        "ids and classes", [](Query& query) { query.classes({MessageClass::appFrom}); }, Query().ids(1, 5));
    expectRefused(
        "classes and ids", [](Query& query) { query.ids(536870911, 536870912); },
        Query().classes({MessageClass::appTo}));
    expectRefused(
        "possDup", [](Query& query) { query.possDup(true); }, Query().possDup(false));
    expectRefused(
        "outOfSequence", [](Query& query) { query.outOfSequence(true); }, Query().outOfSequence(false));
    expectRefused(
        "types",
        [](Query& query) {
            query.types({"8", "F"});
        },
        Query().types({"D", "G"}));
    expectRefused(
        "types and excludeTypes",
        [](Query& query) {
            query.excludeTypes({"D", "8", "G"});
        },
        Query().types({"D", "G"}));
    expectRefused(
        "excludeTypes and types", [](Query& query) { query.types({"8"}); }, Query().excludeTypes({"8", "F"}));
}

TEST_F(ApiQueryRefusal, LeavesInversionDirectionAndPlacesAsTheyWere) {
    const Query begun = Query().seqNums(4, 5).inverted().backward().from(table.place(1)).before(table.place(8));
    Query query = begun;
    EXPECT_TABULO_ERROR(wrongParameter, query.seqNums(6, 9));
    EXPECT_EQ(idsOf(reader.messages(query)), (Ids{8, 7, 6, 3, 2}));
}

TEST_F(ApiQueryRefusal, OfFieldsThatTheTableLacksComesWhenTheQueryIsAsked) {
    const TextCondition text = TextCondition::anyOf({"A"});
    const IntegerCondition integer = IntegerCondition::above(1);
    const DoubleCondition number = DoubleCondition::above(1);
    const auto refusal = [&](const Query& query) {
        const Error error = errorOf([&] { static_cast<void>(reader.messages(query)); });
        EXPECT_FALSE(error.detail().empty());
        return std::string(error.name());
    };
    for (const char* name : {"Side", "", "symbol", "Symbol ", "Price", "OrderQty"}) {
        EXPECT_EQ(refusal(Query().text(name, text)), "WRONG_PARAMETER_ERROR") << name;
    }
    for (const char* name : {"Side", "", "price", "Symbol"}) {
        EXPECT_EQ(refusal(Query().number(name, integer)), "WRONG_PARAMETER_ERROR") << name;
        EXPECT_EQ(refusal(Query().number(name, number)), "WRONG_PARAMETER_ERROR") << name;
    }
    for (const std::size_t field : {std::size_t{2}, std::size_t{14}, std::numeric_limits<std::size_t>::max(),
                                    std::size_t{1} << 32, (std::size_t{1} << 32) - 2}) {
        EXPECT_EQ(refusal(Query().text(field, text)), "INDEX_OUT_OF_BOUNDS_ERROR") << field;
        EXPECT_EQ(refusal(Query().number(field, integer)), "INDEX_OUT_OF_BOUNDS_ERROR") << field;
        EXPECT_EQ(refusal(Query().number(field, number)), "INDEX_OUT_OF_BOUNDS_ERROR") << field;
    }
    EXPECT_EQ(idsOf(reader.messages(Query().text(1, TextCondition::anyOf({"order-2"})))), (Ids{2}));
}

TEST_F(ApiQueryRefusal, OfANameThatTwoFieldsHaveComesWhenTheQueryIsAsked) {
    const StoredTable twice(directory.file("twice"), {.texts = {"A", "B", "A"}, .numbers = {"N", "N"}},
                            {{.uniformId = 1, .texts = {"x", "y", "z"}, .numbers = {Number(), 2.0}}});
    Reader other(directory.file("twice"));
    const TextCondition text = TextCondition::anyOf({"y", "z"});
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(other.messages(Query().text("A", text))));
    EXPECT_TABULO_ERROR(wrongParameter,
                        static_cast<void>(other.messages(Query().number("N", IntegerCondition::above(1)))));
    EXPECT_EQ(idsOf(other.messages(Query().text("B", text).text(2, text))), (Ids{1}));
    EXPECT_EQ(idsOf(other.messages(Query().text(0, text))), Ids());
    EXPECT_EQ(idsOf(other.messages(Query().number(1, IntegerCondition::above(1)))), (Ids{1}));
}

TEST_F(ApiQueryRefusal, OfTypesWithoutRegardToCaseAndOfBuiltInTextsThatTheTableLacks) {
    const TextCondition folded = TextCondition::anyOf({"d"}).ignoringCase();
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(reader.messages(Query().text(BuiltInText::type, folded))));
    const StoredTable fewer(directory.file("fewer"), {.summarisedTexts = 0, .builtInTexts = 2},
                            {{.uniformId = 1, .wire = "w"}, {.uniformId = 2, .nonMetadata = "w"}});
    Reader other(directory.file("fewer"));
    const TextCondition text = TextCondition::anyOf({"w"});
    EXPECT_TABULO_ERROR(indexOutOfBounds, static_cast<void>(other.messages(Query().text(BuiltInText::text0, text))));
    EXPECT_TABULO_ERROR(indexOutOfBounds,
                        static_cast<void>(other.messages(Query().text(BuiltInText::text1, TextCondition::absent()))));
    EXPECT_EQ(idsOf(other.messages(Query().text(BuiltInText::wire, text))), (Ids{1}));
    EXPECT_EQ(idsOf(other.messages(Query().text(BuiltInText::nonMetadata, text))), (Ids{2}));
}

}  // namespace
}  // namespace tabulo::test
