// Messages as JSON, an object a line.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "tool/format/field_names.h"
#include "tool/format/pieces.h"
#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

struct NamedLayout {
    const Layout* layout;
    std::vector<std::string> names;
};

class NdjsonPrinter {
  public:
    explicit NdjsonPrinter(const PrinterOptions& options) : times_(options.times), spill_(options.spill) {}

    void print(const MessageView& message, std::string* out) {
        out_ = out;
        buffer_.Clear();
        writer_.Reset(buffer_);
        writer_.StartObject();
        writeMetadata(message);
        writeText("text0", "text0Base64", message.text0());
        writeText("text1", "text1Base64", message.text1());
        writeFields(message);
        writeText("wire", "wireBase64", message.wire());
        writeText("nonMetadata", "nonMetadataBase64", message.nonMetadata());
        writer_.EndObject();
        takeBuffer();
        out->push_back('\n');
    }

  private:
    void writeMetadata(const MessageView& message) {
        key("table");
        shownString(message.table());
        integer("uid", message.uniformId());
        integer("seq", message.seqNum());
        integer("prevSeq", message.prevSeqNum());
        integer("id", message.id());
        const auto messageClass = message.messageClass();
        key("class");
        messageClass.has_value() ? string(className(*messageClass)) : writer_.Null();
        writeTime(message.time());
        writeText("type", "typeBase64", message.type());
        key("possDup");
        writer_.Bool(message.possDup());
        key("outOfSequence");
        writer_.Bool(message.outOfSequence());
    }

    void writeTime(std::int64_t time) {
        if (!isTimeKnown_ || time != time_) {
            isTimeKnown_ = true;
            time_ = time;
            iso_ = times_->iso(time);
            raw_.clear();
            appendNumber(time, &raw_);
        }
        key("time");
        string(iso_);
        key("timeRaw");
        string(raw_);
    }

    void writeFields(const MessageView& message) {
        const std::vector<std::string>& names = namesOf(message.layout());
        const std::size_t texts = message.textCount();
        bool allUtf8 = true;
        key("fields");
        writer_.StartObject();
        for (std::size_t i = 0; i < texts; ++i) {
            const Text text = message.text(i);
            const bool hasString = text.has_value() && isUtf8(*text);
            allUtf8 = allUtf8 && (hasString || !text.has_value());
            key(names[i]);
            hasString ? string(*text) : writer_.Null();
        }
        for (std::size_t i = 0; i < message.numberCount(); ++i) {
            key(names[texts + i]);
            writeNumber(message.number(i));
        }
        writer_.EndObject();
        if (!allUtf8) {
            writeFieldsBase64(message, names);
        }
    }

    void writeFieldsBase64(const MessageView& message, const std::vector<std::string>& names) {
        key("fieldsBase64");
        writer_.StartObject();
        for (std::size_t i = 0; i < message.textCount(); ++i) {
            const Text text = message.text(i);
            if (text.has_value() && !isUtf8(*text)) {
                key(names[i]);
                base64(*text);
            }
        }
        writer_.EndObject();
    }

    void writeNumber(const Number& number) {
        if (std::holds_alternative<std::monostate>(number)) {
            writer_.Null();
            return;
        }
        scratch_.clear();
        appendNumber(number, &scratch_);
        if (isNanOrInfinite(number)) {
            string(scratch_);
        } else {
            writer_.RawValue(scratch_.data(), scratch_.size(), rapidjson::kNumberType);
        }
    }

    // A text that JSON cannot hold is null, and follows in Base64.
    void writeText(std::string_view name, std::string_view base64Name, const Text& text) {
        const bool isShown = !text.has_value() || isUtf8(*text);
        key(name);
        text.has_value() && isShown ? string(*text) : writer_.Null();
        if (!isShown) {
            key(base64Name);
            base64(*text);
        }
    }

    void takeBuffer() {
        out_->append(buffer_.GetString(), buffer_.GetSize());
        buffer_.Clear();
    }

    // A large text as a value. The writer would want room for six times its length; it is told of the value, and the
    // text goes past it.
    template <typename Append>
    void pastTheWriter(const Append& append) {
        writer_.RawValue("", 0, rapidjson::kStringType);
        takeBuffer();
        out_->push_back('"');
        append();
        out_->push_back('"');
    }

    void largeString(std::string_view text) {
        pastTheWriter([&] {
            appendPieces(text, out_, spill_, [this](std::string_view piece) {
                pieceBuffer_.Clear();
                pieceWriter_.Reset(pieceBuffer_);
                pieceWriter_.String(piece.data(), static_cast<rapidjson::SizeType>(piece.size()));
                out_->append(pieceBuffer_.GetString() + 1, pieceBuffer_.GetSize() - 2);  // without its quotes
            });
        });
    }

    void base64(std::string_view bytes) {
        if (spill_ && bytes.size() > LARGEST_PIECE) {
            pastTheWriter([&] { appendPiecesBase64(bytes, out_, spill_); });
            return;
        }
        scratch_.clear();
        appendBase64(bytes, &scratch_);
        string(scratch_);
    }

    void shownString(std::string_view text) {
        if (isUtf8(text)) {
            string(text);
            return;
        }
        scratch_.clear();
        appendShown(text, &scratch_);
        string(scratch_);
    }

    void integer(std::string_view name, std::int32_t value) {
        key(name);
        writer_.Int(value);
    }

    void key(std::string_view name) { writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size())); }
    bool string(std::string_view text) {
        if (spill_ && text.size() > LARGEST_PIECE) {
            largeString(text);
            return true;
        }
        return writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    }

    const std::vector<std::string>& namesOf(const Layout& layout) {
        auto found = std::find_if(layouts_.begin(), layouts_.end(),
                                  [&](const NamedLayout& known) { return known.layout == &layout; });
        if (found == layouts_.end()) {
            layouts_.push_back({&layout, fieldNames(layout)});
            found = std::prev(layouts_.end());
        } else if (found != layouts_.begin() && layouts_.size() > 2) {
            std::iter_swap(found, layouts_.begin());
            found = layouts_.begin();
        }
        return found->names;
    }

    const Times* times_;
    Spill spill_;
    std::string* out_ = nullptr;
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
    rapidjson::StringBuffer pieceBuffer_;
    rapidjson::Writer<rapidjson::StringBuffer> pieceWriter_;
    bool isTimeKnown_ = false;
    std::int64_t time_ = 0;
    std::string iso_;
    std::string raw_;
    std::string scratch_;
    std::vector<NamedLayout> layouts_;
};

}  // namespace

MessagePrinter ndjsonPrinter(const PrinterOptions& options) {
    // Shared: a std::function must be able to be copied, and the writer cannot.
    return [printer = std::make_shared<NdjsonPrinter>(options)](const MessageView& message, std::string* out) {
        printer->print(message, out);
    };
}

}  // namespace tabulo::tool
