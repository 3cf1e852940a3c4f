// The rows of statements as they are printed.
#include "tool/sql_output.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/captured_output.h"
#include "tool/sql_session.h"

namespace tabulo::tool {

namespace {

std::string printed(const std::string& statement, SqlFormat format) {
    internal::test::CapturedOutput output(stdout);
    Console console;
    SqlSession session(console);
    session.run(statement, format);
    console.flush();
    return output.text();
}

TEST(SqlOutputTest, EyesSeeNullsAsDashesAndNumbersAtTheRight) {
    EXPECT_EQ(printed("SELECT 'a' AS name, 10 AS n, NULL AS x UNION ALL SELECT 'bcd', 2.5, '-'", SqlFormat::text),
              "name    n  x\n"
              "a      10  -\n"
              "bcd   2.5  -\n");
}

TEST(SqlOutputTest, EyesSeeWhatIsNotPrintableEscaped) {
    EXPECT_EQ(printed("SELECT char(27) || '[2J' AS t, x'383D463901FF' AS b, 1 AS \"\", 2 AS \"a\nb\"", SqlFormat::text),
              "t        b             a\\x0Ab\n"
              "\\x1B[2J  8=F9|\\xFF  1       2\n");
}

TEST(SqlOutputTest, CsvTellsNullsFromEmptyTextsAndQuotesWhatMustBe) {
    EXPECT_EQ(printed("SELECT NULL AS a, '' AS b, 'x,y' AS c, 'say \"hi\"' AS \"d,e\", x'' AS f, 1.5 AS g, 9e999 AS h",
                      SqlFormat::csv),
              "a,b,c,\"d,e\",f,g,h\r\n,\"\",\"x,y\",\"say \"\"hi\"\"\",\"\",1.5,Infinity\r\n");
    EXPECT_EQ(printed("SELECT 1 AS a WHERE 0", SqlFormat::csv), "a\r\n") << "no rows";
}

TEST(SqlOutputTest, NdjsonHasNumbersStringsNullsAndBase64) {
    EXPECT_EQ(printed("SELECT NULL AS n, -9223372036854775808 AS i, 0.1 AS d, 9e999 AS inf, 'a\"\xC3\xA9' AS t,"
                      " x'4142' AS u, x'00FF' AS b, x'' AS e",
                      SqlFormat::ndjson),
              "{\"n\":null,\"i\":-9223372036854775808,\"d\":0.1,\"inf\":\"Infinity\",\"t\":\"a\\\"\xC3\xA9\","
              "\"u\":\"AB\",\"b\":{\"base64\":\"AP8=\"},\"e\":\"\"}\n");
    EXPECT_EQ(printed("SELECT 1 AS a WHERE 0", SqlFormat::ndjson), "");
}

TEST(SqlOutputTest, ATextThatIsNoUtf8IsBase64InNdjsonAndItsBytesInCsv) {
    EXPECT_EQ(printed("SELECT CAST(x'FF41' AS TEXT) AS t", SqlFormat::ndjson), "{\"t\":{\"base64\":\"/0E=\"}}\n");
    EXPECT_EQ(printed("SELECT CAST(x'FF41' AS TEXT) AS t", SqlFormat::csv), "t\r\n\xFF\x41\r\n");
}

TEST(SqlOutputTest, EqualNamesOfColumnsAreToldApart) {
    const std::string statement = "SELECT 1 AS a, 2 AS a, 3 AS \"a#2\", 4 AS a";
    EXPECT_EQ(printed(statement, SqlFormat::ndjson), "{\"a\":1,\"a#2\":2,\"a#2#2\":3,\"a#3\":4}\n");
    EXPECT_EQ(printed(statement, SqlFormat::csv), "a,a#2,a#2#2,a#3\r\n1,2,3,4\r\n");
    EXPECT_EQ(printed(statement, SqlFormat::text), "a  a  a#2  a\n1  2    3  4\n");
}

TEST(SqlOutputTest, LargeValuesAreWholeInEveryFormat) {
    const std::string text(200'000, 'x');
    const std::string statement = "SELECT replace(hex(zeroblob(100000)), '0', 'x') AS t, zeroblob(3) || x'FF' AS b";
    EXPECT_EQ(printed(statement, SqlFormat::ndjson), "{\"t\":\"" + text + "\",\"b\":{\"base64\":\"AAAA/w==\"}}\n");
    EXPECT_EQ(printed("SELECT '\"' || replace(hex(zeroblob(100000)), '0', 'x') AS t", SqlFormat::csv),
              "t\r\n\"\"\"" + text + "\"\r\n");
    const std::string blob = printed("SELECT CAST(zeroblob(99999) || x'FF' AS BLOB) AS b", SqlFormat::ndjson);
    EXPECT_EQ(blob, "{\"b\":{\"base64\":\"" + std::string(133'332, 'A') + "/w==\"}}\n");
}

TEST(SqlOutputTest, StatementsWithoutColumnsPrintNothing) {
    EXPECT_EQ(printed("CREATE TEMP TABLE t(x); INSERT INTO t VALUES (1); -- done", SqlFormat::csv), "");
}

}  // namespace

}  // namespace tabulo::tool
