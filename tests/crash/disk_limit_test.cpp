// A disk that takes no more bytes from some offset on (the limit of a process's file sizes), at every offset, and then
// takes them again.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "core/platform.h"
#include "tests/crash/crash_traffic.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MESSAGES = 10;
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t STEP = 3;
#else
constexpr std::size_t STEP = 1;
#endif

// No file of this process grows beyond the limit while the object lives.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(std::size_t bytes) {
        platform_ignoreFileSizeSignal();
        if (::getrlimit(RLIMIT_FSIZE, &before_) != 0) {
            throw std::system_error(errno, std::generic_category(), "getrlimit");
        }
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit before_{};
};

class DiskLimit : public TableImageTest {
  protected:
    DiskLimit() {
        shape.summarisedStringFieldCount = 0;  // short footers: every byte of the table is a limit
        shape.stringNames = {};
        messages = simpleMessages(1, MESSAGES, shape);
        whole = closedImage(shape, messages);
    }
    // What happened to an engine that goes on until the first refused write, and tries twice more behind it.
    struct Run {
        ErrorCode opened = NO_ERROR;
        std::int32_t stored = 0;
        std::vector<ErrorCode> refused;
    };
    Run writeFrom(std::int32_t first) {
        Run run;
        const MessageTablePtr writer = createTable(directory.root(), shape);
        run.opened = mt_open(writer.get(), OpenMode::write);
        run.stored = first - 1;
        for (std::int32_t n = first; run.opened == NO_ERROR && n <= MESSAGES && run.refused.size() < 3; ++n) {
            const ErrorCode code = writeMessage(writer.get(), simpleMessage(run.stored + 1, shape));
            if (code != NO_ERROR) {
                run.refused.push_back(code);
            } else {
                run.stored += 1;
            }
        }
        return run;
    }
    void expectRefusals(const Run& run) {
        for (std::size_t i = 0; i < run.refused.size(); ++i) {
            EXPECT_TRUE(run.refused[i] == FILE_WRITE_ERROR || (i == 0 && run.refused[i] == FILE_FLUSH_ERROR))
                << "refused write " << i << " gives " << getErrorMessage(run.refused[i]);
        }
        refusals += static_cast<std::int64_t>(run.refused.size());
    }
    // With space again: nothing lost, nothing doubled, and the table ends as if the disk had never been full.
    void expectGoesOn(std::int32_t stored) {
        MessageTablePtr writer = createTable(directory.root(), shape);
        const ErrorCode code = mt_open(writer.get(), OpenMode::write);
        ASSERT_EQ(code, NO_ERROR) << "it does not open again: " << getErrorMessage(code) << ", its file has "
                                  << fileBytes().size() << " bytes";
        lost += std::max(0, stored - writer->records.dataInfo.messageCount);
        ASSERT_EQ(writer->records.dataInfo.messageCount, stored);
        ASSERT_EQ(writeSimpleMessages(writer.get(), stored + 1, MESSAGES, shape), NO_ERROR);
        ASSERT_EQ(closeTable(writer), NO_ERROR);
        ASSERT_EQ(fileProblem(fileBytes(), whole), "");
        ASSERT_TRUE(others().empty()) << "a full disk is no damage: " << others().begin()->first;
        limits += 1;
    }

    std::vector<Message> messages;
    Bytes whole;
    std::int64_t limits = 0;
    std::int64_t refusals = 0;
    std::int64_t lost = 0;
};

TEST_F(DiskLimit, AtEveryOffsetRefusesTheWritesThatAreNotStoredAndTheTableGoesOnWithSpaceAgain) {
    for (std::size_t limit = mapOf(shape, messages).headerSize; limit <= whole.size(); limit += STEP) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        std::filesystem::remove(path());
        Run first;
        Run second;
        {
            const FileSizeLimit full(limit);
            first = writeFrom(1);
            second = writeFrom(first.stored + 1);  // the engine opens again too early
        }
        ASSERT_EQ(first.opened, NO_ERROR) << getErrorMessage(first.opened);
        expectRefusals(first);
        expectRefusals(second);
        EXPECT_EQ(first.stored == MESSAGES, first.refused.empty());
        if (limit < whole.size()) {
            EXPECT_LT(first.stored, MESSAGES) << "more messages than there was space for";
        }
        ASSERT_EQ(messagesIn(directory.root(), shape), simpleMessages(1, second.stored, shape));
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(second.stored));
        log.clear();
    }
    reportFigure("disk full", "limits of the file size", limits);
    reportFigure("disk full", "refused writes", refusals);
    reportFigure("disk full", "acknowledged messages lost", lost);
}

