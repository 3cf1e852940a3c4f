#include "tool/command_line.h"

#include <algorithm>
#include <array>
#include <memory>

namespace tabulo::tool {

namespace {

// Help that says once what an option may be, and leaves out what the line of usage says.
class Formatter : public CLI::Formatter {
  public:
    Formatter() { label("SUBCOMMAND", "VERB"); }
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool isNamed = option->get_positional() || option->get_items_expected_max() == 0;
        return isNamed ? std::string() : " " + valueName(*option);
    }
};

}  // namespace

CommandLine::CommandLine()
    : app("Looks at message tables and session info tables, and rescues, copies and exports what is in them.",
          "tabulo") {
    app.formatter(std::make_shared<Formatter>());
    app.require_subcommand(1);
    app.fallthrough();  // verbs take it over when they are added: the command's options may stand behind a verb
    app.add_option("--debug-log", debugLog, "Append a trace of the library's operations to this file")
        ->type_name("FILE");
    app.add_option("--color", colour, "Colour: auto (on a terminal, unless NO_COLOR is set), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("auto|always|never");
    app.fallthrough();  // options of every verb may stand behind it; verbs inherit it when they are declared
    for (const Verb* verb : tabulo::tool::verbs()) {
        CLI::App* declared = app.add_subcommand(std::string(verb->name), std::string(verb->summary));
        declared->group("Verbs");
        if (!verb->examples.empty()) {
            declared->footer("Examples:\n" + std::string(verb->examples));
        }
        verbs.push_back({verb, declared, verb->declare(*declared)});
    }
}

std::vector<std::string> choicesOf(const CLI::Option& option) {
    std::vector<std::string> choices = CLI::detail::split(option.get_type_name(), '|');
    const std::size_t mark = choices.back().find(':');  // behind it stands the check that says the same
    choices.back().resize(std::min(mark, choices.back().size()));
    return choices.size() > 1 ? choices : std::vector<std::string>();
}

std::string valueName(const CLI::Option& option) {
    const std::vector<std::string> choices = choicesOf(option);
    return choices.empty() ? option.get_type_name() : CLI::detail::join(choices, "|");
}

bool takesFile(const CLI::Option& option) {
    const std::string name = option.get_type_name();
    return std::ranges::any_of(std::array{"FILE", "DIR", "PATH"},
                               [&](const char* part) { return name.find(part) != std::string::npos; });
}

}  // namespace tabulo::tool
