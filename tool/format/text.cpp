// Messages for eyes: a line each, in columns that grow with what they hold.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>

#include "tool/format/pieces.h"
#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view NORMAL = "\x1b[0m";
constexpr std::string_view FAINT = "\x1b[2m";
constexpr std::string_view BOLD = "\x1b[1m";
constexpr std::size_t CLASS_WIDTH = 10;

std::string_view colourOf(std::optional<MessageClass> messageClass) {
    if (!messageClass.has_value()) {
        return "\x1b[31m";
    }
    switch (*messageClass) {
        case MessageClass::appTo:
            return "\x1b[32m";
        case MessageClass::appFrom:
            return "\x1b[36m";
        case MessageClass::resent:
            return "\x1b[33m";
        default:
            return FAINT;
    }
}

class TextPrinter {
  public:
    explicit TextPrinter(const PrinterOptions& options)
        : times_(options.times),
          limit_(options.width > 0 ? static_cast<std::size_t>(options.width) : std::numeric_limits<std::size_t>::max()),
          tableWidth_(static_cast<std::size_t>(options.tableWidth)),
          hasColour_(options.colour),
          spill_(options.spill) {}

    void print(const MessageView& message, std::string* out) {
        left_ = limit_;
        if (!isTimeKnown_ || message.time() != time_) {
            isTimeKnown_ = true;
            time_ = message.time();
            timeText_ = times_->text(time_);
        }
        add(timeText_, &timeWidth_, FAINT, out);
        if (tableWidth_ > 0) {
            add(message.table(), &tableWidth_, "", out);
        }
        addNumber(message.uniformId(), &uidWidth_, FAINT, out);
        const auto messageClass = message.messageClass();
        std::size_t classWidth = CLASS_WIDTH;
        add(messageClass.has_value() ? className(*messageClass) : "-", &classWidth, colourOf(messageClass), out);
        addNumber(message.seqNum(), &seqWidth_, "", out);
        add(message.type(), &typeWidth_, BOLD, out);
        std::size_t flagsWidth = 2;
        const char flags[] = {message.possDup() ? 'P' : '-', message.outOfSequence() ? 'O' : '-'};
        add({flags, 2}, &flagsWidth, "", out);
        appendPieces(message.wire().value_or("-"), out, spill_,
                     [&](std::string_view piece) { left_ -= appendShown(piece, out, left_); });
        out->push_back('\n');
    }

  private:
    // A column, and two spaces behind it.
    void add(std::string_view text, std::size_t* width, std::string_view colour, std::string* out) {
        paint(colour, out);
        const std::size_t used = appendShown(text, out, left_);
        paint(colour.empty() ? "" : NORMAL, out);
        *width = std::max(*width, used);
        left_ -= used;
        addSpaces(*width - used + 2, out);
    }

    void addNumber(std::int32_t number, std::size_t* width, std::string_view colour, std::string* out) {
        number_.clear();
        fmt::format_to(std::back_inserter(number_), "{}", number);
        *width = std::max(*width, number_.size());
        addSpaces(*width - number_.size(), out);
        std::size_t shown = number_.size();
        add(number_, &shown, colour, out);
    }

    void addSpaces(std::size_t count, std::string* out) {
        const std::size_t spaces = std::min(count, left_);
        out->append(spaces, ' ');
        left_ -= spaces;
    }

    void paint(std::string_view colour, std::string* out) const {
        if (hasColour_) {
            out->append(colour);
        }
    }

    const Times* times_;
    std::size_t limit_;
    std::size_t tableWidth_;
    bool hasColour_;
    Spill spill_;
    std::size_t left_ = 0;  // columns of the line
    bool isTimeKnown_ = false;
    std::int64_t time_ = 0;
    std::string timeText_;
    std::string number_;
    std::size_t timeWidth_ = 0;
    std::size_t uidWidth_ = 6;
    std::size_t seqWidth_ = 6;
    std::size_t typeWidth_ = 2;
};

}  // namespace

MessagePrinter textPrinter(const PrinterOptions& options) {
    return [printer = TextPrinter(options)](const MessageView& message, std::string* out) mutable {
        printer.print(message, out);
    };
}

}  // namespace tabulo::tool
