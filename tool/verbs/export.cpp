#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tool/listing.h"
#include "tool/message_format.h"
#include "tool/message_source.h"
#include "tool/status.h"
#include "tool/target.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct ExportOptions {
    SourceOptions source;
    std::string to;
};

MessageFormat formatOf(const std::filesystem::path& path) {
    if (path.extension() != ".csv" && path.extension() != ".ndjson") {
        throw UsageError(fmt::format("--to takes a file that ends in .csv or .ndjson, not {}", shownPath(path)));
    }
    return messageFormatNamed(path.extension().string().substr(1));
}

void run(Console& console, const ExportOptions& options) {
    const MessageFormat format = formatOf(options.to);
    TargetFile target(options.to);
    MessageSource source(console, options.source, {});
    PrinterOptions printerOptions;
    printerOptions.times = &source.times();
    printerOptions.layouts = source.layouts();
    printerOptions.spill = [&target](std::string* out) {
        target.write(*out);
        out->clear();
    };
    const MessagePrinter print = makePrinter(format, printerOptions);
    target.write(headOf(format, printerOptions));
    source.begin("exporting", false);
    std::int64_t count = 0;
    std::string text;
    while (const MessageView* message = source.next()) {
        text.clear();
        print(*message, &text);
        target.write(text);
        ++count;
    }
    Console::checkInterrupt();
    target.finish();
    source.explain();
    console.say(fmt::format("{} messages exported to {}", count, shownPath(options.to)));
}

}  // namespace

const Verb exportVerb{"export", "Writes messages to a csv or ndjson file",
                      "  # a day for a spreadsheet\n"
                      "  tabulo export --since 2026-11-20 --until 2026-11-21 --to orders.csv orders",
                      [](CLI::App& app) {
                          auto options = std::make_shared<ExportOptions>();
                          declareSource(app, &options->source);
                          app.add_option("--to", options->to, "The file to make; it must not exist")
                              ->required()
                              ->type_name("FILE.csv|FILE.ndjson");
                          return std::function<void(Console&)>([options](Console& console) { run(console, *options); });
                      }};

}  // namespace tabulo::tool
