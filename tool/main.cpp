// The command: finds the verb, runs it, and tells how it ended.
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/log.h"
#include "tool/console.h"
#include "tool/verb.h"

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

struct DeclaredVerb {
    CLI::App* app = nullptr;
    std::function<void(Console&)> run;
};

std::vector<DeclaredVerb> declareVerbs(CLI::App& command) {
    std::vector<DeclaredVerb> declared;
    for (const Verb* verb : verbs()) {
        CLI::App* app = command.add_subcommand(std::string(verb->name), std::string(verb->summary));
        app->footer("Examples:\n" + std::string(verb->examples));
        declared.push_back({app, verb->declare(*app)});
    }
    return declared;
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
    CLI::App command(
        "Looks at message tables and session info tables, and rescues, copies and exports what is in them.", "tabulo");
    std::string debugLog;
    command.require_subcommand(1);
    command.add_option("--debug-log", debugLog, "Append a trace of the library's operations to this file")
        ->type_name("FILE");
    std::string colour = "auto";
    command.add_option("--color", colour, "Colour: auto (on a terminal, unless NO_COLOR is set), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    const std::vector<DeclaredVerb> declared = declareVerbs(command);
    command.fallthrough();
    try {
        command.parse(count, arguments);
        console.chooseColour(colour == "always"  ? ColourChoice::always
                             : colour == "never" ? ColourChoice::never
                                                 : ColourChoice::automatic);
        if (!debugLog.empty()) {
            setDebugLog(debugLog);
        }
    } catch (const CLI::CallForHelp&) {
        std::string verb;
        for (const DeclaredVerb& one : declared) {
            verb = one.app->parsed() ? one.app->get_name() : verb;
        }
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
    return run(console, declared);
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
