#include "tool/format/pieces.h"
#include "tool/format/printers.h"

namespace tabulo::tool {

MessagePrinter rawPrinter(const PrinterOptions& options) {
    return [spill = options.spill](const MessageView& message, std::string* out) {
        appendPieces(message.wire().value_or(""), out, spill, [out](std::string_view piece) { out->append(piece); });
    };
}

}  // namespace tabulo::tool
