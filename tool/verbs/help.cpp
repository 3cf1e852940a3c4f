// What the command tells about itself.
#include <fmt/format.h>

#include <memory>
#include <string>

#include "tool/help_pages.h"
#include "tool/listing.h"
#include "tool/status.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct HelpOptions {
    std::string verb;
    bool isManual = false;
};

void showHelp(Console& console, const HelpOptions& options) {
    const CommandLine line;
    if (options.isManual) {
        console.write(manualPage(line));
        return;
    }
    if (options.verb.empty()) {
        console.write(line.app.help());
        return;
    }
    std::string names;
    for (const DeclaredVerb& verb : line.verbs) {
        if (verb.verb->name == options.verb) {
            console.write(verb.app->help(line.app.get_name()));
            return;
        }
        names += fmt::format("{}{}", names.empty() ? "" : ", ", verb.verb->name);
    }
    throw UsageError(fmt::format("there is no verb {}; there are {}", shownText(options.verb), names));
}

std::function<void(Console&)> declareHelp(CLI::App& app) {
    const auto options = std::make_shared<HelpOptions>();
    app.add_option("VERB", options->verb, "The verb to tell about; all of them without one");
    app.add_flag("--man", options->isManual, "The manual page tabulo(1), for man");
    return [options](Console& console) { showHelp(console, *options); };
}

std::function<void(Console&)> declareCompletion(CLI::App& app) {
    const auto shell = std::make_shared<std::string>();
    app.add_option("SHELL", *shell, "The shell")
        ->required()
        ->type_name("bash|zsh|fish")
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    return [shell](Console& console) { console.write(completionScript(CommandLine(), *shell)); };
}

}  // namespace

const Verb helpVerb{"help", "Tells what a verb does and takes, with examples",
                    "# what tail takes\n"
                    "tabulo help tail\n"
                    "# the manual page, where man finds it\n"
                    "tabulo help --man > ~/.local/share/man/man1/tabulo.1\n",
                    declareHelp};

const Verb completionVerb{"completion", "Prints what a shell needs to complete verbs, options and values",
                          "# in this bash\n"
                          "source <(tabulo completion bash)\n"
                          "# in every zsh whose fpath has this folder\n"
                          "tabulo completion zsh > ~/.zfunc/_tabulo\n"
                          "# in every fish\n"
                          "tabulo completion fish > ~/.config/fish/completions/tabulo.fish\n",
                          declareCompletion};

}  // namespace tabulo::tool
