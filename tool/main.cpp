// The command: finds the verb, runs it, and tells how it ended.
#include <fmt/format.h>
#include <malloc.h>

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tabulo/error.h"
#include "tabulo/log.h"
#include "tool/command_line.h"
#include "tool/console.h"
#include "tool/listing.h"

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

int tellParseError(Console& console, const CLI::App& command, const CLI::ParseError& error) {
    const auto parsed = command.get_subcommands();
    if (!parsed.empty()) {
        return tellUsage(console, parsed.front()->get_name(), error.what());
    }
    const std::vector<std::string> rest = command.remaining();
    const bool isUnknown = !rest.empty() && !rest.front().starts_with('-');
    if (isUnknown || error.get_name() == "RequiredError") {
        console.say(isUnknown ? fmt::format("there is no verb '{}'", shownText(rest.front())) : "a verb is missing");
        console.say("'tabulo help' lists the verbs");
        return statusOf(Status::wrongUse);
    }
    return tellUsage(console, "", error.what());
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
        return tellParseError(console, command, error);
    } catch (const Error& error) {
        console.say(error.what());
        return statusOf(Status::failed);
    }
    return run(console, line.verbs);
}

}  // namespace

}  // namespace tabulo::tool

int main(int count, char** arguments) {
    // What held one large message goes back to the system at once, instead of being kept for the next one.
    constexpr int LARGE = 1024 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, LARGE);
    try {
        return tabulo::tool::runCommand(count, arguments);
    } catch (...) {
        std::fputs("tabulo: out of memory\n", stderr);
        return 1;
    }
}
