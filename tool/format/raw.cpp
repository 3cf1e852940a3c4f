#include "tool/format/printers.h"

namespace tabulo::tool {

MessagePrinter rawPrinter() {
    return [](const MessageView& message, std::string* out) { out->append(message.wire().value_or("")); };
}

}  // namespace tabulo::tool
