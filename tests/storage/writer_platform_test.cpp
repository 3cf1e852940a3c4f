#include "storage/writer_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/storage/system_calls.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

// "no" needs a process that sees all others.
bool seesAllProcesses() {
    std::array<char, 64> name{};
    return ::readlink("/proc/self/ns/pid", name.data(), name.size() - 1) > 0 &&
           std::string(name.data()) == "pid:[4026531836]" && ::access("/proc/locks", R_OK) == 0;
}

class WriterPlatform : public ::testing::Test {
  protected:
    void SetUp() override { writeFile(path, pattern(100)); }

    WriterPresence find() const {
        WriterPresence presence = WriterPresence::unknown;
        EXPECT_FALSE(writerPlatform_find(path.c_str(), &presence).failed());
        return presence;
    }

    void expectNo() const {
        if (seesAllProcesses()) {
            EXPECT_EQ(find(), WriterPresence::no);
        } else {
            EXPECT_EQ(find(), WriterPresence::unknown);
        }
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const LogCapture log;
};

TEST_F(WriterPlatform, FindsAWriterAndNoReader) {
    expectNo();
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    expectNo();
    {
        const TableFilePtr writer = openTableFile(path, OpenMode::write);
        EXPECT_EQ(find(), WriterPresence::yes);
    }
    expectNo();
}

TEST_F(WriterPlatform, FindsTheWriterOfThisFileAndNotThatOfAnotherOne) {
    writeFile(directory.file("other"), pattern(10));
    const TableFilePtr other = openTableFile(directory.file("other"), OpenMode::write);
    expectNo();
}

TEST_F(WriterPlatform, FindsAWriterUnderEveryNameOfTheFile) {
    const std::string link = directory.file("link");
    ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
    const TableFilePtr writer = openTableFile(link, OpenMode::write);
    EXPECT_EQ(find(), WriterPresence::yes);
}

TEST_F(WriterPlatform, FindsAWriterThatTheListOfLocksMissesTwice) {
    const SystemCallsGuard guard;
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    for (int missed = 0; missed <= 3; ++missed) {
        systemCalls.emptyLists = missed;
        EXPECT_EQ(find() == WriterPresence::yes, missed < 3) << "missed " << missed << " times";
        EXPECT_EQ(systemCalls.emptyLists, 0) << "missed " << missed << " times";
    }
}

TEST_F(WriterPlatform, WithoutTheListOfLocksDoesNotKnow) {
    const SystemCallsGuard guard;
    const std::string list = directory.file("no-list");
    systemCalls.lockList = list.c_str();
    EXPECT_EQ(find(), WriterPresence::unknown);
}

// As of a file system whose list of locks has another device than the files tell.
TEST_F(WriterPlatform, WhereTheListNamesAnotherDeviceLooksAtTheDescriptorsOfTheProcess) {
    const SystemCallsGuard guard;
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    const std::string list = directory.file("locks");
    std::ofstream(list) << "1: FLOCK  ADVISORY  WRITE " << ::getpid() << " ff:ff:" << status.st_ino << " 0 EOF\n";
    systemCalls.lockList = list.c_str();
    writeFile(directory.file("other"), pattern(10));
    const TableFilePtr other = openTableFile(directory.file("other"), OpenMode::write);
    expectNo();
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    expectNo();
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    EXPECT_EQ(find(), WriterPresence::yes);
}

TEST_F(WriterPlatform, FindsALockThatLivesOnInAForkedChild) {
    const ProcessSignal locked;
    const ProcessSignal end;
    ChildProcess parent([&] {
        const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (::flock(descriptor, LOCK_EX) != 0) {
            return 1;
        }
        if (::fork() == 0) {
            locked.raise();
            end.await();
            ::_exit(0);
        }
        return 0;
    });
    ASSERT_TRUE(locked.await());
    EXPECT_EQ(parent.wait(), 0) << "the process that has taken the lock";
    EXPECT_EQ(find(), WriterPresence::yes);
    end.raise();
}

TEST_F(WriterPlatform, SaysWhyAFileCannotBeLookedAt) {
    WriterPresence presence = WriterPresence::yes;
    EXPECT_EQ(writerPlatform_find(directory.file("none").c_str(), &presence).number, ENOENT);
    EXPECT_EQ(presence, WriterPresence::unknown);
    EXPECT_EQ(writerPlatform_find(directory.path().c_str(), &presence).number, EISDIR);
    EXPECT_EQ(writerPlatform_find("", &presence).number, ENOENT);
}

TEST_F(WriterPlatform, FindsAWriterAlsoInAProcessWithoutStandardInput) {
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    const int result = runInChild([&] {
        ::close(STDIN_FILENO);
        WriterPresence presence = WriterPresence::unknown;
        const bool failed = writerPlatform_find(path.c_str(), &presence).failed();
        return !failed && presence == WriterPresence::yes ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(WriterPlatform, NeverHoldsALockItself) {
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    writeFile(directory.file("free"), pattern(10));
    const std::string free = directory.file("free");
    const int result = runInChild([&] {
        for (int i = 0; i < 300; ++i) {
            WriterPresence presence = WriterPresence::unknown;
            const int descriptor = ::open(free.c_str(), O_RDWR | O_CLOEXEC);
            if (writerPlatform_find(free.c_str(), &presence).failed() || ::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
                return 1;
            }
            ::close(descriptor);
        }
        return 0;
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace tabulo::internal::test
