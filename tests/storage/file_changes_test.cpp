// Waits that end when a file changes: with the system's own reports, and where they are refused.
#include "storage/file_changes.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "core/log.h"
#include "tests/faults/resources.h"
#include "tests/storage/open_table_file.h"
#include "tests/support/change_hooks.h"
#include "tests/support/child_process.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int64_t MILLISECOND = 1000000;
constexpr std::int64_t PATIENCE = 20000 * MILLISECOND;  // for what must come

class FileChangesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        writer = openTableFile(path, OpenMode::create);
        reader = openTableFile(path, OpenMode::read);
        fileChanges_open(&changes, "test");
    }
    static void write(const TableFilePtr& file, const char* text = "text") {
        ASSERT_EQ(tableFileWrite(file.get(), text, 4), NO_ERROR);
        ASSERT_EQ(tableFileFlush(file.get()), NO_ERROR);
    }
    // The watches whose files have changed; nothing when that is any of them.
    using Changed = std::optional<std::set<int>>;
    static Changed take(FileChanges* changes) {
        std::set<int> watches;
        const bool isKnown = fileChanges_take(
            changes, &watches, [](void* owner, int watch) { static_cast<std::set<int>*>(owner)->insert(watch); });
        return isKnown ? Changed(watches) : std::nullopt;
    }
    Changed take() { return take(&changes); }
    WaitEnd wait(std::int64_t nanoseconds = PATIENCE) { return fileChanges_wait(&changes, nanoseconds); }
    // After what must not have ended a wait.
    WaitEnd waitInVain() { return wait(5 * MILLISECOND); }

    const TemporaryDirectory directory;
    const std::string path = directory.file("table");
    TableFilePtr writer;
    TableFilePtr reader;
    FileChanges changes;
};

TEST_F(FileChangesTest, AWaitEndsWithAWriteAndWithACut) {
    ASSERT_NE(fileChanges_watch(&changes, reader.get()), NO_FILE_WATCH);
    EXPECT_TRUE(fileChanges_areReported(&changes));
    EXPECT_EQ(waitInVain(), WaitEnd::over) << "nothing has changed yet";
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed);
    (void)take();
    ASSERT_EQ(tableFileTruncate(writer.get(), 0), NO_ERROR);
    EXPECT_EQ(wait(), WaitEnd::changed);
}

TEST_F(FileChangesTest, AWaitEndsWithTheWriteOfAnotherProcess) {
    fileChanges_watch(&changes, reader.get());
    ChildProcess other([&] {
        std::ofstream(path, std::ios::app) << "more";
        return 0;
    });
    EXPECT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(other.wait(), 0);
}

TEST_F(FileChangesTest, ReadingEndsNoWait) {
    write(writer);
    fileChanges_watch(&changes, reader.get());
    char bytes[4];
    std::int64_t count = 0;
    ASSERT_EQ(tableFileReadAt(reader.get(), 0, bytes, 4, &count), NO_ERROR);
    openTableFile(path, OpenMode::read).reset();
    EXPECT_EQ(waitInVain(), WaitEnd::over);
}

TEST_F(FileChangesTest, WhatChangesBehindTheTakingEndsTheWait) {
    const int watch = fileChanges_watch(&changes, reader.get());
    EXPECT_EQ(take(), Changed(std::set<int>{}));
    write(writer);
    EXPECT_EQ(take(), Changed(std::set<int>{watch}));
    EXPECT_EQ(waitInVain(), WaitEnd::over) << "it was taken";
    EXPECT_EQ(take(), Changed(std::set<int>{}));
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(wait(), WaitEnd::changed) << "until it is taken";
}

TEST_F(FileChangesTest, AFileIsWatchedAndNotItsName) {
    std::filesystem::rename(path, path + ".old");
    const TableFilePtr another = openTableFile(path, OpenMode::create);
    fileChanges_watch(&changes, reader.get());
    write(another);
    EXPECT_EQ(waitInVain(), WaitEnd::over) << "another file stands there";
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed);
    (void)take();
    std::filesystem::remove(path + ".old");
    EXPECT_EQ(waitInVain(), WaitEnd::over) << "its name is nothing to wait for";
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed) << "it is open still";
}

