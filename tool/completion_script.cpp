#include <fmt/format.h>

#include <string_view>

#include "tool/help_pages.h"

namespace tabulo::tool {

namespace {

using Names = std::vector<std::string>;

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

// "-o", "--output".
Names namesOf(const CLI::Option& option) {
    Names names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

// The options, or the arguments, of the command or a verb.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional) {
    return app.get_options([positional](const CLI::Option* option) { return option->get_positional() == positional; });
}

Names verbNames(const CommandLine& line) {
    Names names;
    for (const DeclaredVerb& verb : line.verbs) {
        names.emplace_back(verb.verb->name);
    }
    return names;
}

// What a verb's argument may be; none where it is a file or free.
Names argumentsOf(const CommandLine& line, const DeclaredVerb& verb) {
    if (verb.verb->name == "help") {
        return verbNames(line);
    }
    const std::vector<const CLI::Option*> arguments = optionsOf(*verb.app, true);
    return arguments.empty() ? Names() : choicesOf(*arguments.front());
}

std::string joined(const Names& names, std::string_view between = " ") {
    return fmt::format("{}", fmt::join(names, between));
}

// A text between single quotes, of which each becomes `quote` inside.
std::string quoted(std::string_view text, std::string_view quote) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string(quote) : std::string(1, c);
    }
    return result + "'";
}

// bash: what completes the value of an option, as branches of a case on the word in front.
std::string bashValues(const CLI::App& app) {
    std::string branches;
    for (const CLI::Option* option : optionsOf(app, false)) {
        const Names choices = choicesOf(*option);
        if (takesValue(*option)) {
            branches += fmt::format("                {}) _tabulo_offer {} ; return ;;\n", joined(namesOf(*option), "|"),
                                    choices.empty() && takesFile(*option) ? "-f" : "-W '" + joined(choices) + "'");
        }
    }
    return branches;
}

std::string bashOptions(const CLI::App& app) {
    Names names;
    for (const CLI::Option* option : optionsOf(app, false)) {
        const Names own = namesOf(*option);
        names.insert(names.end(), own.begin(), own.end());
    }
    return joined(names);
}

std::string bashBranch(std::string_view pattern, const CLI::App& app, const Names& arguments) {
    const std::string branches = bashValues(app);
    std::string text = fmt::format("        {})\n", pattern);
    if (!branches.empty()) {
        text += "            case \"$previous\" in\n" + branches + "            esac\n";
    }
    text += fmt::format("            if [[ \"$current\" == -* ]]; then _tabulo_offer -W '{}'\n", bashOptions(app));
    return text + fmt::format("            else _tabulo_offer {}; fi ;;\n",
                              arguments.empty() ? "-f" : "-W '" + joined(arguments) + "'");
}

std::string bashScript(const CommandLine& line) {
    std::string skipped;  // options of the command whose value is no verb
    for (const CLI::Option* option : optionsOf(line.app, false)) {
        if (takesValue(*option)) {
            skipped += (skipped.empty() ? "" : "|") + joined(namesOf(*option), "|");
        }
    }
    std::string script = fmt::format(R"(# bash completion for tabulo
_tabulo_offer() {{
    mapfile -t COMPREPLY < <(compgen "$@" -- "${{COMP_WORDS[COMP_CWORD]}}")
}}

_tabulo() {{
    local current="${{COMP_WORDS[COMP_CWORD]}}" previous="${{COMP_WORDS[COMP_CWORD-1]}}" verb="" i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case "${{COMP_WORDS[i]}}" in
            {}) ((i++)) ;;
            -*) ;;
            *) verb="${{COMP_WORDS[i]}}"; break ;;
        esac
    done
    case "$verb" in
)",
                                     skipped);
    script += bashBranch("''", line.app, verbNames(line));
    for (const DeclaredVerb& verb : line.verbs) {
        script += bashBranch(verb.verb->name, *verb.app, argumentsOf(line, verb));
    }
    return script + "    esac\n}\n\ncomplete -o filenames -F _tabulo tabulo\n";
}

