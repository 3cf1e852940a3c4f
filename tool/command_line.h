// The command's arguments: its own options, and those of all its verbs.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tool/console.h"
#include "tool/verb.h"

namespace tabulo::tool {

struct DeclaredVerb {
    const Verb* verb = nullptr;
    CLI::App* app = nullptr;
    std::function<void(Console&)> run{};
};

struct CommandLine {
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    CLI::App app;
    std::vector<DeclaredVerb> verbs;
    // What the command's own options say, once arguments were parsed.
    std::string debugLog;
    std::string colour = "auto";
};

// The values of an option or an argument that takes one of a few, as its type name lists them ("text|ndjson"); else
// none.
std::vector<std::string> choicesOf(const CLI::Option& option);
// What an option takes, as help calls it: "FILE", "text|ndjson".
std::string valueName(const CLI::Option& option);
// True for an option that takes a file or a folder, which its type name says.
bool takesFile(const CLI::Option& option);

}  // namespace tabulo::tool
