// ship: publishes tables to a cluster.
#include <memory>

#include "tool/shipping.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<ShipVerbOptions>();
    app.add_option("files", options->files, "The tables of one engine, or the folder that they stand in")
        ->type_name("FILE")
        ->required();
    declareCluster(app, &options->cluster);
    app.get_option("--stream")->expected(1);
    app.add_option("--replicas", options->replicas, "How many servers keep a stream that is made (3)")
        ->check(CLI::Range(1, 5))
        ->type_name("N");
    app.add_flag("--once", options->once, "End when what the tables hold now is shipped");
    app.add_flag("--takeover", options->takeover, "Also when another shipper has the stream, which then ends");
    app.add_flag("--accept-rewind", options->acceptRewind,
                 "Have the copies cut off what the stream has and the tables have not");
    app.add_flag("--allow-gap", options->allowGap, "Go on behind what is missing, and record in the stream that it is");
    return [options](Console& console) { runShip(console, *options); };
}

}  // namespace

const Verb shipVerb{"ship", "Ships tables to a NATS JetStream cluster, as they are written",
                    "  # an engine's tables, until Ctrl-C; start it again at any time: nothing is lost or sent twice\n"
                    "  tabulo ship /var/lib/engine --stream ENG1 --server nats://a:4222,nats://b:4222\n"
                    "  # what is there now, to a single server\n"
                    "  tabulo ship orders --stream TEST --replicas 1 --once\n",
                    declare};

}  // namespace tabulo::tool
