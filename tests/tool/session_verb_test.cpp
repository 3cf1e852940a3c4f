#include <string>
#include <vector>

#include "tabulo/session_info.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

class SessionVerbTest : public ToolTest {};

TEST_F(SessionVerbTest, EachTagIsALineWithItsValue) {
    makeSession("session");
    ProgramResult result = run({"session", "session"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output,
              "TABLE    TAG  VALUE\n"
              "session    1     17\n"
              "session    2     42\n"
              "session    9     -1\n");
    result = run({"session", "session", "--names", "1=sent,9=what is left", "--names", "2=received"});
    EXPECT_EQ(result.output,
              "TABLE    TAG  NAME          VALUE\n"
              "session    1  sent             17\n"
              "session    2  received         42\n"
              "session    9  what is left     -1\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(SessionVerbTest, JsonHasAnObjectForEachTag) {
    makeSession("session");
    EXPECT_EQ(run({"session", "-o", "ndjson", "--names", "1=sent", "session"}).output,
              "{\"table\":\"session\",\"path\":\"session\",\"tag\":1,\"name\":\"sent\",\"value\":17}\n"
              "{\"table\":\"session\",\"path\":\"session\",\"tag\":2,\"name\":null,\"value\":42}\n"
              "{\"table\":\"session\",\"path\":\"session\",\"tag\":9,\"name\":null,\"value\":-1}\n");
}

TEST_F(SessionVerbTest, OfAFolderTheSessionTablesAreShown) {
    makeOrders("orders", 3);
    makeSession("a");
    makeSession("b");
    const ProgramResult result = run({"session", "."});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(occurrences(result.output, "\n"), 7) << result.output;
    std::filesystem::remove(file("a"));
    std::filesystem::remove(file("b"));
    EXPECT_EQ(run({"session", "."}).status, 1);
}

TEST_F(SessionVerbTest, AMessageTableThatIsNamedIsRefused) {
    makeOrders("orders", 3);
    const ProgramResult result = run({"session", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors,
              "tabulo: orders is a message table and holds no session values; 'tabulo info orders' tells about it\n");
}

TEST_F(SessionVerbTest, NamesThatCannotBeAreWrongUse) {
    makeSession("session");
    for (const char* names : {"sent", "1", "1=", "=sent", "x=sent", "1=sent,1=again", "99999999999=a"}) {
        const ProgramResult result = run({"session", "session", "--names", names});
        EXPECT_EQ(result.status, 2) << names;
        EXPECT_NE(result.errors.find("--names"), std::string::npos) << result.errors;
    }
}

TEST_F(SessionVerbTest, ANameForATagThatNoTableHasIsTold) {
    makeSession("session");
    const ProgramResult result = run({"session", "session", "--names", "3=lost"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "tabulo: no table has tag 3, which --names calls lost\n");
}

TEST_F(SessionVerbTest, BesideAWriterTheValuesOfTheMomentAreShown) {
    const std::string path = makeSession("session");
    SessionInfo session = SessionInfo::openForWriting(path);
    session.write(1, 18);
    const auto before = contents();
    EXPECT_NE(run({"session", "session"}).output.find("session    1     18\n"), std::string::npos);
    EXPECT_EQ(contents(), before);
    session.write(1, 19);
    EXPECT_NE(run({"session", "session"}).output.find("session    1     19\n"), std::string::npos);
}

TEST_F(SessionVerbTest, ACutTableFails) {
    std::filesystem::resize_file(makeSession("session"), 30);
    const ProgramResult result = run({"session", "session"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("session"), std::string::npos) << result.errors;
}

}  // namespace

}  // namespace tabulo::tool::test