TEST_F(FileChangesTest, TheWatchOfAFileThatIsGoneIsEndedWithoutHarm) {
    const int watch = fileChanges_watch(&changes, reader.get());
    std::filesystem::remove(path);
    reader.reset();
    writer.reset();
    fileChanges_unwatch(&changes, watch);
    fileChanges_unwatch(&changes, watch);
    (void)take();
    EXPECT_EQ(waitInVain(), WaitEnd::over);
    writer = openTableFile(path, OpenMode::create);
    ASSERT_NE(fileChanges_watch(&changes, writer.get()), NO_FILE_WATCH);
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed);
}

TEST_F(FileChangesTest, AFileThatIsWatchedTwiceIsWatchedUntilBothWatchesEnd) {
    const int first = fileChanges_watch(&changes, reader.get());
    const int second = fileChanges_watch(&changes, writer.get());
    fileChanges_unwatch(&changes, first);
    write(writer);
    EXPECT_EQ(wait(), WaitEnd::changed);
    fileChanges_unwatch(&changes, second);
    (void)take();
    write(writer);
    EXPECT_EQ(waitInVain(), WaitEnd::over);
}

TEST_F(FileChangesTest, MoreChangesThanTheSystemCountsEndAWaitLikeOne) {
    const TableFilePtr another = openTableFile(path + "2", OpenMode::create);
    fileChanges_watch(&changes, writer.get());
    const int watch = fileChanges_watch(&changes, another.get());
    int most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    for (int i = 0; i < std::min(most, 100000) + 2; ++i) {  // in turn, or two would count as one
        write(i % 2 == 0 ? writer : another);
    }
    EXPECT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(take(), std::nullopt) << "whose they were is not known";
    EXPECT_EQ(waitInVain(), WaitEnd::over);
    write(another);
    EXPECT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(take(), Changed(std::set<int>{watch}));
}

TEST_F(FileChangesTest, ChangesOfManyFilesAreAllTaken) {
    std::vector<TableFilePtr> files;
    std::set<int> watches;
    for (int i = 0; i < 700; ++i) {  // more than are taken at once
        files.push_back(openTableFile(path + std::to_string(i), OpenMode::create));
        watches.insert(fileChanges_watch(&changes, files.back().get()));
    }
    ASSERT_EQ(watches.size(), files.size());
    for (const TableFilePtr& file : files) {
        write(file);
    }
    EXPECT_EQ(take(), Changed(watches));
    EXPECT_EQ(take(), Changed(std::set<int>{}));
}

TEST_F(FileChangesTest, EndsForNothingLieApartAndTheOneBehindSomethingIsAtOnce) {
    ChangeHooks hooks;
    fileChanges_open(&changes, "test");
    fileChanges_watch(&changes, reader.get());
    write(writer);
    const std::int64_t before = changePlatform_system().now();
    ASSERT_EQ(wait(), WaitEnd::changed);
    ASSERT_EQ(wait(), WaitEnd::changed);
    EXPECT_GE(changePlatform_system().now() - before, EARLY_ENDS_APART);
    hooks.calls.clear();
    fileChanges_found(&changes);
    const std::int64_t last = changePlatform_system().now();
    ASSERT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(hooks.calls, (std::vector<std::string>{"wait: changed"})) << "there is nothing to wait for first";
    hooks.calls.clear();
    const WaitEnd end = wait(EARLY_ENDS_APART / 2);
    if (changePlatform_system().now() - last <
        EARLY_ENDS_APART) {  // else the machine was busy, and the next one is due
        EXPECT_EQ(end, WaitEnd::over) << "a wait may be over before";
    }
}

TEST_F(FileChangesTest, AnotherThreadEndsAWait) {
    fileChanges_watch(&changes, reader.get());
    std::thread other([&] { fileChanges_wake(&changes); });
    EXPECT_EQ(wait(), WaitEnd::woken);
    other.join();
    EXPECT_EQ(waitInVain(), WaitEnd::over) << "one wait only";
    fileChanges_wake(&changes);
    EXPECT_EQ(wait(), WaitEnd::woken) << "the next one, when none is under way";
    write(writer);
    ASSERT_EQ(wait(), WaitEnd::changed);
    fileChanges_wake(&changes);
    EXPECT_EQ(wait(), WaitEnd::woken) << "also while changes end none";
}

