// Records as messages of libnats.
#pragma once

#include <cstdint>
#include <string>

#include "adapters/nats/nats_handles.h"
#include "adapters/nats/record.h"

namespace tabulo::shipping {

// `reply`: where an answer is to go, none when it is empty. std::bad_alloc, or Refused for what libnats does not take
// as a message.
MessageHandle messageOf(const Envelope& envelope, const std::string& reply = {});
// A message that was read from a stream, where its subject and sequence are known beside it.
Stored storedOf(natsMsg* message, std::string subject, std::uint64_t sequence);

}  // namespace tabulo::shipping
