#include "tests/damage/table_queries.h"

namespace tabulo::internal::test {

namespace {

std::string textOf(const std::optional<std::string>& field) {
    return field ? field->substr(0, field->find('\0')) : "";
}

std::vector<TableQuery> metadataQueries() {
    return {
        {"a query for everything", [](QueryConditions*) {}, [](const Message&) { return true; }},
        {"a query for a range of sequence numbers",
         [](QueryConditions* conditions) { EXPECT_EQ(conditions_setSeqNumRange(conditions, 3, 7), NO_ERROR); },
         [](const Message& message) { return message.metadata.seqNum >= 3 && message.metadata.seqNum <= 7; }},
        {"a query for a range of ids",
         [](QueryConditions* conditions) {
             EXPECT_EQ(conditions_setMessageIdRange(conditions, 536870911, 536870919), NO_ERROR);
         },
         [](const Message& message) {
             return message.metadata.connMsgId >= 536870911 && message.metadata.connMsgId <= 536870919;
         }},
        {"a query for ids of two classes",
         [](QueryConditions* conditions) {
             const std::int32_t starts[] = {0, 1073741823};
             const std::int32_t ends[] = {5, 1342177278};
             EXPECT_EQ(conditions_setMessageIdRanges(conditions, starts, 2, ends, 2), NO_ERROR);
         },
         [](const Message& message) {
             const std::int32_t id = message.metadata.connMsgId;
             return (id >= 0 && id <= 5) || (id >= 1073741823 && id <= 1342177278);
         }},
        {"a query for a time",
         [](QueryConditions* conditions) {
             EXPECT_EQ(conditions_setStartingTime(conditions, 4000), NO_ERROR);
             EXPECT_EQ(conditions_setEndingTime(conditions, 10000), NO_ERROR);
         },
         [](const Message& message) {
             return message.metadata.timestamp >= 4000 && message.metadata.timestamp <= 10000;
         }},
        {"an inverted query for possible duplicates",
         [](QueryConditions* conditions) {
             EXPECT_EQ(conditions_setPossDupFlag(conditions, true), NO_ERROR);
             EXPECT_EQ(conditions_setInverted(conditions, true), NO_ERROR);
         },
         [](const Message& message) { return message.metadata.isPossDupFlag == 0; }},
    };
}

std::vector<TableQuery> fieldQueries() {
    return {
        {"a query for a text with a filter in the footer",
         [](QueryConditions* conditions) {
             EXPECT_EQ(conditions_addStringFilter(conditions, 0, false, false), NO_ERROR);
             EXPECT_EQ(conditions_setStringFilterValueCount(conditions, 1), NO_ERROR);
             EXPECT_EQ(conditions_setStringFilterValue(conditions, "A1", 0), NO_ERROR);
         },
         [](const Message& message) { return textOf(message.strings[0]) == "A1"; }},
        {"a query for a text without a filter in the footer",
         [](QueryConditions* conditions) {
             EXPECT_EQ(conditions_addStringFilter(conditions, 2, false, false), NO_ERROR);
             EXPECT_EQ(conditions_setStringFilterRangeCount(conditions, 2), NO_ERROR);
             EXPECT_EQ(conditions_setStringFilterRange(conditions, "S3", "S8", 0), NO_ERROR);
         },
         [](const Message& message) {
             const std::string text = textOf(message.strings[2]);
             return message.strings[2].has_value() && text > "S3" && text < "S8";
         }},
        {"a query for a double",
         [](QueryConditions* conditions) {
             const double low = 12.0;
             const double high = 18.5;
             EXPECT_EQ(conditions_addDoubleFilter(conditions, 0, &low, &high, 1, nullptr, 0, false), NO_ERROR);
         },
         [](const Message& message) {
             const NumericValue& price = message.numbers[0];
             return price.type == NumericType::doubleValue && price.doubleValue > 12.0 && price.doubleValue < 18.5;
         }},
        {"a query for a long",
         [](QueryConditions* conditions) {
             const std::int64_t value = 700;
             EXPECT_EQ(conditions_addLongFilter(conditions, 1, nullptr, nullptr, 0, &value, 1, true), NO_ERROR);
         },
         [](const Message& message) {
             return message.numbers[1].type == NumericType::absent || message.numbers[1].longValue == 700;
         }},
    };
}

}  // namespace

std::vector<TableQuery> tableQueries() {
    std::vector<TableQuery> queries = metadataQueries();
    for (const TableQuery& query : fieldQueries()) {
        queries.push_back(query);
    }
    return queries;
}

}  // namespace tabulo::internal::test
