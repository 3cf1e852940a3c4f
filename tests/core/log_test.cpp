#include "core/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {
namespace {

std::string logName(pid_t process) {
    return "tabulo-" + std::to_string(process) + ".log";
}

std::string announcement(pid_t process) {
    return "Tabulo/C DEBUG: initing log file " + logName(process) + "...\n";
}

int writeDebugLines() {
    log_debug("tableFileClose", "returning OK\n");
    log_debug("second", "number %d, text %s\n", 7, "abc");
    return 0;
}

int writeDebugLinesAndDie() {
    writeDebugLines();
    return ::kill(::getpid(), SIGKILL);
}

int writeDebugLinesWithAnUnwritableLog() {
    // A directory stands where the log file belongs; it goes away again to show that the open is not tried twice.
    const std::string name = logName(::getpid());
    ::mkdir(name.c_str(), 0777);
    log_debug("first", "one\n");
    ::rmdir(name.c_str());
    log_debug("second", "two\n");
    log_write("three\n");
    return std::filesystem::exists(name) ? 1 : 0;
}

int appendToAnOlderLog() {
    writeFile(logName(::getpid()), fromText("older line\n"));
    log_debug("f", "newer line\n");
    return 0;
}

int writeThroughTheBuiltInFacility() {
    log_warning("mt_open", "table %s has %d bytes\n", "orders", 12);
    log_note("tableStorage_init", "done\n");
    log_warningWrite("piece of a warning\n");
    log_noteWrite("piece of a note\n");
    return 0;
}

int silenceBuiltInNotes() {
    log_silenceBuiltInNotes();
    log_note("f", "a note\n");
    log_noteWrite("piece of a note\n");
    log_warning("f", "a warning\n");
    return 0;
}

int removeTheFacility() {
    log_setFacility(nullptr);
    log_note("f", "a note\n");
    log_warning("f", "a warning\n");
    log_noteWrite("piece of a note\n");
    log_warningWrite("piece of a warning\n");
    log_setFacility(nullptr);
    return 0;
}

// 1 when the log file is open close-on-exec, 0 when it is not, 2 when it is not open.
int showWhetherExecKeepsTheLog() {
    log_debug("f", "open\n");
    const std::string log = std::filesystem::current_path() / logName(::getpid());
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == log) {
            const int descriptor = std::stoi(entry.path().filename().string());
            return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0 ? 1 : 0;
        }
    }
    return 2;
}

const FreshProcess debugLines("log debug lines", writeDebugLines);
const FreshProcess debugLinesAndDie("log debug lines and die", writeDebugLinesAndDie);
const FreshProcess unwritableLog("log unwritable", writeDebugLinesWithAnUnwritableLog);
const FreshProcess olderLog("log append", appendToAnOlderLog);
const FreshProcess builtInFacility("log built-in facility", writeThroughTheBuiltInFacility);
const FreshProcess silencedNotes("log silenced notes", silenceBuiltInNotes);
const FreshProcess removedFacility("log removed facility", removeTheFacility);
const FreshProcess execedLog("log exec", showWhetherExecKeepsTheLog);

std::size_t entries(const std::string& directory) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

TEST(LogFile, TheFirstDebugLineCreatesTheFileOfThisProcessAndAnnouncesIt) {
    const TemporaryDirectory directory;
    const ProgramResult result = debugLines.run(directory.path());
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, announcement(result.id)) << "the announcement is printed once, and nothing else";
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(readText(directory.file(logName(result.id))),
              "Tabulo/C DEBUG: tableFileClose(): returning OK\n"
              "Tabulo/C DEBUG: second(): number 7, text abc\n");
}

TEST(LogFile, TwoProcessesInOneDirectoryWriteTwoFiles) {
    const TemporaryDirectory directory;
    const ProgramResult first = debugLines.run(directory.path());
    const ProgramResult second = debugLines.run(directory.path());
    EXPECT_EQ(entries(directory.path()), 2U);
    EXPECT_EQ(readText(directory.file(logName(first.id))), readText(directory.file(logName(second.id))));
}

TEST(LogFile, LinesOfAProcessThatIsKilledAreComplete) {
    const TemporaryDirectory directory;
    const ProgramResult result = debugLinesAndDie.run(directory.path());
    ASSERT_EQ(result.status, 256 + SIGKILL);
    EXPECT_EQ(readText(directory.file(logName(result.id))),
              "Tabulo/C DEBUG: tableFileClose(): returning OK\n"
              "Tabulo/C DEBUG: second(): number 7, text abc\n");
}

