#include <cstdint>
#include <limits>
#include <memory>

#include "tool/message_source.h"
#include "tool/printing.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

struct CatOptions {
    SourceOptions source;
    PrintingOptions printing;
    bool reverse = false;
    std::int64_t limit = std::numeric_limits<std::int64_t>::max();
};

void run(Console& console, const CatOptions& options) {
    const MessageFormat format = messageFormatNamed(options.printing.format);
    MessageSource source(console, options.source, {.areShown = showsTimes(format)});
    MessageOutput output(console, options.printing, source.names());
    output.begin(source.times(), source.layouts());
    source.begin("reading", options.reverse);
    for (std::int64_t printed = 0; printed < options.limit; ++printed) {
        const MessageView* message = source.next();
        if (message == nullptr) {
            break;
        }
        output.print(*message);
    }
    console.flush();
    source.explain();
}

}  // namespace

const Verb catVerb{"cat", "Prints messages",
                   "  # the messages of an order's symbol on one day\n"
                   "  tabulo cat --since 2026-11-20 --until 2026-11-21 --where Symbol=ACME orders\n"
                   "  # the newest ten rejects, as JSON\n"
                   "  tabulo cat --reverse --limit 10 --type 3,j -o ndjson orders\n"
                   "  # what a folder of tables holds, in the order of time\n"
                   "  tabulo cat --merge time -o fix /var/data/tables",
                   [](CLI::App& app) {
                       auto options = std::make_shared<CatOptions>();
                       declareSource(app, &options->source);
                       declarePrinting(app, &options->printing);
                       app.add_flag("--reverse", options->reverse, "From the end to the beginning");
                       app.add_option("--limit", options->limit, "At most so many messages")
                           ->check(CLI::NonNegativeNumber)
                           ->type_name("N");
                       return std::function<void(Console&)>([options](Console& console) { run(console, *options); });
                   }};

}  // namespace tabulo::tool
