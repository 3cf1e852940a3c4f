#include "tabulo/session_info.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <type_traits>

#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_platform.h"

namespace tabulo::test {
namespace {

class ApiSessionInfo : public ::testing::Test {
  protected:
    std::filesystem::path path() const { return directory.file("session"); }

    const TemporaryDirectory directory;
    const std::vector<std::int32_t> tags = {7, -2, 30};
};

TEST_F(ApiSessionInfo, KeepsWhatIsWritten) {
    {
        SessionInfo session = SessionInfo::create(path(), tags);
        EXPECT_EQ(session.read(tags), (std::vector<std::int64_t>{0, 0, 0}));
        session.write(-2, 5000000000);
        const std::vector<SessionValue> two = {{30, 1}, {7, -1}};
        session.write(two);
        EXPECT_EQ(session.read(-2), 5000000000);
    }
    const SessionInfo session = SessionInfo::open(path());
    EXPECT_EQ(session.tags(), tags);
    EXPECT_EQ(session.values(), (std::vector<SessionValue>{{7, -1}, {-2, 5000000000}, {30, 1}}));
    EXPECT_EQ(session.table(), "session");
    EXPECT_EQ(session.path(), path());
    EXPECT_FALSE(session.isWritable());
}

TEST_F(ApiSessionInfo, NeverEmptiesATableByCreatingItAgain) {
    SessionInfo::create(path(), tags).write(7, 1);
    const Error error = errorOf([&] { static_cast<void>(SessionInfo::create(path(), tags)); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.systemText(), "File exists");
    EXPECT_EQ(SessionInfo::open(path()).read(7), 1);
}

TEST_F(ApiSessionInfo, IsNotMadeWhenItIsOpened) {
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(SessionInfo::open(path())));
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(SessionInfo::openForWriting(path())));
    EXPECT_FALSE(std::filesystem::exists(path()));
    SessionInfo::openOrCreate(path(), tags).write(7, 3);
    EXPECT_EQ(SessionInfo::openOrCreate(path(), tags).read(7), 3);
}

TEST_F(ApiSessionInfo, RefusesTagsThatNoTableCanHave) {
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SessionInfo::create(path(), {})));
    EXPECT_TABULO_ERROR(wrongParameter,
                        static_cast<void>(SessionInfo::create(path(), std::vector<std::int32_t>(33, 1))));
    const std::vector<std::int32_t> twice = {1, 2, 1};
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SessionInfo::create(path(), twice)));
    EXPECT_TABULO_ERROR(wrongParameter, static_cast<void>(SessionInfo::create("", tags)));
    EXPECT_FALSE(std::filesystem::exists(path()));
    std::vector<std::int32_t> most;
    for (std::int32_t tag = 1; tag <= 32; ++tag) {
        most.push_back(tag);
    }
    EXPECT_EQ(SessionInfo::create(path(), most).tags(), most);
}

TEST_F(ApiSessionInfo, MayHaveMoreTagsThanAreAskedForButNotFewer) {
    SessionInfo::create(path(), tags).close();
    const std::vector<std::int32_t> fewer = {30};
    EXPECT_EQ(SessionInfo::openOrCreate(path(), fewer).tags(), tags);
    const std::vector<std::int32_t> other = {30, 31};
    EXPECT_TABULO_ERROR(configMismatch, static_cast<void>(SessionInfo::openOrCreate(path(), other)));
}

TEST_F(ApiSessionInfo, RefusesATagThatItLacksAndChangesNothingThen) {
    SessionInfo session = SessionInfo::create(path(), tags);
    const std::vector<SessionValue> mixed = {{7, 1}, {8, 1}};
    const Error error = errorOf([&] { session.write(mixed); });
    EXPECT_EQ(error.code(), Code::wrongParameter);
    EXPECT_EQ(error.detail(), "the table has no tag 8");
    EXPECT_EQ(session.read(7), 0);
    EXPECT_TABULO_ERROR(noData, static_cast<void>(session.read(8)));
    const std::vector<std::int32_t> asked = {7, 8};
    EXPECT_TABULO_ERROR(noData, static_cast<void>(session.read(asked)));
}

TEST_F(ApiSessionInfo, TakesTheLastValueOfATagThatIsGivenTwiceHoweverManyAreGiven) {
    SessionInfo session = SessionInfo::create(path(), tags);
    std::vector<SessionValue> many;
    for (std::int64_t value = 1; value <= 1000; ++value) {
        many.push_back({7, value});
    }
    session.write(many);
    session.write(std::vector<SessionValue>{});
    EXPECT_EQ(SessionInfo::open(path()).read(7), 1000);
}

TEST_F(ApiSessionInfo, IsNotWrittenWhenItIsOpenForReading) {
    SessionInfo::create(path(), tags).write(7, 4);
    SessionInfo session = SessionInfo::open(path());
    EXPECT_TABULO_ERROR(readOnly, session.write(7, 5));
    EXPECT_TABULO_ERROR(readOnly, session.drop());
    SessionInfo writer = SessionInfo::openForWriting(path());  // the reader has not become one
    EXPECT_EQ(writer.read(7), 4);
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(SessionInfo::openForWriting(path())));
}

