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

// "text", "fix", "raw", "ndjson", "csv"; UsageError for any other name.
MessageFormat messageFormatNamed(std::string_view name);
// True for a format that shows times.
bool showsTimes(MessageFormat format) noexcept;

// Appends what a format has for a message to a text; formats stand in a file each in format/. The fields of ndjson and
// csv are a contract: docs/command.md lists them.
//
// A printer remembers the layouts that it has met by where they stand: when one of them goes it is made again.
using MessagePrinter = std::function<void(const MessageView& message, std::string* out)>;

// Takes what has been appended so far, and empties it: of a large message not all that is printed is in memory at once.
using Spill = std::function<void(std::string* out)>;

struct PrinterOptions {
    const Times* times = nullptr;
    int width = 0;                         // text: to which lines are cut; 0 for not
    int tableWidth = 0;                    // text: columns for the name of the table; 0 for not showing it
    bool colour = false;                   // text
    bool longForm = false;                 // text: field by field
    std::string dictionary{};              // text, long form: a file of tag names; empty for the built-in list
    Spill spill{};                         // called in the middle of large texts; empty for never
    std::vector<const Layout*> layouts{};  // csv: its columns are those of all of them, in the order in which they come
};
MessagePrinter makePrinter(MessageFormat format, const PrinterOptions& options);

// What stands in front of the first message: the names of csv's columns.
std::string headOf(MessageFormat format, const PrinterOptions& options);

}  // namespace tabulo::tool
