// lag: how far behind shippers and receivers are.
#include <memory>

#include "tool/shipping.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

std::function<void(Console&)> declare(CLI::App& app) {
    const auto options = std::make_shared<LagVerbOptions>();
    declareCluster(app, &options->cluster);
    declareListFormat(app, &options->format);
    return [options](Console& console) { runLag(console, *options); };
}

}  // namespace

const Verb lagVerb{"lag", "Tells how far behind the shippers and receivers of streams are",
                   "  # messages, bytes and seconds: of a shipper behind its tables, of a receiver behind the stream\n"
                   "  tabulo lag --stream ENG1 --server nats://a:4222\n"
                   "  # who is more than ten seconds behind\n"
                   "  tabulo lag --stream ENG1,ENG2 -o ndjson | jq 'select(.seconds > 10)'\n",
                   declare};

}  // namespace tabulo::tool