TEST_F(FileChangesTest, AWakeBeforeTheOpeningEndsTheFirstWait) {
    FileChanges late;
    fileChanges_wake(&late);
    fileChanges_open(&late, "test");
    EXPECT_EQ(fileChanges_wait(&late, PATIENCE), WaitEnd::woken);
}

TEST_F(FileChangesTest, WithoutReportsAWaitLastsItsTimeUnlessItIsWoken) {
    for (const bool isOpen : {false, true}) {
        ChangeHooks hooks;
        hooks.fail("openQueue", EMFILE);
        const LogCapture log;
        FileChanges refused;
        if (isOpen) {
            fileChanges_open(&refused, "test");
        }
        EXPECT_FALSE(fileChanges_areReported(&refused));
        EXPECT_EQ(fileChanges_watch(&refused, reader.get()), NO_FILE_WATCH);
        fileChanges_unwatch(&refused, NO_FILE_WATCH);
        EXPECT_EQ(take(&refused), std::nullopt);
        const std::int64_t before = changePlatform_system().now();
        write(writer);
        EXPECT_EQ(fileChanges_wait(&refused, 10 * MILLISECOND), WaitEnd::over);
        EXPECT_GE(changePlatform_system().now() - before, 10 * MILLISECOND);
        std::thread other([&] { fileChanges_wake(&refused); });
        EXPECT_EQ(fileChanges_wait(&refused, PATIENCE), WaitEnd::woken);
        other.join();
        EXPECT_EQ(log.all().size(), isOpen ? 1U : 0U);
    }
}

TEST_F(FileChangesTest, AnyCallThatTheSystemRefusesIsToldOnceAndEndsInPlainWaits) {
    for (const std::string& call : CHANGE_CALLS) {
        for (const int error : {EMFILE, ENOSPC, EIO}) {
            const std::ptrdiff_t descriptors = openDescriptors();
            {
                ChangeHooks hooks;
                hooks.fail(call, error);
                const LogCapture log;
                FileChanges refused;
                fileChanges_open(&refused, "test");
                const int watch = fileChanges_watch(&refused, reader.get());
                (void)fileChanges_watch(&refused, writer.get());
                (void)take(&refused);
                EXPECT_EQ(fileChanges_wait(&refused, MILLISECOND), WaitEnd::over) << call;
                fileChanges_wake(&refused);
                if (call != "wake") {
                    EXPECT_EQ(fileChanges_wait(&refused, PATIENCE), WaitEnd::woken) << call;
                }
                EXPECT_EQ(fileChanges_wait(&refused, MILLISECOND), WaitEnd::over) << call;
                fileChanges_unwatch(&refused, watch);
                const bool isSaid = call != "wake" && call != "close" && call != "unwatch";
                EXPECT_EQ(log.all().size(), isSaid ? 1U : 0U) << call;
                for (const std::string& line : log.notes()) {
                    EXPECT_EQ(line, "Tabulo/C NOTE: test(): Changes of " + (call == "watch" ? path : "files") +
                                        " are not reported (" + std::strerror(error) +
                                        "): what is stored there is seen when a pause is over.");
                }
            }
            EXPECT_EQ(openDescriptors(), descriptors) << call;
        }
    }
}

TEST_F(FileChangesTest, InterruptedCallsAreMadeAgain) {
    for (const std::string& call : CHANGE_CALLS) {
        if (call == "close" || call == "wake") {
            continue;  // the platform's close never says so; a wake is made by other threads
        }
        ChangeHooks hooks;
        hooks.fail(call, EINTR, 1, true);
        const LogCapture log;
        FileChanges interrupted;
        fileChanges_open(&interrupted, "test");
        const int watch = fileChanges_watch(&interrupted, reader.get());
        (void)take(&interrupted);
        write(writer);
        EXPECT_EQ(fileChanges_wait(&interrupted, PATIENCE), WaitEnd::changed) << call;
        fileChanges_wake(&interrupted);
        EXPECT_EQ(fileChanges_wait(&interrupted, PATIENCE), WaitEnd::woken) << call;
        fileChanges_unwatch(&interrupted, watch);
        EXPECT_EQ(log.all(), std::vector<std::string>{}) << call;
    }
}

