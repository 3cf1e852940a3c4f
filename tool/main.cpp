// The command: finds the verb, runs it, and tells how it ended.
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/log.h"
#include "tool/command_line.h"
#include "tool/console.h"

namespace tabulo::tool {

namespace {

int statusOf(Status status) {
    return static_cast<int>(status);
}

// What is wrong with the arguments, and where to look.
int tellUsage(Console& console, const std::string& verb, std::string_view why) {
    console.say(why);
    console.say(fmt::format("'tabulo {}{}--help' tells what it takes", verb, verb.empty() ? "" : " "));
    return statusOf(Status::wrongUse);
}

int run(Console& console, const std::vector<DeclaredVerb>& declared) {
    std::string name;
    try {
        for (const DeclaredVerb& verb : declared) {
            if (verb.app->parsed()) {
                name = verb.app->get_name();
                verb.run(console);
            }
        }
        console.flush();
        return statusOf(console.status());
    } catch (const ClosedPipe&) {
        return statusOf(Status::done);
    } catch (const Interrupted&) {
        return interruptedStatus;
    } catch (const UsageError& error) {
        return tellUsage(console, name, error.what());
    } catch (const std::bad_alloc&) {
        console.say("out of memory");
    } catch (const std::exception& error) {
        console.say(error.what());
    }
    return statusOf(Status::failed);
}

int runCommand(int count, char** arguments) {
    Console console;
    CommandLine line;
    CLI::App& command = line.app;
    try {
        command.parse(count, arguments);
        console.chooseColour(line.colour == "always"  ? ColourChoice::always
                             : line.colour == "never" ? ColourChoice::never
                                                      : ColourChoice::automatic);
        if (!line.debugLog.empty()) {
            setDebugLog(line.debugLog);
        }
    } catch (const CLI::CallForHelp&) {
        console.write(command.help());
        console.flush();
        return statusOf(Status::done);
    } catch (const CLI::ParseError& error) {
        const auto parsed = command.get_subcommands();
        return tellUsage(console, parsed.empty() ? "" : parsed.front()->get_name(), error.what());
    } catch (const Error& error) {
        console.say(error.what());
        return statusOf(Status::failed);
    }
    return run(console, line.verbs);
}

}  // namespace

}  // namespace tabulo::tool

int main(int count, char** arguments) {
    try {
        return tabulo::tool::runCommand(count, arguments);
    } catch (...) {
        std::fputs("tabulo: out of memory\n", stderr);
        return 1;
    }
}
