// A stream of NATS JetStream as the log that tables are shipped to.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "adapters/nats/jetstream_window.h"
#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_connection.h"

namespace tabulo::shipping {

class JetStream : public LogStream {
  public:
    // Connects when it is first used. `client`: how the servers' own tools call this connection.
    JetStream(NatsOptions options, std::string stream, std::string client);
    ~JetStream() override;

    // Makes the stream when there is none: on disk, with so many copies, refusing what goes beyond limits that somebody
    // sets. Refused for a stream that keeps other subjects, or a cluster that cannot keep so many copies.
    void make(int replicas);

    const std::string& name() const noexcept override { return name_; }
    std::size_t payloadLimit() const noexcept override { return payloadLimit_; }
    Ends ends() override;
    std::optional<Stored> last(const std::string& subjects) override;
    std::optional<Stored> at(std::uint64_t sequence) override;
    std::optional<Stored> from(std::uint64_t sequence, const std::string& subjects) override;
    std::vector<std::string> subjects(const std::string& matching) override;
    std::unique_ptr<LogCursor> read(std::uint64_t from) override;
    Ends append(const Envelope& envelope, std::uint64_t times) override;
    void publish(const Envelope& envelope, std::uint64_t expected) override;
    void settle() override;
    void remove(std::uint64_t sequence) override;
    void answer(const std::string& subject, std::function<std::string()> answer) override;
    std::vector<std::string> ask(const std::string& subject, std::chrono::milliseconds time, bool one) override;

  private:
    jsCtx* context();
    std::optional<Stored> found(natsStatus status, jsErrCode code, natsMsg* message);
    StreamInfoHandle info(const char* subjects);

    std::string name_;
    NatsConnection connection_;
    JetStreamWindow window_;
    ContextHandle context_;
    natsConnection* of_ = nullptr;  // whose the context is
    std::size_t payloadLimit_ = 4096;
};

}  // namespace tabulo::shipping
