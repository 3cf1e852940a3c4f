// The words that the shell offers.
#include "tool/sql_words.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tabulo::tool {

namespace {

using Words = std::vector<std::string>;

class SqlWordsTest : public ::testing::Test {
  protected:
    SqlWordsTest() {
        session.run(
            "CREATE TEMP TABLE orders(OrderQty, \"Last Px\", \"say \"\"hi\"\"\", \"select\");"
            "CREATE TEMP TABLE \"bad\x1B[2J\"(badColumn)",
            SqlFormat::text);
    }

    Console console;
    SqlSession session{console};
};

TEST_F(SqlWordsTest, NamesBeginInEitherCaseAndKeywordsFollowTheFirstLetter) {
    EXPECT_EQ(sqlWords(session, "SELECT ", "ORDERQ"), Words{"OrderQty"});
    EXPECT_EQ(sqlWords(session, "", "sele"), (Words{"\"select\"", "select"}));
    EXPECT_EQ(sqlWords(session, "", "SELE"), (Words{"\"select\"", "SELECT"}));
    EXPECT_EQ(sqlWords(session, "", "zzz"), Words{});
}

TEST_F(SqlWordsTest, NamesThatAreNoPlainWordsStandInQuotes) {
    EXPECT_EQ(sqlWords(session, "SELECT ", "last p"), Words{"\"Last Px\""});
    EXPECT_EQ(sqlWords(session, "SELECT \"", "last"), Words{"Last Px\""});
    EXPECT_EQ(sqlWords(session, "SELECT \"", "say"), Words{"say \"\"hi\"\"\""});
    EXPECT_EQ(sqlWords(session, "SELECT \"", "sel"), Words{"select\""});
}

TEST_F(SqlWordsTest, WhatCouldChangeATerminalIsNotOffered) {
    EXPECT_EQ(sqlWords(session, "SELECT ", "bad"), Words{"badColumn"});
}

TEST_F(SqlWordsTest, AfterADotAtTheBeginningOfALineThereAreCommands) {
    EXPECT_EQ(sqlWords(session, ".", ""), (Words{"help", "quit", "schema", "tables"}));
    EXPECT_EQ(sqlWords(session, ".", "ta"), Words{"tables"});
    EXPECT_EQ(sqlWords(session, "SELECT orders.", "OrderQ"), Words{"OrderQty"});
}

TEST_F(SqlWordsTest, QuotesInNamesAndTextsAreDoubled) {
    EXPECT_EQ(sqlQuoted("a\"b'c", '"'), "\"a\"\"b'c\"");
    EXPECT_EQ(sqlQuoted("a\"b'c", '\''), "'a\"b''c'");
}

}  // namespace

}  // namespace tabulo::tool