// What a kill leaves: recovery needs space for the footer of a block that was complete and never closed.
TEST_F(DiskLimit, UnderARecoveryLosesNothingAndTheNextOneWithSpaceIsWhole) {
    messages.resize(8);
    const Bytes unclosed = footerlessImage(shape, messages);
    const std::size_t end = mapOf(shape, messages).dataEnd;
    std::int64_t failed = 0;
    for (std::size_t limit = unclosed.size() - 60; limit <= end; limit += STEP) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        place(unclosed);
        ErrorCode code = NO_ERROR;
        {
            const FileSizeLimit full(limit);
            code = recover();
        }
        failed += code == NO_ERROR ? 0 : 1;
        EXPECT_EQ(code == NO_ERROR, limit >= end) << getErrorMessage(code);
        ASSERT_EQ(messagesIn(directory.root(), shape), messages) << "a reader, behind a recovery that had no space";
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(8));
        log.clear();
    }
    EXPECT_GT(failed, 0);
    reportFigure("disk full", "recoveries without space", failed);
}

TEST_F(DiskLimit, UnderACreationLeavesATableThatIsMadeAnewWithSpaceAgain) {
    for (std::size_t limit = 0; limit < mapOf(shape, messages).headerSize; limit += 1) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        std::filesystem::remove(path());
        Run run;
        {
            const FileSizeLimit full(limit);
            run = writeFrom(1);
        }
        EXPECT_TRUE(run.opened == FILE_WRITE_ERROR || run.opened == FILE_FLUSH_ERROR) << getErrorMessage(run.opened);
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(0));
    }
}

TEST_F(DiskLimit, UnderADropLeavesAnEmptyTableOrOneThatIsMadeAnewWithSpaceAgain) {
    for (std::size_t limit = 0; limit < mapOf(shape, messages).headerSize; limit += STEP) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        place(whole);
        ErrorCode code = NO_ERROR;
        const MessageTablePtr dropped = openTable(directory.root(), OpenMode::write, shape);
        {
            const FileSizeLimit full(limit);
            code = mt_drop(dropped.get());
        }
        EXPECT_TRUE(code == FILE_WRITE_ERROR || code == FILE_FLUSH_ERROR) << getErrorMessage(code);
        ASSERT_NO_FATAL_FAILURE(expectGoesOn(0));
    }
}

// The session info table of these tests, as it is made and then written under a limit.
class SessionDiskLimit : public ::testing::Test {
  protected:
    SessionDiskLimit() {
        makeWithin(RLIM_INFINITY);
        headerSize = std::filesystem::file_size(path);
        end = headerSize + 8 * SESSION_TAGS.size();
    }
    // Writes values twice; the codes of the opening and of both.
    std::array<ErrorCode, 3> makeWithin(std::size_t limit, bool write = false) {
        std::filesystem::remove(path);
        const FileSizeLimit full(limit);
        const SessionTablePtr writer = createSession(directory.root());
        const ErrorCode opened = si_init(writer.get(), OpenMode::write);
        return {opened, write ? storeSession(writer.get(), 1) : NO_ERROR,
                write ? storeSession(writer.get(), 2) : NO_ERROR};
    }
    SessionTablePtr openAgain() {
        SessionTablePtr again = createSession(directory.root());
        EXPECT_EQ(si_init(again.get(), OpenMode::write), NO_ERROR)
            << "with space again, from a file of " << std::filesystem::file_size(path) << " bytes";
        return again;
    }

    const LogCapture log;
    const TemporaryDirectory directory;
    const std::string path = directory.file("session");
    std::size_t headerSize = 0;
    std::size_t end = 0;
};

TEST_F(SessionDiskLimit, UnderACreationLeavesATableThatIsMadeAnewWithSpaceAgain) {
    for (std::size_t limit = 0; limit < headerSize && !HasFailure(); ++limit) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        EXPECT_NE(makeWithin(limit).front(), NO_ERROR);
        EXPECT_EQ(storeSession(openAgain().get(), 1), NO_ERROR);
    }
}

TEST_F(SessionDiskLimit, UnderTheFirstWriteLeavesEachTagWithItsOldOrItsNewValue) {
    for (std::size_t limit = headerSize; limit <= end; ++limit) {
        SCOPED_TRACE("a limit of " + std::to_string(limit) + " bytes");
        const ErrorCode expected = limit == end ? NO_ERROR : FILE_WRITE_ERROR;
        const std::array<ErrorCode, 3> codes = makeWithin(limit, true);
        EXPECT_EQ(codes[0], NO_ERROR);
        EXPECT_TRUE(codes[1] == expected || (limit < end && codes[1] == FILE_FLUSH_ERROR)) << codes[1];
        EXPECT_EQ(codes[2], expected) << "the file is closed";
        const SessionTablePtr again = openAgain();
        SessionValues values{};
        ASSERT_EQ(si_read(again.get(), 6, SESSION_TAGS.data(), values.data()), NO_ERROR);
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_TRUE(limit == end ? values.at(i) == sessionValues(2).at(i)
                                     : values.at(i) == 0 || values.at(i) == sessionValues(1).at(i))
                << "tag " << SESSION_TAGS.at(i) << " holds " << values.at(i);
        }
        EXPECT_EQ(storeSession(again.get(), 3), NO_ERROR);
    }
}

}  // namespace
}  // namespace tabulo::internal::test
