// Messages as comma-separated values.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "tabulo/columns.h"
#include "tool/format/csv_value.h"
#include "tool/format/pieces.h"
#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

// The names of the fields of all layouts, in the order in which they come.
std::vector<std::string> fieldColumns(const std::vector<const Layout*>& layouts) {
    std::vector<std::string> columns;
    for (const Layout* layout : layouts) {
        for (std::string& name : fieldNames(*layout)) {
            if (std::find(columns.begin(), columns.end(), name) == columns.end()) {
                columns.push_back(std::move(name));
            }
        }
    }
    return columns;
}

template <typename Names>
bool contains(const Names& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

class CsvPrinter {
  public:
    explicit CsvPrinter(const PrinterOptions& options)
        : times_(options.times), spill_(options.spill), columns_(fieldColumns(options.layouts)) {}

    void print(const MessageView& message, std::string* out) {
        addShown(message.table(), out);
        addInteger(message.uniformId(), out);
        addInteger(message.seqNum(), out);
        addInteger(message.prevSeqNum(), out);
        addInteger(message.id(), out);
        const auto messageClass = message.messageClass();
        out->append(messageClass.has_value() ? className(*messageClass) : "").push_back(',');
        if (timeText_.empty() || message.time() != time_) {
            time_ = message.time();
            timeText_ = fmt::format("{},{},", times_->iso(time_), time_);
        }
        out->append(timeText_);
        addText(message.type(), out);
        out->append(message.possDup() ? "true," : "false,");
        out->append(message.outOfSequence() ? "true," : "false,");
        addText(message.text0(), out);
        addText(message.text1(), out);
        addFields(message, out);
        addWire(message, out);
    }

  private:
    void addText(const Text& text, std::string* out) {
        if (text.has_value()) {
            appendCsvValue(*text, out, spill_);
        }
        out->push_back(',');
    }

    void addShown(std::string_view text, std::string* out) {
        scratch_.clear();
        appendShown(text, &scratch_);
        addText(isUtf8(text) ? text : scratch_, out);
    }

    static void addInteger(std::int32_t value, std::string* out) {
        appendNumber(std::int64_t{value}, out);
        out->push_back(',');
    }

    void addFields(const MessageView& message, std::string* out) {
        const std::vector<int>& places = placesOf(message.layout());
        const auto texts = static_cast<int>(message.textCount());
        for (const int place : places) {
            if (place >= texts) {
                appendNumber(message.number(static_cast<std::size_t>(place - texts)), out);
                out->push_back(',');
            } else {
                addText(place < 0 ? Text() : message.text(static_cast<std::size_t>(place)), out);
            }
        }
    }

    void addWire(const MessageView& message, std::string* out) {
        const Text texts[] = {message.wire(), message.nonMetadata()};
        bool isText[2] = {};
        for (std::size_t i = 0; i < 2; ++i) {
            isText[i] = texts[i].has_value() && isUtf8(*texts[i]);
            if (isText[i]) {
                appendCsvValue(*texts[i], out, spill_);
            }
            out->push_back(',');
        }
        for (std::size_t i = 0; i < 2; ++i) {
            if (texts[i].has_value() && !isText[i]) {
                appendPiecesBase64(*texts[i], out, spill_);
            }
            out->append(i == 0 ? "," : "\r\n");
        }
    }

    // For each column the field of the layout, texts first, then numbers; -1 for none.
    const std::vector<int>& placesOf(const Layout& layout) {
        auto found = places_.find(&layout);
        if (found == places_.end()) {
            const std::vector<std::string> names = fieldNames(layout);
            std::vector<int> places;
            for (const std::string& column : columns_) {
                const auto name = std::find(names.begin(), names.end(), column);
                places.push_back(name == names.end() ? -1 : static_cast<int>(name - names.begin()));
            }
            found = places_.emplace(&layout, std::move(places)).first;
        }
        return found->second;
    }

    const Times* times_;
    Spill spill_;
    std::vector<std::string> columns_;
    std::map<const Layout*, std::vector<int>> places_;
    std::int64_t time_ = 0;
    std::string timeText_;  // the last message's time, in both its columns
    std::string scratch_;
};

}  // namespace

MessagePrinter csvPrinter(const PrinterOptions& options) {
    return [printer = CsvPrinter(options)](const MessageView& message, std::string* out) mutable {
        printer.print(message, out);
    };
}

std::string csvHead(const PrinterOptions& options) {
    std::string head;
    for (const std::string_view column : leadingColumns()) {
        head.append(column).push_back(',');
    }
    for (const std::string& field : fieldColumns(options.layouts)) {
        const bool isTaken = contains(leadingColumns(), field) || contains(trailingColumns(), field);
        appendCsvValue((isTaken ? "fields." : "") + field, &head);
        head.push_back(',');
    }
    for (const std::string_view column : trailingColumns()) {
        head.append(column).push_back(column == trailingColumns().back() ? '\r' : ',');
    }
    return head + "\n";
}

}  // namespace tabulo::tool