TEST_F(ApiSessionInfo, ShowsAReaderWhatItsLastRefreshHasFound) {
    SessionInfo writer = SessionInfo::create(path(), tags);
    SessionInfo reader = SessionInfo::open(path());
    writer.write(7, 11);
    EXPECT_EQ(reader.read(7), 0);
    reader.refresh();
    EXPECT_EQ(reader.read(7), 11);
    writer.refresh();
    EXPECT_EQ(writer.read(7), 11);
}

TEST_F(ApiSessionInfo, ShowsValuesOfOneMomentBesideAWriterThatReplacesThem) {
    SessionInfo::create(path(), tags).close();
    internal::test::ChildProcess child([&] {
        SessionInfo session = SessionInfo::openForWriting(path());
        for (std::int64_t n = 1;; ++n) {
            const std::vector<SessionValue> same = {{7, n}, {-2, n}, {30, n}};
            session.write(same);
        }
        return 0;
    });
    SessionInfo reader = SessionInfo::open(path());
    for (int i = 0; i < 3000; ++i) {
        try {
            reader.refresh();
        } catch (const Error& error) {
            ASSERT_EQ(error.detail(), "the values are being replaced all the time");
        }
        const std::vector<std::int64_t> values = reader.read(tags);
        ASSERT_TRUE(values[0] == values[1] && values[1] == values[2])
            << values[0] << " " << values[1] << " " << values[2];
    }
    EXPECT_EQ(child.kill(), 256 + 9);
}

TEST_F(ApiSessionInfo, DropsAllValuesAndKeepsTheTags) {
    SessionInfo session = SessionInfo::create(path(), tags);
    session.write(7, 1);
    session.drop();
    EXPECT_EQ(session.read(tags), (std::vector<std::int64_t>{0, 0, 0}));
    session.close();
    EXPECT_EQ(SessionInfo::open(path()).read(tags), (std::vector<std::int64_t>{0, 0, 0}));
}

TEST_F(ApiSessionInfo, OpensNothingButASessionInfoTable) {
    Writer::create(directory.file("orders"), ordersLayout()).close();
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(SessionInfo::open(directory.file("orders"))));
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(SessionInfo::openForWriting(directory.file("orders"))));
    SessionInfo::create(path(), tags).close();
    EXPECT_TABULO_ERROR(tableType, static_cast<void>(Writer::open(path())));
}

TEST_F(ApiSessionInfo, IsClosedOnceAndThenRefusesEverything) {
    SessionInfo session = SessionInfo::create(path(), tags);
    session.close();
    session.close();
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(session.read(7)));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(session.values()));
    EXPECT_TABULO_ERROR(tableClosed, static_cast<void>(session.tags()));
    EXPECT_TABULO_ERROR(tableClosed, session.write(7, 1));
    EXPECT_TABULO_ERROR(tableClosed, session.refresh());
    EXPECT_TABULO_ERROR(tableClosed, session.drop());
    static_assert(!std::is_copy_constructible_v<SessionInfo> && std::is_nothrow_move_constructible_v<SessionInfo>);
}

TEST_F(ApiSessionInfo, ACloseThatTheSystemRefusesSaysSo) {
    SessionInfo session = SessionInfo::create(path(), tags);
    session.write(7, 1);
    internal::test::FaultPlatform platform;
    platform.failAll(internal::test::FileCall::close, EIO);
    const Error error = errorOf([&] { session.close(); });
    EXPECT_EQ(error.path(), path());
    EXPECT_EQ(error.systemText(), "Input/output error") << error.what();
}

TEST_F(ApiSessionInfo, TellsWhyAWriteHasFailedAndShowsTheNewValues) {
    SessionInfo session = SessionInfo::create(path(), tags);
    session.write(7, 1);
    {
        internal::test::FaultPlatform platform;
        platform.failNth(internal::test::FileCall::writeAt, 1, EDQUOT);
        const Error error = errorOf([&] { session.write(7, 2); });
        EXPECT_EQ(error.code(), Code::fileFlush);
        EXPECT_EQ(error.systemText(), "Disk quota exceeded");
        EXPECT_EQ(error.path(), path());
    }
    EXPECT_EQ(session.read(7), 2);
    EXPECT_EQ(SessionInfo::open(path()).read(7), 1);
}

TEST_F(ApiSessionInfo, OfATagThatStandsTwiceInTheFileTheFirstValueIsReadAndWritten) {
    const std::vector<std::int32_t> two = {1, 2};
    SessionInfo::create(path(), two).write(1, 5);
    Bytes bytes = readFile(path().string());
    bytes[48] = 1;  // the second tag becomes 1, too
    internal::test::writeFile(path().string(), bytes);
    SessionInfo session = SessionInfo::openForWriting(path());
    EXPECT_EQ(session.read(1), 5);
    session.write(1, 6);
    EXPECT_EQ(session.read(1), 6);
    EXPECT_EQ(SessionInfo::open(path()).read(1), 6);
}

}  // namespace
}  // namespace tabulo::test
