// The options that many verbs share. They stand here because few sources should have to read the argument parser.
#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "tool/listing.h"
#include "tool/times.h"

namespace tabulo::tool {

void declareListFormat(CLI::App& app, ListFormat* format) {
    const std::map<std::string, ListFormat> names{{"text", ListFormat::text}, {"ndjson", ListFormat::ndjson}};
    app.add_option_function<std::string>(
           "-o,--output", [format, names](const std::string& name) { *format = names.at(name); },
           "text: for eyes; ndjson: one JSON object a line")
        ->check(CLI::IsMember({"text", "ndjson"}))
        ->type_name("text|ndjson");
}

void declareTimes(CLI::App& app, TimeOptions* options) {
    app.add_option("--time-unit", options->unit, "The unit of the tables' times: s, ms, us or ns; guessed without it")
        ->type_name("UNIT");
    app.add_option("--tz", options->zone, "The time zone of what is read and shown, as Europe/Berlin; UTC without it")
        ->type_name("ZONE");
}

}  // namespace tabulo::tool