TEST(LogFile, AnUnwritableLogSendsEveryLineToStandardErrorAndIsAnnouncedOnce) {
    const TemporaryDirectory directory;
    const ProgramResult result = unwritableLog.run(directory.path());
    ASSERT_EQ(result.status, 0) << "the log was opened a second time";
    EXPECT_EQ(result.errors, announcement(result.id) +
                                 "Tabulo/C DEBUG: first(): one\n"
                                 "Tabulo/C DEBUG: second(): two\n"
                                 "three\n");
}

TEST(LogFile, AnOlderFileOfThatNameIsContinued) {
    const TemporaryDirectory directory;
    const ProgramResult result = olderLog.run(directory.path());
    EXPECT_EQ(readText(directory.file(logName(result.id))), "older line\nTabulo/C DEBUG: f(): newer line\n");
}

TEST(LogFile, AProgramStartedByThisProcessDoesNotInheritIt) {
    const TemporaryDirectory directory;
    EXPECT_EQ(execedLog.run(directory.path()).status, 1) << "0: the descriptor stays open over exec; 2: not found";
}

TEST(LogFile, WriteAddsTheTextAlone) {
    const DebugLog log;
    log_debug("tableConfig", "begin ");
    log_write("%s-%d", "piece", 1);
    log_write("\n");
    EXPECT_EQ(log.text(), "Tabulo/C DEBUG: tableConfig(): begin piece-1\n");
}

TEST(LogFile, TextsFromOutsideAreNoFormats) {
    const DebugLog log;
    const LogCapture capture;
    log_debug("%s%n", "%s\n", "%d %n");
    log_warning("%s%n", "%s\n", "%d %n");
    EXPECT_EQ(log.text(), "Tabulo/C DEBUG: %s%n(): %d %n\n");
    ASSERT_EQ(capture.warnings().size(), 1U);
    EXPECT_EQ(capture.warnings()[0], "Tabulo/C WARNING: %s%n(): %d %n");
}

TEST(LogFile, DebugLinesDoNotReachTheFacility) {
    const LogCapture capture;
    log_debug("f", "line\n");
    log_write("piece\n");
    EXPECT_TRUE(capture.writes().empty());
}

