#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "storage/table_file.h"
#include "tests/storage/open_table_file.h"
#include "tests/storage/system_calls.h"
#include "tests/support/bytes.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/fault_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

// The code of opening in this process; a file that opens is closed again.
ErrorCode tryOpen(const std::string& path, OpenMode mode) {
    TableFile* file = nullptr;
    const ErrorCode code = tableFileOpen(&file, path.c_str(), mode, nullptr);
    if (code == NO_ERROR) {
        EXPECT_EQ(tableFileClose(file), NO_ERROR);
    }
    return code;
}

// The code of opening in another process.
ErrorCode tryOpenElsewhere(const std::string& path, OpenMode mode) {
    return static_cast<ErrorCode>(runInChild([&] { return tryOpen(path, mode); }));
}

class TableFileLock : public ::testing::Test {
  protected:
    void SetUp() override { writeFile(path, pattern(100)); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    const LogCapture log;
};

TEST_F(TableFileLock, ASecondWriterInAnotherProcessIsRefusedAndTheFileUntouched) {
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::create), FILE_OPEN_ERROR);
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec) << "the file was touched";
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
}

// A platform where another writer takes the lock of a file between its creation and the creator's own try.
std::string contested;
int anotherWriter = -1;

SystemError lockBehindAnotherWriter(int descriptor) {
    anotherWriter = ::open(contested.c_str(), O_RDWR | O_CLOEXEC);
    const SystemError error = filePlatform_system().lock(anotherWriter);
    return error.failed() ? error : filePlatform_system().lock(descriptor);
}

TEST_F(TableFileLock, ANewFileThatAnotherWriterWasFasterToLockStaysThatWriters) {
    contested = directory.file("new");
    FilePlatform platform = filePlatform_system();
    platform.lock = lockBehindAnotherWriter;
    const FilePlatform* previous = filePlatform_install(&platform);
    const ErrorCode code = tryOpen(contested, OpenMode::write);
    filePlatform_install(previous);
    EXPECT_EQ(code, FILE_OPEN_ERROR);
    EXPECT_EQ(::write(anotherWriter, "kept", 4), 4);
    ::close(anotherWriter);
    ASSERT_TRUE(std::filesystem::exists(contested)) << "the file of the other writer was removed";
    EXPECT_EQ(toHex(readFile(contested)), toHex(fromText("kept")));
}

TEST_F(TableFileLock, ASecondWriterInTheSameProcessIsRefusedWithOneWarning) {
    const TableFilePtr writer = openTableFile(path, OpenMode::create);
    ASSERT_EQ(writeBytes(writer, pattern(50)), NO_ERROR);
    ASSERT_EQ(tableFileFlush(writer.get()), NO_ERROR);
    const std::vector<std::string> expected = {
        warningLine("tableFileOpen", "fopen() failed: Resource temporarily unavailable")};
    EXPECT_EQ(tryOpen(path, OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(log.all(), expected);
    EXPECT_EQ(tryOpen(path, OpenMode::create), FILE_OPEN_ERROR);
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(50)));
}

TEST_F(TableFileLock, ReadersComeInBesideAWriterAndAWriterBesideReaders) {
    const TableFilePtr before = openTableFile(path, OpenMode::read);
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::read), NO_ERROR);
    const TableFilePtr after = openTableFile(path, OpenMode::read);
    EXPECT_EQ(readHex(after, 3), hexOf(pattern(100), 0, 3));
}

TEST_F(TableFileLock, AReaderTakesNoLock) {
    FaultPlatform platform;
    const TableFilePtr reader = openTableFile(path, OpenMode::read);
    EXPECT_EQ(platform.count(FileCall::lock), 0);
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), NO_ERROR);
}

TEST_F(TableFileLock, AReaderThatClosesInTheWritersProcessDoesNotReleaseTheWritersLock) {
    const TableFilePtr writer = openTableFile(path, OpenMode::write);
    openTableFile(path, OpenMode::read).reset();
    ::close(::open(path.c_str(), O_RDONLY));
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), FILE_OPEN_ERROR);
}

TEST_F(TableFileLock, AClosedFileIsFreeForTheNextWriter) {
    openTableFile(path, OpenMode::write).reset();
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), NO_ERROR);
}

