// Builds the tables of a stream in a folder. What it has is told by the tables themselves; its note, beside them, only
// says from where the stream need not be read again.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/words.h"

namespace tabulo::shipping {

struct ReceiveOptions {
    std::filesystem::path folder{};
    bool once = false;  // ends behind what the stream holds at the start
    std::function<bool()> isStopped{};
};

class Receiver {
  public:
    Receiver(LogStream& stream, ReceiveOptions options, Words words);
    ~Receiver();

    // Until it is stopped, or behind the end with `once`. Whatever is wrong with a table is told (Words::warn) and ends
    // that table alone; the others go on. The tables are closed at the end. Unreachable: to be run again, which goes on
    // where the tables end. Refused, std::filesystem::filesystem_error for a folder that cannot be used.
    void run();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tabulo::shipping
