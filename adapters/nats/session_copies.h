// The session info tables that are received: copies of those of another machine.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "adapters/nats/record.h"
#include "tabulo/session_info.h"

namespace tabulo::shipping {

class SessionCopies {
  public:
    explicit SessionCopies(std::filesystem::path folder) : folder_(std::move(folder)) {}

    // Writes the values of a record of the kind session; the table is made where there is none, and anew where it has
    // other tags. CopyRefused (copy_table.h) for a payload that is none; the errors of a SessionInfo.
    void write(const Record& record);
    // Closes all; the next record opens its table again.
    void close() { open_.clear(); }

  private:
    std::filesystem::path folder_;
    std::map<std::string, SessionInfo> open_;
};

}  // namespace tabulo::shipping
