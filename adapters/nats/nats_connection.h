// A connection to a NATS cluster.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "adapters/nats/nats_handles.h"

namespace tabulo::shipping {

// Who we are, and whom we trust. Empty is absent.
struct NatsOptions {
    std::string servers{};      // "nats://host:port", several with commas between them; "tls://" asks for TLS
    std::string credentials{};  // a file of a token and a key, as the servers' own tools make it
    std::string user{};
    std::string password{};
    std::string authority{};    // certificates in PEM that a server's must be signed by
    std::string certificate{};  // ours, in PEM, with its key
    std::string key{};
};

// Connected when it is first used, and again whenever the connection was lost. One thread uses it.
class NatsConnection {
  public:
    NatsConnection(NatsOptions options, std::string client);
    ~NatsConnection();

    // Unreachable, Refused.
    natsConnection* get();
    // The contents of the message that a server sends at the very first: bytes of a payload.
    std::size_t maxPayload();

    // As LogStream's.
    void answer(const std::string& subject, std::function<std::string()> answer);
    std::vector<std::string> ask(const std::string& subject, std::chrono::milliseconds time, bool one);

  private:
    void connect();

    NatsOptions options_;
    std::string client_;
    ConnectionHandle connection_;
    bool wasConnected_ = false;
    std::vector<SubscriptionHandle> subscriptions_;
};

}  // namespace tabulo::shipping
