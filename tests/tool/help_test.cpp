#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tool/tool_test.h"
#include "tool/help_pages.h"

namespace tabulo::tool::test {

namespace {

class HelpTest : public ToolTest {
  protected:
    // Whether a program is installed.
    static bool isThere(const std::string& program) {
        for (const char* folder : {"/bin/", "/usr/bin/", "/usr/local/bin/"}) {
            if (std::filesystem::exists(folder + program)) {
                return true;
            }
        }
        return false;
    }
    // What a command line of the shell prints, with its errors; its status behind it.
    std::string shell(const std::string& command) const {
        const std::string all =
            "cd " + directory.path() + " && { " + command + "; } > printed 2>&1; echo \"status $?\" >> printed";
        EXPECT_EQ(std::system(all.c_str()), 0) << command;
        return readText(file("printed"));
    }

    const CommandLine line;
};

TEST_F(HelpTest, HelpListsEveryVerb) {
    const ProgramResult result = runCommand({"help"});
    EXPECT_EQ(result.output, runCommand({"--help"}).output);
    EXPECT_EQ(result.status, 0);
    for (const DeclaredVerb& verb : line.verbs) {
        EXPECT_NE(result.output.find("\n  " + std::string(verb.verb->name) + " "), std::string::npos) << result.output;
        EXPECT_NE(result.output.find(verb.verb->summary.substr(0, 40)), std::string::npos) << verb.verb->name;
    }
    EXPECT_GE(line.verbs.size(), 5U);
}

TEST_F(HelpTest, AVerbsPageHasItsOptionsAndExamples) {
    for (const DeclaredVerb& verb : line.verbs) {
        const std::string name(verb.verb->name);
        const ProgramResult result = runCommand({"help", name});
        EXPECT_EQ(result.status, 0) << name;
        EXPECT_EQ(result.output, runCommand({name, "--help"}).output) << name;
        EXPECT_NE(result.output.find("Usage: tabulo " + name), std::string::npos) << result.output;
        EXPECT_FALSE(verb.verb->examples.empty()) << name << " has no example";
        EXPECT_NE(result.output.find(verb.verb->examples), std::string::npos) << result.output;
        for (const CLI::Option* option : verb.app->get_options()) {
            EXPECT_FALSE(option->get_description().empty()) << name << " " << option->get_name(true, true);
            EXPECT_NE(result.output.find(option->get_name(true, true)), std::string::npos) << result.output;
        }
    }
}

TEST_F(HelpTest, AnUnknownVerbIsWrongUse) {
    const ProgramResult result = runCommand({"help", "nope"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("there is no verb nope; there are ls, info, "), std::string::npos) << result.errors;
    EXPECT_EQ(runCommand({"completion", "tcsh"}).status, 2);
    EXPECT_EQ(runCommand({"completion"}).status, 2);
}

TEST_F(HelpTest, TheCommandsOptionsMayStandBehindAVerbAndTablesMayHaveTheNamesOfVerbs) {
    makeOrders("info", 20);
    const ProgramResult result = run({"--color", "never", "order", "order-1", "info"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(run({"order", "order-1", "--color", "never", "info"}).output, result.output);
    EXPECT_EQ(run({"order", "order-1", "info", "--debug-log", "trace"}).output, result.output);
    EXPECT_TRUE(std::filesystem::exists(file("trace")));
}

TEST_F(HelpTest, WhatAnOptionMayBeIsSaidOnce) {
    EXPECT_NE(runCommand({"help", "order"}).output.find("  -o,--output text|ndjson "), std::string::npos);
    EXPECT_EQ(runCommand({"help", "order"}).output.find(":{"), std::string::npos);
}

TEST_F(HelpTest, TheManualPageHasEveryVerbAndOptionAndIsWellFormed) {
    const std::string page = manualPage(line);
    EXPECT_EQ(runCommand({"help", "--man"}).output, page);
    EXPECT_TRUE(page.starts_with(".TH TABULO 1 "));
    const std::set<std::string> requests = {".TH", ".SH", ".SS", ".TP", ".PP", ".B", ".BR", ".nf", ".fi"};
    std::istringstream lines(page);
    bool isFilled = true;
    for (std::string text; std::getline(lines, text);) {
        if (text.starts_with(".") || text.starts_with("'")) {
            EXPECT_TRUE(requests.contains(text.substr(0, text.find(' ')))) << text;
        }
        isFilled = text == ".nf" ? false : text == ".fi" ? true : isFilled;
        for (std::size_t at = text.find('\\'); at != std::string::npos; at = text.find('\\', at + 2)) {
            ASSERT_LT(at + 1, text.size()) << text;
            EXPECT_NE(std::string("-e&f").find(text[at + 1]), std::string::npos) << text;
        }
    }
    EXPECT_TRUE(isFilled);
    for (const DeclaredVerb& verb : line.verbs) {
        EXPECT_NE(page.find("\n.SS " + std::string(verb.verb->name) + "\n"), std::string::npos) << verb.verb->name;
    }
    EXPECT_NE(page.find("\\fB\\-o, \\-\\-output\\fR \\fItext|ndjson\\fR"), std::string::npos);
}

TEST_F(HelpTest, GroffHasNothingToSayAboutTheManualPage) {
    if (!isThere("groff")) {
        GTEST_SKIP() << "groff is not installed";
    }
    makeFile("tabulo.1", manualPage(line));
    EXPECT_EQ(shell("groff -man -Tutf8 -ww -rLL=200n tabulo.1 > /dev/null"), "status 0\n");
    const std::string page = shell("groff -man -Tascii -P-cbou tabulo.1");
    EXPECT_NE(page.find("tabulo order C1A-10009 monday/ tuesday/"), std::string::npos) << page;
}

TEST_F(HelpTest, CompletionScriptsHaveEveryVerbAndLongOption) {
    for (const std::string shellName : {"bash", "zsh", "fish"}) {
        const std::string script = completionScript(line, shellName);
        EXPECT_EQ(runCommand({"completion", shellName}).output, script);
        for (const DeclaredVerb& verb : line.verbs) {
            EXPECT_NE(script.find(verb.verb->name), std::string::npos) << shellName << " " << verb.verb->name;
            for (const CLI::Option* option : verb.app->get_options()) {
                for (const std::string& name : option->get_lnames()) {
                    const std::string written = (shellName == "fish" ? "-l " : "--") + name;
                    EXPECT_NE(script.find(written), std::string::npos) << shellName << " " << written;
                }
            }
        }
    }
}

TEST_F(HelpTest, ShellsAcceptTheirScripts) {
    for (const std::string shellName : {"bash", "zsh", "fish"}) {
        if (isThere(shellName)) {
            makeFile("script", completionScript(line, shellName));
            EXPECT_EQ(shell(shellName + " -n script"), "status 0\n") << shellName;
        }
    }
}

TEST_F(HelpTest, BashCompletesVerbsOptionsValuesAndFiles) {
    if (!isThere("bash")) {
        GTEST_SKIP() << "bash is not installed";
    }
    makeFile("script", completionScript(line, "bash"));
    makeFile("my table", "");
    const auto completed = [this](const std::string& words) {
        makeFile("try", "source ./script\nCOMP_WORDS=(" + words +
                            ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_tabulo\nprintf '%s;' \"${COMPREPLY[@]}\"\n");
        return shell("bash try");
    };
    EXPECT_EQ(completed("tabulo or"), "order;status 0\n");
    EXPECT_EQ(completed("tabulo --color never comp"), "completion;status 0\n");
    EXPECT_EQ(completed("tabulo --color ''"), "auto;always;never;status 0\n");
    EXPECT_EQ(completed("tabulo order -o ''"), "text;ndjson;status 0\n");
    EXPECT_EQ(completed("tabulo order --dict"), "--dictionary;status 0\n");
    EXPECT_EQ(completed("tabulo order --tz ''"), ";status 0\n");
    EXPECT_EQ(completed("tabulo order id my"), "my table;status 0\n");
    EXPECT_EQ(completed("tabulo help ord"), "order;status 0\n");
    EXPECT_EQ(completed("tabulo completion z"), "zsh;status 0\n");
}

}  // namespace

}  // namespace tabulo::tool::test