TEST(BuiltInFacility, NotesAndWarningsGoToStandardErrorAndOpenNoLogFile) {
    const TemporaryDirectory directory;
    const ProgramResult result = builtInFacility.run(directory.path());
    EXPECT_EQ(result.errors,
              "Tabulo/C WARNING: mt_open(): table orders has 12 bytes\n"
              "Tabulo/C NOTE: tableStorage_init(): done\n"
              "piece of a warning\n"
              "piece of a note\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(entries(directory.path()), 0U);
}

TEST(BuiltInFacility, SilencedNotesAreDroppedAndWarningsStay) {
    const TemporaryDirectory directory;
    EXPECT_EQ(silencedNotes.run(directory.path()).errors, "Tabulo/C WARNING: f(): a warning\n");
}

TEST(LogFacilityTest, WithoutAFacilityNotesAndWarningsGoNowhere) {
    const TemporaryDirectory directory;
    const ProgramResult result = removedFacility.run(directory.path());
    ASSERT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(entries(directory.path()), 0U) << "a line went to the log file";
}

TEST(LogFacilityTest, ALineIsTwoWritesToItsChannelPrefixFirst) {
    const LogCapture capture;
    log_note("+ tableStorage_init", "self=%d\n", 5);
    log_warning("tsX_open", "code %s\n", "x");
    const std::vector<LogWrite> expected = {{"info", "Tabulo/C NOTE: + tableStorage_init(): "},
                                            {"info", "self=5\n"},
                                            {"warning", "Tabulo/C WARNING: tsX_open(): "},
                                            {"warning", "code x\n"}};
    EXPECT_EQ(capture.writes(), expected);
}

TEST(LogFacilityTest, PiecesAreOneWriteWithoutPrefix) {
    const LogCapture capture;
    log_noteWrite("note %d", 1);
    log_warningWrite("warning %d", 2);
    const std::vector<LogWrite> expected = {{"info", "note 1"}, {"warning", "warning 2"}};
    EXPECT_EQ(capture.writes(), expected);
}

TEST(LogFacilityTest, SilencingTheBuiltInNotesLeavesAnInstalledFacilityAlone) {
    EXPECT_EQ(runInChild([] {
                  const LogCapture capture;
                  log_silenceBuiltInNotes();
                  log_note("f", "a note\n");
                  return capture.notes().size() == 1 ? 0 : 1;
              }),
              0);
}

TEST(LogFacilityTest, AnInstalledFacilityKeepsStandardErrorQuiet) {
    const LogCapture capture;
    const CapturedOutput errors(stderr);
    log_warning("f", "a warning\n");
    EXPECT_EQ(errors.text(), "");
}

TEST(LogFacilityTest, ASecondFacilityReleasesTheFirstExactlyOnce) {
    LogCapture first;
    {
        const LogCapture second;
        EXPECT_EQ(first.releases(), 1);
        EXPECT_EQ(second.releases(), 0);
        log_note("f", "line\n");
        EXPECT_TRUE(first.writes().empty()) << "the first facility is still written to";
        EXPECT_EQ(second.notes().size(), 1U);
    }
    EXPECT_EQ(first.releases(), 1);
}

TEST(LogFacilityTest, InstallingNoneReleasesTheCurrentFacilityOnce) {
    LogCapture capture;
    log_setFacility(nullptr);
    EXPECT_EQ(capture.releases(), 1);
    log_setFacility(nullptr);
    EXPECT_EQ(capture.releases(), 1);
    log_note("f", "line\n");
    EXPECT_TRUE(capture.writes().empty());
}

// A facility whose release logs, as one does that tells its host about its end.
struct TalkativeFacility {
    LogFacility facility;
    int releases = 0;
    int writes = 0;
};
TalkativeFacility* talkative = nullptr;

void talkativeWrite(LogChannel*, const char*, std::va_list) {
    talkative->writes += 1;
}

void talkativeRelease(LogFacility*) {
    talkative->releases += 1;
    if (talkative->releases < 5) {  // ends a recursion that must not be there
        log_note("release", "going\n");
        log_warning("release", "going\n");
        log_setFacility(nullptr);
    }
}

TEST(LogFacilityTest, AReleaseThatLogsReachesNoFacilityAndIsNotRepeated) {
    LogChannel channel{nullptr, talkativeWrite};
    TalkativeFacility released{{talkativeRelease, &channel, &channel, &channel, &channel}};
    talkative = &released;
    log_setFacility(&released.facility);
    log_note("f", "line\n");
    EXPECT_EQ(released.writes, 2);
    const LogCapture next;
    EXPECT_EQ(released.releases, 1);
    EXPECT_EQ(released.writes, 2) << "a facility that is being released was written to";
    EXPECT_TRUE(next.writes().empty()) << "the next facility is installed behind the release of the last one";
}

int sendDebugLinesElsewhere() {
    log_setDebugStream(nullptr);
    log_debug("nowhere", "dropped\n");
    log_perror("nobody hears this");
    log_setDebugStream(std::fopen("first", "w"));
    log_debug("first", "line\n");
    log_setDebugStream(std::fopen("second", "w"));
    log_write("another line\n");
    log_setDebugStream(nullptr);
    log_debug("nowhere", "dropped\n");
    return readText("first") == "Tabulo/C DEBUG: first(): line\n" && readText("second") == "another line\n" ? 0 : 1;
}

const FreshProcess elsewhere("debug lines elsewhere", sendDebugLinesElsewhere);

TEST(LogFileTest, DebugLinesGoToTheStreamThatIsGivenAndNothingToStandardError) {
    const TemporaryDirectory directory;
    const ProgramResult result = elsewhere.run(directory.path());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(std::filesystem::exists(directory.file(logName(result.id))));
}

int changeTheStreamAfterTheFirstLine() {
    log_debug("first", "line\n");
    log_setDebugStream(std::fopen("later", "w"));
    log_debug("second", "line\n");
    log_setDebugStream(nullptr);
    return readText("later") == "Tabulo/C DEBUG: second(): line\n" &&
                   readText(logName(::getpid())) == "Tabulo/C DEBUG: first(): line\n"
               ? 0
               : 1;
}

const FreshProcess changed("debug lines change", changeTheStreamAfterTheFirstLine);

TEST(LogFileTest, TheProcesssOwnLogFileEndsWhereAnotherStreamIsGiven) {
    const TemporaryDirectory directory;
    EXPECT_EQ(changed.run(directory.path()).status, 0);
}

int complainToStandardError() {
    errno = ENOENT;
    log_perror("here");
    return 0;
}

const FreshProcess complaining("perror", complainToStandardError);

TEST(LogFileTest, TheSystemsErrorIsPrintedWhereNobodyHasChosenAStream) {
    const TemporaryDirectory directory;
    EXPECT_EQ(complaining.run(directory.path()).errors, "here: No such file or directory\n");
}

}  // namespace
}  // namespace tabulo::internal::test