TEST_F(TableFileLock, AClosedFileIsFreeThoughAForkedChildStillHoldsTheDescriptor) {
    TableFilePtr writer = openTableFile(path, OpenMode::write);
    const ProcessSignal go;
    ChildProcess child([&] { return go.await() ? 0 : 1; });
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), FILE_OPEN_ERROR);
    writer.reset();
    EXPECT_EQ(tryOpenElsewhere(path, OpenMode::write), NO_ERROR) << "the child keeps the lock";
    go.raise();
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(TableFileLock, TheLockIsReleasedBeforeTheDescriptorIsClosed) {
    FaultPlatform platform;
    TableFilePtr writer = openTableFile(path, OpenMode::write);
    platform.clear();
    writer.reset();
    EXPECT_EQ(platform.sequence(), "unlock close");
}

TEST_F(TableFileLock, AProgramThatTheWriterStartedDoesNotHoldTheLockOfAKilledWriter) {
    const ProcessSignal started;
    int ids[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ids, O_CLOEXEC), 0);
    ChildProcess writer([&] {
        TableFile* file = nullptr;
        if (tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr) != NO_ERROR) {
            return 1;
        }
        int execed[2] = {-1, -1};
        if (::pipe2(execed, O_CLOEXEC) != 0) {
            return 2;
        }
        const pid_t program = ::fork();
        if (program == 0) {
            ::execlp("sleep", "sleep", "60", static_cast<char*>(nullptr));
            ::_exit(3);
        }
        ::close(execed[1]);
        char byte = 0;
        if (::read(execed[0], &byte, 1) != 0) {  // the end of the pipe: the exec has closed the other side
            return 4;
        }
        if (::write(ids[1], &program, sizeof program) != sizeof program) {
            return 5;
        }
        started.raise();
        ::pause();
        return 0;
    });
    ASSERT_TRUE(started.await());
    pid_t program = -1;
    ASSERT_EQ(::read(ids[0], &program, sizeof program), static_cast<ssize_t>(sizeof program));
    EXPECT_EQ(tryOpen(path, OpenMode::write), FILE_OPEN_ERROR);
    writer.kill();
    EXPECT_EQ(::kill(program, 0), 0) << "the program must still run for this test to mean something";
    EXPECT_EQ(tryOpen(path, OpenMode::write), NO_ERROR) << "the started program inherited the lock";
    ::kill(program, SIGKILL);
    ::close(ids[0]);
    ::close(ids[1]);
}

TEST_F(TableFileLock, AKilledWriterLeavesTheFileFree) {
    const ProcessSignal opened;
    ChildProcess writer([&] {
        TableFile* file = nullptr;
        if (tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr) != NO_ERROR) {
            return 1;
        }
        opened.raise();
        ::pause();
        return 0;
    });
    ASSERT_TRUE(opened.await());
    EXPECT_EQ(tryOpen(path, OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(writer.kill(), 256 + SIGKILL);
    EXPECT_EQ(tryOpen(path, OpenMode::write), NO_ERROR);
}

TEST_F(TableFileLock, AFileSystemWithoutLocksGoesOnUnlocked) {
    const SystemCallsGuard guard;
    for (const int error : {ENOLCK, EOPNOTSUPP, ENOSYS}) {
        systemCalls.lockError = error;
        EXPECT_EQ(tryOpen(path, OpenMode::write), NO_ERROR) << "flock fails with " << error;
    }
    EXPECT_EQ(tryOpen(path, OpenMode::create), NO_ERROR);
    EXPECT_EQ(readFile(path).size(), 0U);
}

TEST_F(TableFileLock, AnyOtherLockErrorIsAFailedOpenThatTouchesNothing) {
    const SystemCallsGuard guard;
    for (const int error : {EWOULDBLOCK, EIO, EINVAL, EBADF, ENOMEM}) {
        systemCalls.lockError = error;
        EXPECT_EQ(tryOpen(path, OpenMode::write), FILE_OPEN_ERROR) << "flock fails with " << error;
        EXPECT_EQ(tryOpen(path, OpenMode::create), FILE_OPEN_ERROR) << "flock fails with " << error;
    }
    EXPECT_EQ(toHex(readFile(path)), toHex(pattern(100)));
    EXPECT_EQ(tryOpen(path, OpenMode::read), NO_ERROR) << "a reader does not ask for a lock";
}

TEST_F(TableFileLock, ARefusedWriterLeaksNoDescriptor) {
    FaultPlatform platform;
    platform.failAll(FileCall::lock, EWOULDBLOCK);
    EXPECT_EQ(tryOpen(path, OpenMode::write), FILE_OPEN_ERROR);
    EXPECT_EQ(platform.count(FileCall::close), platform.count(FileCall::lock));
    EXPECT_EQ(platform.count(FileCall::truncate), 0);
}

}  // namespace
}  // namespace tabulo::internal::test
