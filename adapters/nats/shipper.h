// Publishes the messages of tables, merged by uniform id, as the records of a stream.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/publisher.h"
#include "adapters/nats/words.h"

namespace tabulo::shipping {

struct ShipOptions {
    // The tables: message tables and session info tables.
    std::vector<std::filesystem::path> tables{};
    // Asked now and then: tables that have come since.
    std::function<std::vector<std::filesystem::path>()> newTables{};
    bool once = false;          // ends behind what the tables hold at the start
    bool takeover = false;      // also from a shipper that answers
    bool acceptRewind = false;  // cuts the stream's end off where the source has not got it
    bool allowGap = false;      // goes on behind what is missing, and records that
    std::function<bool()> isStopped{};
};

class Shipper {
  public:
    Shipper(LogStream& stream, ShipOptions options, Words words);
    ~Shipper();

    // Until it is stopped, or behind the ends with `once`, when all is stored in the stream. What is wrong with a table
    // is told (Words::warn) and ends that table alone; a stream that is ahead of a table ends all of it. Unreachable:
    // to be run again, which asks the stream what it holds. Superseded when another shipper has it.
    void run();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tabulo::shipping
