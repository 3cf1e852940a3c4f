#include "tool/format/long_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "tool/fix_dictionary_file.h"
#include "tool/format/pieces.h"
#include "tool/listing.h"

namespace tabulo::tool {

namespace {

constexpr std::string_view NORMAL = "\x1b[0m";
constexpr std::string_view FAINT = "\x1b[2m";
constexpr std::string_view BOLD = "\x1b[1m";
constexpr std::string_view NAMED = "\x1b[36m";
constexpr std::size_t TAG_WIDTH = 6;
constexpr std::size_t WIDEST_NAME = 32;

// A value as eyes may see it. What ends a field elsewhere is a byte like any other in a data field.
std::string shownValue(std::string_view value) {
    std::string shown;
    for (std::size_t end = 0; (end = value.find(FIX_END_OF_FIELD)) != std::string_view::npos;) {
        shown += shownText(value.substr(0, end)) + "\\x01";
        value.remove_prefix(end + 1);
    }
    return shown + shownText(value);
}

class LongText {
  public:
    explicit LongText(const PrinterOptions& options)
        : times_(options.times),
          width_(options.width > 0 ? static_cast<std::size_t>(options.width) : 0),
          hasColour_(options.colour),
          spill_(options.spill) {
        if (!options.dictionary.empty()) {
            named_ = readFixDictionary(options.dictionary);
        }
    }

    void print(const MessageView& message, std::string* out) {
        printHead(message, out);
        if (message.wire()) {
            printWire(*message.wire(), out);
        } else {
            printIndexedFields(message, out);
        }
        out->push_back('\n');
    }

  private:
    struct Part {
        std::string_view colour;
        std::string text;
    };

    const FixDictionary& dictionary() const { return named_ ? *named_ : FixDictionary::builtIn(); }

    void printHead(const MessageView& message, std::string* out) const {
        const auto messageClass = message.messageClass();
        std::string flags;
        flags += message.possDup() ? "  PossDup" : "";
        flags += message.outOfSequence() ? "  out of sequence" : "";
        flags += message.wire() ? "" : "  without a wire message";
        printLine({{FAINT, times_->text(message.time())},
                   {"", fmt::format("  {}  uid {}  {}  seq {}  ", shownText(message.table()), message.uniformId(),
                                    messageClass ? className(*messageClass) : "-", message.seqNum())},
                   {BOLD, fmt::format("{} {}", shownText(message.type()),
                                      shownText(dictionary().messageName(message.type())))},
                   {"", flags}},
                  out);
    }

    void printWire(std::string_view wire, std::string* out) {
        std::size_t nameWidth = 0;
        FixField field;
        for (FixFields fields(wire, dictionary().dataFields()); fields.next(&field);) {
            nameWidth = std::max(nameWidth, shownWidth(shownText(dictionary().tagName(field.tag))));
        }
        nameWidth = std::min(nameWidth, WIDEST_NAME);
        for (FixFields fields(wire, dictionary().dataFields()); fields.next(&field);) {
            const std::string tag = field.tag == 0 ? "?" : fmt::format("{}", field.tag);
            const std::string name = field.tag == 0 ? "(no field)" : shownText(dictionary().tagName(field.tag));
            printField(tag, name, nameWidth, field.value, nameOf(field), out);
            if (spill_ && out->size() > LARGEST_PIECE) {
                spill_(out);
            }
        }
    }

    void printIndexedFields(const MessageView& message, std::string* out) const {
        const Layout& layout = message.layout();
        for (std::size_t n = 0; n < layout.texts.size(); ++n) {
            if (const Text value = message.text(n)) {
                printField("-", shownText(layout.texts[n]), 0, *value, "", out);
            }
        }
        for (std::size_t n = 0; n < layout.numbers.size(); ++n) {
            const Number value = message.number(n);
            if (const auto* integer = std::get_if<std::int64_t>(&value)) {
                printField("-", shownText(layout.numbers[n]), 0, fmt::format("{}", *integer), "", out);
            } else if (const auto* real = std::get_if<double>(&value)) {
                printField("-", shownText(layout.numbers[n]), 0, fmt::format("{}", *real), "", out);
            }
        }
    }

    // What the value of a field is called; of the type the message's name.
    std::string nameOf(const FixField& field) const {
        constexpr std::int32_t MSG_TYPE = 35;
        constexpr std::int32_t REF_MSG_TYPE = 372;
        const bool isType = field.tag == MSG_TYPE || field.tag == REF_MSG_TYPE;
        return shownText(isType ? std::string(dictionary().messageName(field.value))
                                : dictionary().valueName(field.tag, field.value));
    }

    void printField(std::string_view tag, std::string_view name, std::size_t nameWidth, std::string_view value,
                    const std::string& valueName, std::string* out) const {
        const std::size_t used = shownWidth(name);
        const Part tagPart{FAINT, fmt::format("{:>{}}", tag, TAG_WIDTH)};
        const std::string padding(used < nameWidth ? nameWidth - used : 0, ' ');
        const bool isLarge = spill_ && value.size() > LARGEST_PIECE;
        if (isLarge && width_ == 0) {
            paint(tagPart, out);
            out->append(fmt::format("  {}{}  ", name, padding));
            appendPieces(value, out, spill_, [out](std::string_view piece) { out->append(shownValue(piece)); });
            out->push_back('\n');
            return;
        }
        const std::string_view shown = isLarge ? value.substr(0, pieceLength(value)) : value;  // the line is cut
        printLine({tagPart,
                   {"", fmt::format("  {}{}  {}", name, padding, shownValue(shown))},
                   {NAMED, valueName.empty() ? "" : "  " + valueName}},
                  out);
    }

    void paint(const Part& part, std::string* out) const {
        const bool isPainted = hasColour_ && !part.colour.empty() && !part.text.empty();
        *out += isPainted ? part.colour : "";
        *out += part.text;
        *out += isPainted ? NORMAL : "";
    }

    // A line of parts, cut to the width.
    void printLine(std::initializer_list<Part> parts, std::string* out) const {
        std::size_t left = 0;
        for (const Part& part : parts) {
            left += shownWidth(part.text);
        }
        const bool isCut = width_ > 0 && left > width_;
        left = isCut ? width_ : left;
        for (const Part& part : parts) {
            // The part that reaches the end of a cut line ends in the mark of a cut, also when it fits just so.
            const std::size_t width = shownWidth(part.text);
            const std::string text = isCut && width >= left ? cutText(part.text + " ", left) : part.text;
            left -= std::min(left, width);
            paint({part.colour, text}, out);
            if (isCut && left == 0) {
                break;
            }
        }
        out->push_back('\n');
    }

    const Times* times_;
    std::size_t width_;
    bool hasColour_;
    Spill spill_;
    std::optional<FixDictionary> named_;
};

}  // namespace

MessagePrinter longTextPrinter(const PrinterOptions& options) {
    // Shared, since a printer is copied and a dictionary is large.
    return [printer = std::make_shared<LongText>(options)](const MessageView& message, std::string* out) {
        printer->print(message, out);
    };
}

}  // namespace tabulo::tool
