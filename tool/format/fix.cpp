#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

MessagePrinter fixPrinter() {
    return [](const MessageView& message, std::string* out) {
        if (const Text wire = message.wire()) {
            appendShown(*wire, out);
            out->push_back('\n');
        }
    };
}

}  // namespace tabulo::tool
