#include "tool/message_format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "tool/format/long_text.h"
#include "tool/format/printers.h"
#include "tool/status.h"

namespace tabulo::tool {

namespace {

constexpr std::array<std::pair<std::string_view, MessageFormat>, 5> FORMATS = {{{"text", MessageFormat::text},
                                                                                {"fix", MessageFormat::fix},
                                                                                {"raw", MessageFormat::raw},
                                                                                {"ndjson", MessageFormat::ndjson},
                                                                                {"csv", MessageFormat::csv}}};

}  // namespace

MessageFormat messageFormatNamed(std::string_view name) {
    const auto* found =
        std::find_if(FORMATS.begin(), FORMATS.end(), [&](const auto& one) { return one.first == name; });
    if (found == FORMATS.end()) {
        throw UsageError(fmt::format("there is no format '{}': text, fix, raw, ndjson, csv", name));
    }
    return found->second;
}

bool showsTimes(MessageFormat format) noexcept {
    return format != MessageFormat::fix && format != MessageFormat::raw;
}

MessagePrinter makePrinter(MessageFormat format, const PrinterOptions& options) {
    switch (format) {
        case MessageFormat::fix:
            return fixPrinter(options);
        case MessageFormat::raw:
            return rawPrinter(options);
        case MessageFormat::ndjson:
            return ndjsonPrinter(options);
        case MessageFormat::csv:
            return csvPrinter(options);
        default:
            return options.longForm ? longTextPrinter(options) : textPrinter(options);
    }
}

std::string headOf(MessageFormat format, const PrinterOptions& options) {
    return format == MessageFormat::csv ? csvHead(options) : "";
}

}  // namespace tabulo::tool
