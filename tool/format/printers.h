// The formats, one source each.
#pragma once

#include <string>

#include "tool/message_format.h"

namespace tabulo::tool {

// A line for eyes: time, uniform id, class, sequence number, type, flags, the wire message.
MessagePrinter textPrinter(const PrinterOptions& options);
// The wire message as a line, shown as eyes may see it. A message without one gives no line.
MessagePrinter fixPrinter(const PrinterOptions& options);
// The bytes of the wire message, nothing else.
MessagePrinter rawPrinter(const PrinterOptions& options);
// A JSON object a line.
MessagePrinter ndjsonPrinter(const PrinterOptions& options);
// RFC 4180: lines end with CR LF. An absent value is nothing, an empty text is "".
MessagePrinter csvPrinter(const PrinterOptions& options);
std::string csvHead(const PrinterOptions& options);

}  // namespace tabulo::tool
