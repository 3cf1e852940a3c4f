// What libnats says when something fails, as what a LogStream throws.
#pragma once

#include <nats/nats.h>

#include <string>

namespace tabulo::shipping {

// Throws for any status but NATS_OK: Refused where trying again does not help, std::bad_alloc without memory, else
// Unreachable; the text begins with what was being done.
void check(natsStatus status, const std::string& doing);

}  // namespace tabulo::shipping
