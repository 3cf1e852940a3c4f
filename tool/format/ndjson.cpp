// Messages as JSON, an object a line.
#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <memory>

#include "tabulo/columns.h"
#include "tool/format/json_text.h"
#include "tool/format/pieces.h"
#include "tool/format/printers.h"
#include "tool/text_bytes.h"

namespace tabulo::tool {

namespace {

struct NamedLayout {
    const Layout* layout;
    std::vector<std::string> names;  // as keys: "ClOrdID":
};

std::string asKey(std::string_view name) {
    rapidjson::StringBuffer key;
    appendJsonString(name, &key);
    key.Put(':');
    return {key.GetString(), key.GetSize()};
}

constexpr std::string_view NULL_WORD = "null";

class NdjsonPrinter {
  public:
    explicit NdjsonPrinter(const PrinterOptions& options) : times_(options.times), spill_(options.spill) {}

    void print(const MessageView& message, std::string* out) {
        out_ = out;
        buffer_.Clear();
        begin();
        writeMetadata(message);
        writeText(R"("text0":)", R"("text0Base64":)", message.text0());
        writeText(R"("text1":)", R"("text1Base64":)", message.text1());
        writeFields(message);
        writeText(R"("wire":)", R"("wireBase64":)", message.wire());
        writeText(R"("nonMetadata":)", R"("nonMetadataBase64":)", message.nonMetadata());
        put("}\n");
        takeBuffer();
    }

  private:
    void writeMetadata(const MessageView& message) {
        key(R"("table":)");
        shownString(message.table());
        integer(R"("uid":)", message.uniformId());
        integer(R"("seq":)", message.seqNum());
        integer(R"("prevSeq":)", message.prevSeqNum());
        integer(R"("id":)", message.id());
        const auto messageClass = message.messageClass();
        key(R"("class":)");
        messageClass.has_value() ? string(className(*messageClass)) : put(NULL_WORD);
        writeTime(message.time());
        writeText(R"("type":)", R"("typeBase64":)", message.type());
        flag(R"("possDup":)", message.possDup());
        flag(R"("outOfSequence":)", message.outOfSequence());
    }

    void writeTime(std::int64_t time) {
        if (!isTimeKnown_ || time != time_) {
            isTimeKnown_ = true;
            time_ = time;
            timeKeys_ = fmt::format(R"("time":"{}","timeRaw":"{}")", times_->iso(time), time);
        }
        key(timeKeys_);
    }

    void writeFields(const MessageView& message) {
        const std::vector<std::string>& names = namesOf(message.layout());
        const std::size_t texts = message.textCount();
        bool allUtf8 = true;
        key(R"("fields":)");
        begin();
        for (std::size_t i = 0; i < texts; ++i) {
            const Text text = message.text(i);
            const bool hasString = text.has_value() && isUtf8(*text);
            allUtf8 = allUtf8 && (hasString || !text.has_value());
            key(names[i]);
            hasString ? string(*text) : put(NULL_WORD);
        }
        for (std::size_t i = 0; i < message.numberCount(); ++i) {
            key(names[texts + i]);
            writeNumber(message.number(i));
        }
        end();
        if (!allUtf8) {
            writeFieldsBase64(message, names);
        }
    }

    void writeFieldsBase64(const MessageView& message, const std::vector<std::string>& names) {
        key(R"("fieldsBase64":)");
        begin();
        for (std::size_t i = 0; i < message.textCount(); ++i) {
            const Text text = message.text(i);
            if (text.has_value() && !isUtf8(*text)) {
                key(names[i]);
                base64(*text);
            }
        }
        end();
    }

    void writeNumber(const Number& number) {
        if (std::holds_alternative<std::monostate>(number)) {
            put(NULL_WORD);
            return;
        }
        scratch_.clear();
        appendNumber(number, &scratch_);
        isNanOrInfinite(number) ? string(scratch_) : put(scratch_);
    }

    // A text that JSON cannot hold is null, and follows in Base64.
    void writeText(std::string_view quotedName, std::string_view base64Name, const Text& text) {
        const bool isShown = !text.has_value() || isUtf8(*text);
        key(quotedName);
        text.has_value() && isShown ? string(*text) : put(NULL_WORD);
        if (!isShown) {
            key(base64Name);
            base64(*text);
        }
    }

    void takeBuffer() {
        out_->append(buffer_.GetString(), buffer_.GetSize());
        buffer_.Clear();
    }

    // A large text as a value goes past the buffer, which would need room for six times its length.
    template <typename Append>
    void pastTheBuffer(const Append& append) {
        takeBuffer();
        out_->push_back('"');
        append();
        out_->push_back('"');
    }

    void largeString(std::string_view text) {
        pastTheBuffer([&] {
            appendPieces(text, out_, spill_, [this](std::string_view piece) {
                appendJsonText(piece, &buffer_);
                takeBuffer();
            });
        });
    }

    void base64(std::string_view bytes) {
        if (spill_ && bytes.size() > LARGEST_PIECE) {
            pastTheBuffer([&] { appendPiecesBase64(bytes, out_, spill_); });
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

    void begin() {
        put("{");
        isFirst_ = true;
    }
    void end() {
        put("}");
        isFirst_ = false;
    }
    // With what stands in front of a value: a comma, and the name with its quotes and its colon.
    void key(std::string_view quotedName) {
        if (!isFirst_) {
            buffer_.Put(',');
        }
        isFirst_ = false;
        put(quotedName);
    }
    void put(std::string_view text) { std::memcpy(buffer_.Push(text.size()), text.data(), text.size()); }
    void integer(std::string_view quotedName, std::int32_t value) {
        constexpr std::size_t LONGEST = 11;
        key(quotedName);
        char* const begin = buffer_.Push(LONGEST);
        buffer_.Pop(static_cast<std::size_t>(begin + LONGEST - std::to_chars(begin, begin + LONGEST, value).ptr));
    }
    void flag(std::string_view quotedName, bool value) {
        key(quotedName);
        put(value ? "true" : "false");
    }
    void string(std::string_view text) {
        spill_&& text.size() > LARGEST_PIECE ? largeString(text) : appendJsonString(text, &buffer_);
    }

    const std::vector<std::string>& namesOf(const Layout& layout) {
        auto found = std::find_if(layouts_.begin(), layouts_.end(),
                                  [&](const NamedLayout& known) { return known.layout == &layout; });
        if (found == layouts_.end()) {
            layouts_.push_back({&layout, fieldNames(layout)});
            std::ranges::transform(layouts_.back().names, layouts_.back().names.begin(), asKey);
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
    bool isFirst_ = true;  // nothing stands in the object yet
    bool isTimeKnown_ = false;
    std::int64_t time_ = 0;
    std::string timeKeys_;
    std::string scratch_;
    std::vector<NamedLayout> layouts_;
};

}  // namespace

MessagePrinter ndjsonPrinter(const PrinterOptions& options) {
    // Shared: a std::function must be able to be copied, and the buffer cannot.
    return [printer = std::make_shared<NdjsonPrinter>(options)](const MessageView& message, std::string* out) {
        printer->print(message, out);
    };
}

}  // namespace tabulo::tool
