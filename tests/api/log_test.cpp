#include "tabulo/log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"
#include "tests/support/child_process.h"

namespace tabulo::test {
namespace {

using internal::test::FreshProcess;
using internal::test::ProgramResult;
using internal::test::readText;

// Uses much of the library, with calls that fail, in the current directory.
int useEverything() {
    const Layout layout = ordersLayout();
    {
        Writer writer = Writer::create("orders", layout);
        for (std::int32_t n = 1; n <= 7; ++n) {
            writer.append(SimpleMessage(n).message);
        }
        writer.commit();
    }
    const std::vector<std::int32_t> tags = {1, 2};
    SessionInfo session = SessionInfo::create("session", tags);
    session.write(1, 5);
    int failures = 0;
    for (const char* path : {"missing", "session", "."}) {
        try {
            static_cast<void>(Writer::open(path));
        } catch (const Error&) {
            ++failures;
        }
    }
    return failures == 3 && inspect("orders").messageCount == 7 ? 0 : 1;
}

const FreshProcess quietProcess("api uses everything", useEverything);

TEST(ApiLog, AProgramThatAsksForNothingGetsNoLogFileAndNothingOnItsStreams) {
    const TemporaryDirectory directory;
    const ProgramResult result = quietProcess.run(directory.path());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        files.push_back(entry.path().filename().string());
    }
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (std::vector<std::string>{"orders", "session"}));
}

int traceToAFile() {
    setDebugLog("trace");
    const int result = useEverything();
    setDebugLog(std::nullopt);
    const std::string traced = readText("trace");
    static_cast<void>(inspect("orders"));
    return result == 0 && readText("trace") == traced ? 0 : 2;
}

const FreshProcess tracingProcess("api traces", traceToAFile);

TEST(ApiLog, TheDebugLogGoesToTheFileThatIsAskedForUntilItIsEnded) {
    const TemporaryDirectory directory;
    const ProgramResult result = tracingProcess.run(directory.path());
    EXPECT_EQ(result.status, 0) << "the trace went on after it was ended, or the work failed";
    EXPECT_EQ(result.errors, "");
    const std::string trace = readText(directory.file("trace"));
    EXPECT_NE(trace.find("Tabulo/C DEBUG: FileOpen(): opening file 'orders' in mode 2 (w+b)\n"), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 3) << "orders, session, trace";
}

TEST(ApiLog, ADebugLogThatCannotBeOpenedIsRefusedWithTheSystemsWords) {
    const TemporaryDirectory directory;
    const Error error = errorOf([&] { setDebugLog(directory.file("no/such/folder")); });
    EXPECT_EQ(error.code(), Code::fileOpen);
    EXPECT_EQ(error.path(), directory.file("no/such/folder"));
    EXPECT_EQ(error.systemText(), "No such file or directory");
    EXPECT_TABULO_ERROR(wrongParameter, setDebugLog(""));
    EXPECT_TABULO_ERROR(wrongParameter, setDebugLog(std::filesystem::path(std::string("a\0b", 3))));
}

class ApiLogHandler : public ::testing::Test {
  protected:
    ~ApiLogHandler() override { setLogHandler({}); }

    void keepLines() {
        setLogHandler([this](LogLevel level, std::string_view line) {
            (level == LogLevel::warning ? warnings : notes).emplace_back(line);
        });
    }

    const TemporaryDirectory directory;
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
};

TEST_F(ApiLogHandler, GetsWholeLinesWithoutTheirEnds) {
    keepLines();
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::open(directory.file("none"), ordersLayout())));
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0], "Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory");
    EXPECT_EQ(warnings[1],
              "Tabulo/C WARNING: tsX_openReplica(): Unable to open a file " + directory.file("none") + " in mode 1.");
    EXPECT_FALSE(notes.empty());
    for (const std::string& note : notes) {
        EXPECT_EQ(note.find('\n'), std::string::npos) << note;
    }
}

TEST_F(ApiLogHandler, GetsALineThatIsWrittenInPiecesAsOne) {
    static_cast<void>(Writer::create(directory.file("orders"), ordersLayout()));
    keepLines();
    Layout other = ordersLayout();
    other.texts[0] = "Side";
    EXPECT_TABULO_ERROR(stringFieldsNamesMismatch, static_cast<void>(Writer::open(directory.file("orders"), other)));
    ASSERT_FALSE(warnings.empty());
    EXPECT_NE(warnings[0].find("name mismatch in " + directory.file("orders")), std::string::npos) << warnings[0];
    EXPECT_EQ(warnings[0].rfind("Tabulo/C WARNING: mtX_verify(): Configured string field 0", 0), 0u) << warnings[0];
}

TEST_F(ApiLogHandler, MayThrowAndMayUseTheLibrary) {
    int calls = 0;
    setLogHandler([&](LogLevel, std::string_view) {
        ++calls;
        static_cast<void>(isOpenForWriting(directory.path()));  // throws, and would write lines of its own
    });
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::open(directory.file("none"), ordersLayout())));
    EXPECT_GE(calls, 2);
}

TEST_F(ApiLogHandler, MayReplaceItself) {
    int first = 0;
    int second = 0;
    setLogHandler([&](LogLevel, std::string_view) {
        ++first;
        setLogHandler([&](LogLevel, std::string_view) { ++second; });
    });
    EXPECT_TABULO_ERROR(fileOpen, static_cast<void>(Writer::open(directory.file("none"), ordersLayout())));
    EXPECT_EQ(first, 1);
    EXPECT_GE(second, 1);
}

TEST_F(ApiLogHandler, IsCalledByOneThreadAtATimeWithTheLinesOfEachWhole) {
    std::vector<std::string> lines;  // unguarded on purpose
    setLogHandler([&](LogLevel, std::string_view line) { lines.emplace_back(line); });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                try {
                    static_cast<void>(SessionInfo::open(directory.file("none")));
                } catch (const Error&) {
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lines.size(), 800u);
    for (const std::string& line : lines) {
        EXPECT_EQ(line, "Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory");
    }
}

TEST(ApiLog, TheWarningsOfACallThatFailsAreInItsErrorAndNotInTheNextOne) {
    const TemporaryDirectory directory;
    const Error first = errorOf([&] { static_cast<void>(Writer::open(directory.file("one"), ordersLayout())); });
    EXPECT_EQ(first.warnings(),
              (std::vector<std::string>{"Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory",
                                        "Tabulo/C WARNING: tsX_openReplica(): Unable to open a file " +
                                            directory.file("one") + " in mode 1."}));
    const Error second = errorOf([&] { static_cast<void>(SessionInfo::open(directory.file("two"))); });
    EXPECT_EQ(second.warnings().size(), 1u);
}

TEST(ApiLog, TheWarningsOfOtherThreadsAreNotInAnError) {
    const TemporaryDirectory directory;
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done) {
            try {
                static_cast<void>(Writer::open(directory.file("other"), ordersLayout()));
            } catch (const Error&) {
            }
        }
    });
    for (int i = 0; i < 200; ++i) {
        const Error error = errorOf([&] { static_cast<void>(SessionInfo::open(directory.file("mine"))); });
        EXPECT_EQ(error.warnings().size(), 1u);
    }
    done = true;
    other.join();
}

}  // namespace
}  // namespace tabulo::test
