// How messages are printed.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"
#include "tool/console.h"
#include "tool/times.h"

namespace tabulo::tool {

enum class MessageFormat { text, fix, raw, ndjson, csv };

// "text", "fix", "raw", "ndjson", "csv".
MessageFormat messageFormatNamed(std::string_view name);

// Appends what a format has for a message to a text; formats stand in a file each in format/. The fields of ndjson and
// csv are a contract: docs/command.md lists them.
using MessagePrinter = std::function<void(const MessageView& message, std::string* out)>;

// Of a csv with several tables the columns are those of all their layouts, in the order in which they come.
struct PrinterOptions {
    const Times* times = nullptr;
    int width = 0;                       // text: to which lines are cut; 0 for not
    bool colour = false;                 // text
    bool longForm = false;               // text: field by field
    std::string dictionary;              // text, long form: a file of tag names; empty for the built-in list
    std::vector<const Layout*> layouts;  // csv
};
MessagePrinter makePrinter(MessageFormat format, const PrinterOptions& options);

}  // namespace tabulo::tool
