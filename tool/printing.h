// Printing messages to standard output, as the user wants them.
#pragma once

#include <string>
#include <vector>

#include "tool/console.h"
#include "tool/message_format.h"
#include "tool/verb.h"

namespace tabulo::tool {

struct PrintingOptions {
    std::string format = "text";
    bool longForm = false;
    std::string dictionary;
};

// Declares -o, --long and --dictionary.
void declarePrinting(CLI::App& app, PrintingOptions* options);

class MessageOutput {
  public:
    // `names` are those of the tables, in the text format shown when there are several. UsageError for an unknown
    // format, and for a long form of another format than text.
    MessageOutput(Console& console, const PrintingOptions& options, const std::vector<std::string>& names);

    MessageFormat format() const noexcept { return format_; }
    // Before the first message, and when a layout has gone; prints the format's head when it is not the one before.
    void begin(const Times& times, std::vector<const Layout*> layouts);
    // One more table, which the text format then shows.
    void addTable(const std::string& name);
    void print(const MessageView& message);

  private:
    Console& console_;
    MessageFormat format_;
    std::vector<std::string> names_;
    PrinterOptions printer_;
    MessagePrinter print_;
    std::string head_;
    std::string text_;
};

}  // namespace tabulo::tool
