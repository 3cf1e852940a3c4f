// What the verbs that reach a cluster share: ship, receive and lag.
#pragma once

#include <string>
#include <vector>

#include "tool/console.h"
#include "tool/listing.h"

namespace CLI {
class App;
}  // namespace CLI

namespace tabulo::tool {

// Whom to reach, and as whom.
struct ClusterOptions {
    std::vector<std::string> streams;
    std::string servers = "nats://127.0.0.1:4222";
    std::string credentials;
    std::string loginFile;
    std::string authority;
    std::string certificate;
    std::string key;
};

void declareCluster(CLI::App& app, ClusterOptions* options);

struct ShipVerbOptions {
    std::vector<std::string> files;
    ClusterOptions cluster;
    int replicas = 3;
    bool once = false;
    bool takeover = false;
    bool acceptRewind = false;
    bool allowGap = false;
};

struct ReceiveVerbOptions {
    std::string folder;
    ClusterOptions cluster;
    bool once = false;
};

struct LagVerbOptions {
    ClusterOptions cluster;
    ListFormat format = ListFormat::text;
};

// What the verbs do. A build without libnats says what is missing.
void runShip(Console& console, const ShipVerbOptions& options);
void runReceive(Console& console, const ReceiveVerbOptions& options);
void runLag(Console& console, const LagVerbOptions& options);

}  // namespace tabulo::tool
