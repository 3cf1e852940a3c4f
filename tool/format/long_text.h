// The long form of messages for eyes.
#pragma once

#include "tool/message_format.h"

namespace tabulo::tool {

// A message field by field: a line of what the table knows of it, then a line for each field of the wire message with
// its tag, the tag's name, the value, and what the value is called; an empty line behind it. Of a message without a
// wire message the indexed fields. Of the options the times, the width, the colour and the dictionary count. Failure
// for a dictionary that cannot be read.
MessagePrinter longTextPrinter(const PrinterOptions& options);

}  // namespace tabulo::tool
