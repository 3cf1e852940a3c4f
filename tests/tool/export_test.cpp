// The verb export, as a program: a file that is whole or not there.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tabulo/writer.h"
#include "tests/tool/command_document.h"
#include "tests/tool/live_command.h"
#include "tests/tool/tool_test.h"
#include "tool/status.h"
#include "tool/target.h"

namespace tabulo::tool::test {

namespace {

class ExportTest : public ToolTest {
  protected:
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& [path, bytes] : contents()) {
            names.push_back(std::filesystem::path(path).filename().string());
        }
        return names;
    }
    using Names = std::vector<std::string>;

    bool hasNamelessFiles() const {
        const int descriptor = ::open(directory.path().c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666);
        return descriptor >= 0 && ::close(descriptor) == 0;
    }
    // Waits until a process makes a file in the directory whose name it has not got yet.
    bool awaitUnfinished(pid_t process) const {
        const std::string named = file(".out.ndjson.unfinished-" + std::to_string(process));
        const std::string nameless = directory.path() + "/#";
        const auto isMade = [&] {
            std::error_code error;  // of a descriptor that is closed meanwhile
            bool isOpen = std::filesystem::exists(named);
            for (std::filesystem::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", error);
                 !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
                std::error_code gone;
                isOpen = isOpen || std::filesystem::read_symlink(*entry, gone).string().starts_with(nameless);
            }
            return isOpen;
        };
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!isMade() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return isMade();
    }
};

}  // namespace

TEST_F(ExportTest, TheFileHoldsWhatCatPrints) {
    makeOrders("orders", 30);
    for (const std::string format : {"csv", "ndjson"}) {
        const ProgramResult result = run({"export", "orders", "--to", "out." + format, "--type", "D"});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("15 messages exported to out." + format), std::string::npos) << result.errors;
        const std::string expected = run({"cat", "orders", "-o", format, "--type", "D"}).output;
        EXPECT_GT(expected.size(), 1000U);
        EXPECT_EQ(readText(file("out." + format)), expected);
    }
    EXPECT_EQ(names(), (Names{"orders", "out.csv", "out.ndjson"}));
}

