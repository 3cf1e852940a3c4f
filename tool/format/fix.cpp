#include "tool/format/pieces.h"
#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

MessagePrinter fixPrinter(const PrinterOptions& options) {
    return [spill = options.spill](const MessageView& message, std::string* out) {
        if (const Text wire = message.wire()) {
            appendPieces(*wire, out, spill, [out](std::string_view piece) { appendShown(piece, out); });
            out->push_back('\n');
        }
    };
}

}  // namespace tabulo::tool
