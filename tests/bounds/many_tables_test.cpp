// A thousand tables open at once in one process.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <filesystem>

#include "core/platform.h"
#include "messagetable/message_lookup.h"
#include "tests/messagetable/message_table_fixture.h"
#include "tests/sessioninfo/session_info_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t TABLES = 1000;
// A writer, a reader and a session info table each, and what the process needs besides.
constexpr rlim_t DESCRIPTORS = 3 * TABLES + 100;

class ManyTables : public ::testing::Test {
  protected:
    void SetUp() override {
        platform_raiseOpenFileLimit(DESCRIPTORS);
        rlimit limit{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        if (limit.rlim_cur < DESCRIPTORS) {
            GTEST_SKIP() << "this process may open only " << limit.rlim_cur << " files";
        }
    }

    static TableShape shapeOf(std::int32_t i) {
        TableShape shape;
        shape.name = "table" + std::to_string(i);
        return shape;
    }

    // Message n of table i.
    static Message messageOf(std::int32_t i, std::int32_t n) { return simpleMessage(10 * i + n, shapeOf(i)); }

    TemporaryDirectory directory;
    LogCapture log;
};

TEST_F(ManyTables, AreWrittenReadAndClosedSideBySide) {
    std::vector<MessageTablePtr> writers;
    std::vector<MessageTablePtr> readers;
    for (std::int32_t i = 0; i < TABLES; ++i) {
        writers.push_back(openTable(directory.root(), OpenMode::write, shapeOf(i)));
        ASSERT_NE(writers.back(), nullptr);
        readers.push_back(openTable(directory.root(), OpenMode::read, shapeOf(i)));
        ASSERT_NE(readers.back(), nullptr);
    }
    // In turns, so that each table's blocks grow among those of all the others.
    constexpr std::int32_t PER_TABLE = 5;
    for (std::int32_t n = 1; n <= PER_TABLE; ++n) {
        for (std::int32_t i = 0; i < TABLES; ++i) {
            ASSERT_EQ(writeMessage(writers[static_cast<std::size_t>(i)].get(), messageOf(i, n)), NO_ERROR);
        }
    }
    for (std::int32_t i = 0; i < TABLES; ++i) {
        MessageTable* reader = readers[static_cast<std::size_t>(i)].get();
        std::int32_t uniformId = 0;
        ASSERT_EQ(mt_getLastUniformMessageId(reader, &uniformId), NO_ERROR);
        ASSERT_EQ(uniformId, 10 * i + PER_TABLE);
        const std::vector<Message> messages = readAll(reader).messages;
        ASSERT_EQ(messages, simpleMessages(10 * i + 1, 10 * i + PER_TABLE, shapeOf(i)));
        // A table that is open for writing is locked for every other one.
        if (i % 100 == 0) {
            ASSERT_EQ(mt_open(createTable(directory.root(), shapeOf(i)).get(), OpenMode::write), FILE_OPEN_ERROR);
        }
    }
    for (MessageTablePtr& writer : writers) {
        ASSERT_EQ(closeTable(writer), NO_ERROR);
    }
    log.clear();
    for (std::int32_t i = 0; i < TABLES; ++i) {
        ASSERT_NE(openTable(directory.root(), OpenMode::write, shapeOf(i)), nullptr);
    }
    EXPECT_TRUE(log.warnings().empty()) << "none of them needs recovery";
    reportFigure("bounds", "tables open at once", 2 * TABLES);
}

TEST_F(ManyTables, OfSessionInfoAreWrittenAndReadSideBySide) {
    std::vector<SessionInfoTablePtr> writers;
    std::vector<SessionInfoTablePtr> readers;
    for (std::int32_t i = 0; i < TABLES; ++i) {
        const std::string root = directory.root() + std::to_string(i) + "/";
        std::filesystem::create_directory(root);
        writers.push_back(openSessionTable(root, OpenMode::create));
        readers.push_back(openSessionTable(root, OpenMode::read));
        ASSERT_NE(readers.back(), nullptr);
    }
    for (std::int32_t i = 0; i < TABLES; ++i) {
        ASSERT_EQ(writeValues(writers[static_cast<std::size_t>(i)].get(), {1, 2}, {i, -i}), NO_ERROR);
    }
    for (std::int32_t i = 0; i < TABLES; ++i) {
        ASSERT_EQ(readValues(readers[static_cast<std::size_t>(i)].get(), {2, 1}), (Values{-i, i}));
    }
}

}  // namespace
}  // namespace tabulo::internal::test