TEST_F(FileChangesTest, AFileThatIsRefusedDoesNotKeepTheOthersFromEndingAWait) {
    ChangeHooks hooks;
    hooks.fail("watch", ENOSPC, 1, true);
    const LogCapture log;
    const TableFilePtr another = openTableFile(path + "2", OpenMode::create);
    EXPECT_EQ(fileChanges_watch(&changes, writer.get()), NO_FILE_WATCH);
    ASSERT_NE(fileChanges_watch(&changes, another.get()), NO_FILE_WATCH);
    EXPECT_TRUE(fileChanges_areReported(&changes));
    write(writer);
    EXPECT_EQ(waitInVain(), WaitEnd::over);
    write(another);
    EXPECT_EQ(wait(), WaitEnd::changed);
    EXPECT_EQ(log.notes().size(), 1U);
}

TEST_F(FileChangesTest, AChildProcessTakesNothingFromItsParent) {
    fileChanges_watch(&changes, reader.get());
    const int result = runInChild([&] {
        const LogCapture log;
        write(writer);
        const bool isAny = !take().has_value();
        const bool isOver = fileChanges_wait(&changes, MILLISECOND) == WaitEnd::over;
        fileChanges_wake(&changes);
        const bool isWoken = fileChanges_wait(&changes, PATIENCE) == WaitEnd::woken;
        fileChanges_close(&changes);
        return isAny && isOver && isWoken && log.all().empty() ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(wait(), WaitEnd::changed) << "the child has taken, woken or closed what is its parent's";
    EXPECT_EQ(wait(), WaitEnd::changed);
}

TEST_F(FileChangesTest, AChildProcessThatWakesItselfDoesNotWakeItsParent) {
    fileChanges_watch(&changes, reader.get());
    EXPECT_EQ(runInChild([&] {
                  fileChanges_wake(&changes);
                  return 0;
              }),
              0);
    EXPECT_EQ(waitInVain(), WaitEnd::over);
}

TEST_F(FileChangesTest, AWaitEndsAlsoInAProcessWithoutStandardInput) {
    const int result = runInChild([&] {
        log_debug("tests", "the log is open, and does not take the descriptor.\n");
        ::close(STDIN_FILENO);
        fileChanges_open(&changes, "test");
        const int watch = fileChanges_watch(&changes, reader.get());
        if (changes.queue != STDIN_FILENO || watch == NO_FILE_WATCH || !fileChanges_areReported(&changes)) {
            return 1;
        }
        write(writer);
        if (wait() != WaitEnd::changed || take() != Changed({watch})) {
            return 2;
        }
        fileChanges_unwatch(&changes, watch);
        (void)take();
        write(writer);
        const bool isOver = waitInVain() == WaitEnd::over;
        fileChanges_close(&changes);
        return isOver && ::fcntl(STDIN_FILENO, F_GETFD) == -1 ? 0 : 3;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(FileChangesTest, NothingStaysOpenOrReachesAnotherProgram) {
    const std::ptrdiff_t descriptors = openDescriptors();
    fileChanges_watch(&changes, reader.get());
    for (const int descriptor : {changes.queue, changes.waker}) {
        EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
    fileChanges_open(&changes, "test");
    EXPECT_EQ(openDescriptors(), descriptors) << "opened again";
    fileChanges_close(&changes);
    EXPECT_EQ(openDescriptors(), descriptors - 2);
    fileChanges_close(&changes);
    EXPECT_EQ(openDescriptors(), descriptors - 2);
}

TEST_F(FileChangesTest, AQueueThatSomebodyElseHasClosedIsGivenUp) {
    fileChanges_watch(&changes, reader.get());
    const LogCapture log;
    ::close(changes.queue);
    EXPECT_EQ(waitInVain(), WaitEnd::over);
    EXPECT_FALSE(fileChanges_areReported(&changes));
    EXPECT_EQ(log.notes().size(), 1U);
}

}  // namespace
}  // namespace tabulo::internal::test
