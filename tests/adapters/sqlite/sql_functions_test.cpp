// The functions of SQL: what a FIX message says, session info tables, and messages of any tables.
#include "tabulo/session_info.h"
#include "tests/adapters/sqlite/sql_test.h"

namespace tabulo::sqlite::test {
namespace {

class SqlFunctions : public SqlTest {
  protected:
    // A message with two entries of a group, as a blob of SQL.
    std::string wire() const {
        std::string text = "8=FIX.4.4|9=99|35=D|49=BUY|11=a1|54=1|453=2|448=X|452=1|448=Y|452=3|58=|10=000|";
        for (char& character : text) {
            character = character == '|' ? '\001' : character;
        }
        return sqlLiteral(Blob{text});
    }
};

TEST_F(SqlFunctions, ATagIsTheFirstValueInTheMessage) {
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", 54)"), "'1'");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", 448)"), "'X'");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", '11')"), "'a1'");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", 58)"), "''");
}

TEST_F(SqlFunctions, ATagThatIsNotThereIsNull) {
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", 55)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", NULL)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", -1)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_tag(" + wire() + ", 'Side')"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_tag(NULL, 54)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_tag(x'', 54)"), "NULL");
}

TEST_F(SqlFunctions, TagsAreRowsInTheOrderOfTheMessage) {
    EXPECT_EQ(connection.must("SELECT tag, name, value, position FROM fix_tags(" + wire() + ") LIMIT 3").text(),
              "8|'BeginString'|'FIX.4.4'|1\n9|'BodyLength'|'99'|2\n35|'MsgType'|'D'|3\n");
    EXPECT_EQ(valueOf("SELECT count(*) FROM fix_tags(" + wire() + ")"), "13");
}

TEST_F(SqlFunctions, TagsInsideGroupsAreEachGiven) {
    EXPECT_EQ(connection.must("SELECT value, position FROM fix_tags(" + wire() + ") WHERE tag = 448").text(),
              "'X'|8\n'Y'|10\n");
}

TEST_F(SqlFunctions, NothingHasNoTags) {
    EXPECT_EQ(valueOf("SELECT count(*) FROM fix_tags(NULL)"), "0");
    EXPECT_EQ(valueOf("SELECT count(*) FROM fix_tags(x'')"), "0");
}

TEST_F(SqlFunctions, TagsAreJoinedWithTheMessagesOfATable) {
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(4));
    ASSERT_EQ(show("orders", "orders").text(), "");
    EXPECT_EQ(connection.must("SELECT o.uid, f.value FROM orders o, fix_tags(o.wire) f WHERE f.tag = 34").text(),
              "1|'1'\n2|'2'\n3|'3'\n4|'4'\n");
    EXPECT_EQ(connection.must("SELECT uid FROM orders WHERE fix_tag(wire, 34) = '3'").text(), "3\n");
}

TEST_F(SqlFunctions, ATextOfAMessageHasBars) {
    EXPECT_EQ(valueOf("SELECT fix_text(x'383d4601393d3101')"), "'8=F|9=1|'");
    EXPECT_EQ(valueOf("SELECT fix_text(NULL)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_text(x'')"), "''");
}

TEST_F(SqlFunctions, NamesAreThoseOfTheDictionary) {
    EXPECT_EQ(valueOf("SELECT fix_name(54)"), "'Side'");
    EXPECT_EQ(valueOf("SELECT fix_name(54, '1')"), "'Buy'");
    EXPECT_EQ(valueOf("SELECT fix_name(54, 1)"), "'Buy'");
    EXPECT_EQ(valueOf("SELECT fix_name(54, 'no such')"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_name(987654)"), "NULL");
    EXPECT_EQ(valueOf("SELECT fix_name(NULL)"), "NULL");
}

TEST_F(SqlFunctions, MessagesOfAnyLayoutsStandInOneTable) {
    StoredTable orders(path("orders"), ordersLayout(), simpleMessages(2));
    StoredTable plain(path("plain"), Layout{});
    StoredMessage message;
    message.uniformId = 7;
    message.wire = "8=F";
    plain.append(message);
    const std::string all = " FROM tabulo_messages(" + quoted("*") + ")";
    EXPECT_EQ(connection.must("SELECT \"table\", uid, wire" + all + " WHERE uid > 1 ORDER BY uid").text(),
              "'orders'|2|x'33353d440133343d3201'\n'plain'|7|x'383d46'\n");
    EXPECT_EQ(valueOf("SELECT count(*)" + all), "3");
    EXPECT_EQ(valueOf("SELECT file" + all + " WHERE uid = 7"), quoted("plain"));
    EXPECT_EQ(valueOf("SELECT count(*) FROM tabulo_messages(" + quoted("plain") + ")"), "1");
}

TEST_F(SqlFunctions, MessagesOfNoTableAreAnError) {
    EXPECT_NE(connection.text("SELECT * FROM tabulo_messages(" + quoted("nothing-*") + ")").find("nothing-*"),
              std::string::npos);
}

TEST_F(SqlFunctions, SessionTablesAreTagsAndValues) {
    const std::vector<std::int32_t> tags = {34, 789};
    SessionInfo session = SessionInfo::create(path("session"), tags);
    session.write(34, std::int64_t{1} << 40);
    const std::string all = "SELECT tag, value FROM tabulo_session(" + quoted("session") + ")";
    EXPECT_EQ(connection.must(all).text(), "34|1099511627776\n789|0\n");
    session.write(789, -5);
    EXPECT_EQ(connection.must(all + " WHERE tag = 789").text(), "789|-5\n");
    connection.must("CREATE VIRTUAL TABLE s USING tabulo_session(" + quoted("session") + ")");
    EXPECT_EQ(connection.must("SELECT value FROM s WHERE tag = 34").text(), "1099511627776\n");
}

TEST_F(SqlFunctions, AMessageTableIsNoSessionTableAndTheOtherWayRound) {
    const std::vector<std::int32_t> tags = {34};
    SessionInfo::create(path("session"), tags);
    StoredTable table(path("orders"), ordersLayout(), simpleMessages(1));
    EXPECT_EQ(connection.text("SELECT * FROM tabulo_session(" + quoted("orders") + ")").substr(0, 16),
              "TABLE_TYPE_ERROR");
    EXPECT_EQ(show("session", "session").text().substr(0, 16), "TABLE_TYPE_ERROR");
    ASSERT_EQ(show("everything", "*").text(), "") << "a glob leaves out session tables";
    EXPECT_EQ(countOf("everything"), "1");
}

}  // namespace
}  // namespace tabulo::sqlite::test