TEST_F(ExportTest, SeveralTablesShareTheColumnsOfAll) {
    makeOrders("a", 1);
    {
        Writer writer = Writer::create(file("b"), {.texts = {"Else", "Symbol"}});
        Message message;
        message.uniformId = 2;
        message.texts = {"x", "y"};
        writer.append(message);
    }
    EXPECT_EQ(run({"export", "a", "b", "--to", "out.csv", "--time-unit", "ms"}).status, 0);
    const auto lines = linesOf(readText(file("out.csv")));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_NE(lines[0].find(",text1,Symbol,ClOrdID,Price,OrderQty,Else,wire,"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find(",INITECH,order-1,100.25,100,,8=FIX"), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find(",y,,,,x,,,,"), std::string::npos) << lines[2];
}

TEST_F(ExportTest, ATargetThatExistsIsRefusedAndStays) {
    makeOrders("orders", 3);
    makeFile("out.csv", "mine");
    const ProgramResult result = run({"export", "orders", "--to", "out.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("out.csv exists, and is not overwritten"), std::string::npos) << result.errors;
    EXPECT_EQ(readText(file("out.csv")), "mine");
    std::filesystem::create_symlink("nowhere", file("link.csv"));
    EXPECT_EQ(run({"export", "orders", "--to", "link.csv"}).status, 1);
    EXPECT_EQ(names(), (Names{"orders", "out.csv"}));
}

TEST_F(ExportTest, WhatIsNoTargetIsRefused) {
    makeOrders("orders", 3);
    EXPECT_EQ(run({"export", "orders", "--to", "out.txt"}).status, 2);
    EXPECT_EQ(run({"export", "orders"}).status, 2);
    const ProgramResult result = run({"export", "orders", "--to", "missing/out.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("missing/out.csv cannot be made: No such file or directory"), std::string::npos)
        << result.errors;
    EXPECT_EQ(names(), (Names{"orders"}));
}

TEST_F(ExportTest, AFullDiskLeavesNothingBehind) {
    makeOrders("orders", 3000, 1, 1000);
    const std::string directoryPath = directory.path();
    const std::string errors = file("errors");
    ChildProcess child([&] {
        const struct rlimit limit { 100000, 100000 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT, 0666), STDERR_FILENO);
        if (::chdir(directoryPath.c_str()) != 0) {
            return 120;
        }
        ::execl(TABULO_COMMAND, "tabulo", "export", "orders", "--to", "out.ndjson", nullptr);
        return 121;
    });
    EXPECT_EQ(child.wait(), 1);
    EXPECT_NE(readText(errors).find("out.ndjson cannot be written: File too large"), std::string::npos)
        << readText(errors);
    EXPECT_EQ(names(), (Names{"errors", "orders"}));
}

TEST_F(ExportTest, DamageLeavesAWholeFileOfWhatStandsInFrontOfIt) {
    makeOrders("orders", 20, 1, 1000);
    Bytes bytes = readFile(file("orders"));
    bytes.resize(bytes.size() - 30);
    internal::test::writeFile(file("orders"), bytes);
    const ProgramResult result = run({"export", "orders", "--to", "out.ndjson"});
    EXPECT_EQ(linesOf(readText(file("out.ndjson"))).size(), 19U) << result.errors;
    EXPECT_EQ(linesOf(run({"cat", "orders", "-o", "ndjson"}).output).size(), 19U);
}

TEST_F(ExportTest, AnInterruptLeavesNothingBehind) {
    makeOrders("orders", 5000, 1, 1000);
    std::vector<std::string> words = {"export", "--merge", "none", "--to", file("out.ndjson")};
    words.insert(words.end(), 300, file("orders"));
    LiveCommand process(file("live"), words);
    ASSERT_TRUE(awaitUnfinished(process.id()));
    EXPECT_EQ(process.interrupt(), 130) << process.errors();
    EXPECT_EQ(names(), (Names{"live.err", "live.out", "orders"}));
    EXPECT_EQ(process.output(), "");
}

TEST_F(ExportTest, AKillLeavesNothingBehindWhereFilesNeedNoName) {
    if (!hasNamelessFiles()) {
        GTEST_SKIP() << "the file system of " << directory.path() << " has no files without a name";
    }
    makeOrders("orders", 5000, 1, 1000);
    std::vector<std::string> words = {"export", "--merge", "none", "--to", file("out.ndjson")};
    words.insert(words.end(), 300, file("orders"));
    LiveCommand process(file("live"), words);
    ASSERT_TRUE(awaitUnfinished(process.id()));
    EXPECT_EQ(process.kill(), 256 + SIGKILL);
    EXPECT_EQ(names(), (Names{"live.err", "live.out", "orders"}));
}

TEST_F(ExportTest, WithoutFilesThatNeedNoNameTheTargetIsMadeBesideItsPlace) {
    makeOrders("orders", 20);
    CommandSettings settings;
    settings.directory = directory.path();
    const ProgramResult result = runScript(
        "strace -qq -o /dev/null -P \"$PWD\" -P . -e inject=openat:error=EOPNOTSUPP "
        "\"$TABULO\" export orders --to out.ndjson",
        settings);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(names(), (Names{"orders", "out.ndjson"}));
    EXPECT_EQ(readText(file("out.ndjson")), run({"cat", "orders", "-o", "ndjson"}).output);
}

TEST_F(ExportTest, ATargetThatAppearsMeanwhileIsNotOverwritten) {
    TargetFile target(file("out"));
    target.write("new");
    makeFile("out", "other");
    EXPECT_THROW(target.finish(), Failure);
    EXPECT_EQ(readText(file("out")), "other");
}

TEST_F(ExportTest, ATargetThatIsMadeByItsPathIsFinishedAsOneThatIsWritten) {
    {
        TargetFile target(file("out"));
        EXPECT_EQ(names(), Names{});
        makeFile(target.unfinished().filename().string(), "made elsewhere");
        target.finish();
        EXPECT_EQ(names(), Names{"out"});
    }
    EXPECT_EQ(readText(file("out")), "made elsewhere");
    {
        TargetFile target(file("given-up"));
        makeFile(target.unfinished().filename().string(), "made elsewhere");
        EXPECT_EQ(names().size(), 2U);
    }
    EXPECT_EQ(names(), Names{"out"});
    {
        TargetFile target(file("given-up"));
        target.write("some");
    }
    EXPECT_EQ(names(), Names{"out"});
}

}  // namespace tabulo::tool::test
