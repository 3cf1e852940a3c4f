#include "tool/printing.h"

#include <algorithm>
#include <utility>

#include "tool/listing.h"
#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::size_t WIDEST_TABLE = 24;

int tableWidth(const std::vector<std::string>& names) {
    std::size_t width = 0;
    for (const std::string& name : names) {
        width = std::max(width, shownWidth(shownText(name)));
    }
    return names.size() < 2 ? 0 : static_cast<int>(std::min(width, WIDEST_TABLE));
}

}  // namespace

void declarePrinting(CLI::App& app, PrintingOptions* options) {
    app.add_option("-o,--output", options->format, "How messages are printed")->type_name("text|fix|raw|ndjson|csv");
    app.add_flag("--long", options->longForm, "With -o text: field by field, with the names of tags and values");
    app.add_option("--dictionary", options->dictionary, "With --long: the names, as an XML data dictionary has them")
        ->type_name("FILE.xml");
}

MessageOutput::MessageOutput(Console& console, const PrintingOptions& options, const std::vector<std::string>& names)
    : console_(console), format_(messageFormatNamed(options.format)), names_(names) {
    if (format_ != MessageFormat::text && (options.longForm || !options.dictionary.empty())) {
        throw UsageError("--long and --dictionary are for -o text");
    }
    printer_.width = console.width();
    printer_.tableWidth = tableWidth(names);
    printer_.colour = console.hasColour();
    printer_.longForm = options.longForm;
    printer_.spill = [&console](std::string* out) {
        console.write(*out);
        out->clear();
    };
    printer_.dictionary = options.dictionary;
}

void MessageOutput::addTable(const std::string& name) {
    names_.push_back(name);
    printer_.tableWidth = tableWidth(names_);
}

void MessageOutput::begin(const Times& times, std::vector<const Layout*> layouts) {
    printer_.times = &times;
    printer_.layouts = std::move(layouts);
    print_ = makePrinter(format_, printer_);
    std::string head = headOf(format_, printer_);
    if (head != head_) {
        head_ = std::move(head);
        console_.write(head_);
    }
}

void MessageOutput::print(const MessageView& message) {
    text_.clear();
    print_(message, &text_);
    console_.write(text_);
}

}  // namespace tabulo::tool
