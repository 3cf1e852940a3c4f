#include "tool/listing.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/captured_output.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

// What a listing prints to a standard output that is no terminal.
std::string printed(ListFormat format, const std::vector<ListColumn>& columns,
                    const std::vector<std::vector<ListCell>>& rows) {
    internal::test::CapturedOutput output(stdout);
    Console console;
    Listing listing(console, format, columns);
    for (const auto& row : rows) {
        listing.add(row);
    }
    listing.end();
    console.flush();
    return output.text();
}

const std::vector<ListColumn> COLUMNS = {{"table", "TABLE"}, {"bytes", "SIZE"}, {"raw", ""}, {"names", "NAMES"}};

TEST(ListingTest, ColumnsAreAlignedAndNumbersStandAtTheRight) {
    const std::string text = printed(
        ListFormat::text, COLUMNS,
        {{{"orders"}, {std::int64_t{2048}, "2.0 KiB"}, {std::int64_t{1}}, {std::vector<std::string>{"Symbol", "Side"}}},
         {{"é"}, {std::int64_t{7}}, {}, {}}});
    EXPECT_EQ(text,
              "TABLE      SIZE  NAMES\n"
              "orders  2.0 KiB  Symbol, Side\n"
              "é             7  -\n");
}

TEST(ListingTest, EveryValueHasItsJson) {
    const std::string text = printed(
        ListFormat::ndjson,
        {{"none", ""}, {"yes", ""}, {"n", ""}, {"d", ""}, {"nan", ""}, {"s", ""}, {"l", ""}, {"o", ""}, {"r", ""}},
        {{{},
          {true},
          {std::numeric_limits<std::int64_t>::min()},
          {0.1},
          {std::numeric_limits<double>::quiet_NaN()},
          {std::string("a\"\x01é")},
          {std::vector<std::int64_t>{1, -2}},
          {ListPairs<std::int64_t>{{"APP_TO", 3}}},
          {ListPairs<ListRange>{{"APP_TO", {1, 2}}}}}});
    EXPECT_EQ(text,
              "{\"none\":null,\"yes\":true,\"n\":-9223372036854775808,\"d\":0.1,\"nan\":\"NaN\","
              "\"s\":\"a\\\"\\u0001é\",\"l\":[1,-2],\"o\":{\"APP_TO\":3},\"r\":{\"APP_TO\":[1,2]}}\n");
}

TEST(ListingTest, InfinitiesAreTextsInJson) {
    EXPECT_EQ(printed(ListFormat::ndjson, {{"a", ""}, {"b", ""}},
                      {{{std::numeric_limits<double>::infinity()}, {-std::numeric_limits<double>::infinity()}}}),
              "{\"a\":\"Infinity\",\"b\":\"-Infinity\"}\n");
}

TEST(ListingTest, TextThatIsNoUtf8IsEscapedSoThatJsonStaysValid) {
    EXPECT_EQ(printed(ListFormat::ndjson, {{"s", ""}}, {{{std::string("a\xFF")}}}), "{\"s\":\"a\\\\xFF\"}\n");
}

TEST(ListingTest, AListWithoutRowsIsNothing) {
    EXPECT_EQ(printed(ListFormat::text, COLUMNS, {}), "");
    EXPECT_EQ(printed(ListFormat::ndjson, COLUMNS, {}), "");
}

TEST(ListingTest, RowsBehindTheFirstThousandKeepTheirWidths) {
    std::vector<std::vector<ListCell>> rows(1000, {{std::int64_t{1}}, {"x"}});
    rows.push_back({{std::int64_t{123}}, {"y"}});
    rows.push_back({{std::int64_t{7}}, {"z"}});
    const std::string text = printed(ListFormat::text, {{"a", "A"}, {"b", "B"}}, rows);
    EXPECT_TRUE(text.starts_with("A  B\n1  x\n1  x\n")) << text.substr(0, 40);
    EXPECT_TRUE(text.ends_with("\n1  x\n123  y\n7  z\n")) << text.substr(text.size() - 40);
}

TEST(ListingTest, ARecordHasALineForEachValueOrOneObject) {
    internal::test::CapturedOutput output(stdout);
    Console console;
    const std::vector<ListCell> row = {{"orders"}, {std::int64_t{7}}, {std::int64_t{1}}, {}};
    printRecord(console, ListFormat::text, COLUMNS, row);
    printRecord(console, ListFormat::ndjson, COLUMNS, row);
    console.flush();
    EXPECT_EQ(output.text(),
              "TABLE  orders\nSIZE   7\nNAMES  -\n"
              "{\"table\":\"orders\",\"bytes\":7,\"raw\":1,\"names\":null}\n");
}

TEST(ListingTest, WhatEyesMustNotSeeIsEscaped) {
    EXPECT_EQ(shownText("35=D\00134=1\001"), "35=D|34=1|");
    EXPECT_EQ(shownText(std::string_view("\x1b[31m\0\n\x7F", 8)), "\\x1B[31m\\x00\\x0A\\x7F");
    EXPECT_EQ(shownText("größe €😀"), "größe €😀");
    EXPECT_EQ(shownText("\xC2\x9B"), "\\xC2\\x9B") << "a control character of two bytes";
    EXPECT_EQ(shownText("\xE2\x80\xAE"), "\\xE2\\x80\\xAE") << "what turns the text behind it around";
    for (const char* broken : {"\xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80",
                               "\xF0\x80\x80\x80", "\xE0\x80\x80"}) {
        EXPECT_FALSE(isUtf8(broken)) << shownText(broken);
        EXPECT_TRUE(shownText(broken).starts_with("\\x")) << shownText(broken);
    }
    EXPECT_TRUE(isUtf8("größe €😀\x01"));
}

TEST(ListingTest, ATextIsCutBetweenCharacters) {
    EXPECT_EQ(cutText("abc", 3), "abc");
    EXPECT_EQ(cutText("abcd", 3), "ab…");
    EXPECT_EQ(cutText("äöüß", 3), "äö…");
    EXPECT_EQ(cutText("ab", 1), "…");
    EXPECT_EQ(cutText("ab", 0), "");
}

TEST(ListingTest, ASizeHasThreeOrFourDigits) {
    EXPECT_EQ(shownBytes(0), "0 B");
    EXPECT_EQ(shownBytes(1023), "1023 B");
    EXPECT_EQ(shownBytes(1024), "1.0 KiB");
    EXPECT_EQ(shownBytes(12595), "12.3 KiB");
    EXPECT_EQ(shownBytes(1048575), "1.0 MiB");
    EXPECT_EQ(shownBytes(std::int64_t{5} << 40), "5.0 TiB");
}

}  // namespace

}  // namespace tabulo::tool
