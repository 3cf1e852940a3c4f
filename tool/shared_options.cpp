// The options that many verbs share. They stand here because few sources should have to read the argument parser.
#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "tool/listing.h"
#include "tool/shipping.h"
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

void declareCluster(CLI::App& app, ClusterOptions* options) {
    app.add_option("--stream", options->streams, "The stream of an engine's tables")
        ->type_name("NAME")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->required();
    app.add_option("--server", options->servers, "The cluster's servers (nats://127.0.0.1:4222), with commas between")
        ->type_name("URL");
    app.add_option("--creds", options->credentials, "A file of credentials, as the servers' tools make it")
        ->type_name("FILE");
    app.add_option("--login-file", options->loginFile,
                   "A file of two lines, user and password; else TABULO_NATS_USER and TABULO_NATS_PASSWORD tell")
        ->type_name("FILE");
    app.add_option("--ca", options->authority, "Certificates that the servers' must be signed by; asks for TLS")
        ->type_name("FILE");
    app.add_option("--cert", options->certificate, "Our own certificate, with --key")->type_name("FILE");
    app.add_option("--key", options->key, "Its key")->type_name("FILE");
}

}  // namespace tabulo::tool
