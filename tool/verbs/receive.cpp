// receive: builds the tables of a cluster's streams.
#include <memory>

#include "tool/shipping.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<ReceiveVerbOptions>();
    app.add_option("folder", options->folder, "Where the tables are built; of several streams each gets a folder in it")
        ->type_name("DIR")
        ->required();
    declareCluster(app, &options->cluster);
    app.add_flag("--once", options->once, "End when what the streams hold now is received");
    return [options](Console& console) { runReceive(console, *options); };
}

}  // namespace

const Verb receiveVerb{"receive", "Builds the tables of a NATS JetStream cluster's streams, byte for byte",
                       "  # a standby, until Ctrl-C; start it again at any time: it goes on where its tables end\n"
                       "  tabulo receive /var/lib/standby --stream ENG1 --server nats://a:4222,nats://b:4222\n"
                       "  # the tables of several engines, a folder each\n"
                       "  tabulo receive /var/lib/desk --stream ENG1,ENG2\n",
                       declare};

}  // namespace tabulo::tool
