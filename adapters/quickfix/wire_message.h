// A FIX message taken apart into what a table keeps of it.
#pragma once

#include <string_view>

#include "adapters/quickfix/store_settings.h"
#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo::quickfix {

// The layout of a session's message table.
Layout layoutOf(const StoreSettings& settings);

// Whether messages of this type are the session's own and not the application's.
bool isAdministrative(std::string_view type) noexcept;

class WireMessage {
  public:
    explicit WireMessage(const StoreSettings& settings);

    // Type, MsgSeqNum, PossDupFlag, the indexed fields and the wire, all borrowed from it until the next call; each by
    // the first field with its tag. What is missing or is no such value stays empty: a message that is no FIX message
    // has its wire alone.
    Message& of(std::string_view wire);

  private:
    std::vector<std::int32_t> texts_;  // tags, in the layout's order
    std::vector<std::int32_t> numbers_;
    Message message_;
};

}  // namespace tabulo::quickfix
