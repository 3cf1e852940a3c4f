#include <fmt/format.h>

#include <string_view>

#include "tool/help_pages.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view END = R"(.SH EXIT STATUS
.TP
.B 0
Done.
.TP
.B 1
Failed.
.TP
.B 2
Wrong use.
.TP
.B 3
Done, but something is damaged, missing or was left out, which standard error names.
.TP
.B 130
Interrupted.
.SH ENVIRONMENT
.TP
.B NO_COLOR
When it is set and not empty, nothing is coloured but by
.BR "\-\-color always" .
)";

// A text as roff prints it: nothing in it is a request or an escape.
std::string plain(std::string_view text) {
    std::string escaped;
    bool atLineStart = true;
    for (const char c : text) {
        if (atLineStart && (c == '.' || c == '\'')) {
            escaped += "\\&";
        }
        escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
        atLineStart = c == '\n';
    }
    return escaped;
}

std::string optionsOf(const CLI::App& app) {
    std::string page;
    for (const CLI::Option* option : app.get_options()) {
        std::string name = option->get_positional() ? option->get_name() : option->get_name(false, true);
        const bool isNamed = option->get_positional() || option->get_items_expected_max() == 0;
        const std::string type = isNamed ? std::string() : valueName(*option);
        page += fmt::format(".TP\n\\fB{}\\fR{}\n{}\n", plain(CLI::detail::find_and_replace(name, ",", ", ")),
                            type.empty() ? "" : " \\fI" + plain(type) + "\\fR", plain(option->get_description()));
    }
    return page;
}

std::string usageOf(const DeclaredVerb& verb) {
    std::string usage = fmt::format("\\fBtabulo {}\\fR [\\fIoption\\fR...]", plain(verb.verb->name));
    for (const CLI::Option* option : verb.app->get_options()) {
        if (option->get_positional()) {
            const bool isList = option->get_items_expected_max() > 1;
            const std::string name = "\\fI" + plain(option->get_name()) + "\\fR" + (isList ? "..." : "");
            usage += option->get_required() ? " " + name : " [" + name + "]";
        }
    }
    return usage;
}

std::string pageOf(const DeclaredVerb& verb) {
    std::string page = fmt::format(".SS {}\n{}\n.PP\n{}.\n{}", plain(verb.verb->name), usageOf(verb),
                                   plain(verb.verb->summary), optionsOf(*verb.app));
    if (!verb.verb->examples.empty()) {
        page += ".PP\nExamples:\n.PP\n.nf\n" + plain(verb.verb->examples);
        page += page.ends_with('\n') ? ".fi\n" : "\n.fi\n";
    }
    return page;
}

}  // namespace

std::string manualPage(const CommandLine& line) {
    std::string page = ".TH TABULO 1 \"\" Tabulo \"User Commands\"\n.SH NAME\ntabulo \\- looks at message tables\n";
    page += ".SH SYNOPSIS\n\\fBtabulo\\fR [\\fIoption\\fR...] \\fIverb\\fR [\\fIargument\\fR...]\n";
    page += ".SH DESCRIPTION\n" + plain(line.app.get_description()) + "\n";
    page += ".SH OPTIONS\n" + optionsOf(line.app) + ".SH VERBS\n";
    for (const DeclaredVerb& verb : line.verbs) {
        page += pageOf(verb);
    }
    return page + std::string(END);
}

}  // namespace tabulo::tool
