// The verbs of the command.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <span>
#include <string_view>

#include "tool/console.h"

namespace tabulo::tool {

// Each verb stands in a file of its own in verbs/, which defines one of the records below.
struct Verb {
    std::string_view name;
    std::string_view summary;   // one line, as help lists it
    std::string_view examples;  // for its help: a line each, "# what it is for" and the command
    // Declares the verb's arguments, and gives what runs it after they were parsed. What ends it early is in status.h;
    // failures of the library are thrown as they are.
    std::function<void(Console&)> (*declare)(CLI::App& app);
};

// All of them, in the order in which help lists them.
std::span<const Verb* const> verbs() noexcept;

extern const Verb listVerb;
extern const Verb infoVerb;
extern const Verb catVerb;
extern const Verb tailVerb;
extern const Verb orderVerb;
extern const Verb statsVerb;
extern const Verb sqlVerb;
extern const Verb serveVerb;
extern const Verb blocksVerb;
extern const Verb sessionVerb;
extern const Verb indexVerb;
extern const Verb verifyVerb;
extern const Verb recoverVerb;
extern const Verb backupVerb;
extern const Verb splitVerb;
extern const Verb exportVerb;
extern const Verb shipVerb;
extern const Verb receiveVerb;
extern const Verb lagVerb;
extern const Verb helpVerb;
extern const Verb completionVerb;

}  // namespace tabulo::tool