// zsh: an option or an argument for _arguments.
std::string zshOption(const CLI::Option& option) {
    const Names names = namesOf(option);
    const Names choices = choicesOf(option);
    std::string description;
    for (const char c : option.get_description()) {
        description += c == '[' || c == ']' || c == ':' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    std::string value;
    if (takesValue(option)) {
        value = !choices.empty() ? ":value:(" + joined(choices) + ")" : takesFile(option) ? ":value:_files" : ":value:";
    }
    const std::string repeat = option.get_items_expected_max() > 1 ? "*" : "";
    std::string text;
    for (const std::string& name : names) {
        const std::string others = repeat.empty() && names.size() > 1 ? "(" + joined(names) + ")" : repeat;
        std::string one = others;
        one.append(name).append("[").append(description).append("]").append(value);
        text.append(" \\\n            ").append(quoted(one, "'\\''"));
    }
    return text;
}

std::string zshArguments(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : optionsOf(app, false)) {
        text += zshOption(*option);
    }
    return text;
}

std::string zshScript(const CommandLine& line) {
    std::string script = "#compdef tabulo\n# zsh completion for tabulo\n_tabulo() {\n";
    script += "    local context state state_descr line\n    typeset -A opt_args\n    local -a verbs\n    verbs=(\n";
    for (const DeclaredVerb& verb : line.verbs) {
        script +=
            fmt::format("        {}\n", quoted(fmt::format("{}:{}", verb.verb->name, verb.verb->summary), "'\\''"));
    }
    script += "    )\n    _arguments -C" + zshArguments(line.app) +
              " \\\n            '1:verb:->verb' '*::argument:->argument' && return\n"
              "    case $state in\n        verb) _describe verb verbs ;;\n        argument) case $line[1] in\n";
    for (const DeclaredVerb& verb : line.verbs) {
        const Names choices = argumentsOf(line, verb);
        script +=
            fmt::format("        {}) _arguments{} \\\n            {} ;;\n", verb.verb->name, zshArguments(*verb.app),
                        choices.empty() ? "'*:file:_files'" : "'1:argument:(" + joined(choices) + ")'");
    }
    return script +
           "        esac ;;\n    esac\n}\n\n"
           "if [ \"$funcstack[1]\" = _tabulo ]; then _tabulo \"$@\"; else compdef _tabulo tabulo; fi\n";
}

// fish: options, under a condition on the verb.
std::string fishOptions(const CLI::App& app, std::string_view condition) {
    std::string text;
    for (const CLI::Option* option : optionsOf(app, false)) {
        text += fmt::format("complete -c tabulo -n '{}'", condition);
        for (const std::string& name : option->get_snames()) {
            text += " -s " + name;
        }
        for (const std::string& name : option->get_lnames()) {
            text += " -l " + name;
        }
        const Names choices = choicesOf(*option);
        if (takesValue(*option)) {
            text += !choices.empty() ? " -x -a '" + joined(choices) + "'" : takesFile(*option) ? " -r" : " -x";
        }
        text += " -d " + quoted(option->get_description(), "\\'") + "\n";
    }
    return text;
}

std::string fishScript(const CommandLine& line) {
    std::string script = "# fish completion for tabulo\n" + fishOptions(line.app, "__fish_use_subcommand");
    for (const DeclaredVerb& verb : line.verbs) {
        script += fmt::format("complete -c tabulo -n '__fish_use_subcommand' -f -a {} -d {}\n", verb.verb->name,
                              quoted(verb.verb->summary, "\\'"));
    }
    for (const DeclaredVerb& verb : line.verbs) {
        const std::string condition = fmt::format("__fish_seen_subcommand_from {}", verb.verb->name);
        script += fishOptions(*verb.app, condition);
        const Names choices = argumentsOf(line, verb);
        if (!choices.empty()) {
            script += fmt::format("complete -c tabulo -n '{}' -f -a '{}'\n", condition, joined(choices));
        }
    }
    return script;
}

}  // namespace

std::string completionScript(const CommandLine& line, const std::string& shell) {
    return shell == "bash" ? bashScript(line) : shell == "zsh" ? zshScript(line) : fishScript(line);
}

}  // namespace tabulo::tool
