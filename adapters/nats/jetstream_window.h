// The records that were published and are not acknowledged yet.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "adapters/nats/nats_handles.h"
#include "adapters/nats/record.h"

namespace tabulo::shipping {

// Of one connection. Once a record is in doubt, the window is given up with the next call, which says so by Unreachable
// and begins a new one.
class JetStreamWindow {
  public:
    explicit JetStreamWindow(std::string stream);
    ~JetStreamWindow();

    void publish(natsConnection* connection, const Envelope& envelope, std::uint64_t expected);
    void settle();
    // Forgets what is in flight: it is or is not stored.
    void giveUp();

  private:
    struct Flight;

    static void acknowledged(jsCtx* context, natsMsg* message, jsPubAck* ack, jsPubAckErr* error, void* closure);
    void begin(natsConnection* connection);
    bool isEmpty() const;
    bool isFull(std::size_t bytes) const;
    void wait(std::size_t records, std::size_t bytes);

    std::string stream_;
    // Each record names itself by the window and its number in it, and but for the first one, the record that must
    // stand in front of it.
    std::string chain_;
    std::uint64_t published_ = 0;
    ContextHandle context_;
    std::unique_ptr<Flight> flight_;
    // Of windows that were given up: a last acknowledgement may be on its way to them.
    std::vector<std::unique_ptr<Flight>> past_;
};

}  // namespace tabulo::shipping
