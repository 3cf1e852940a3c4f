#include "tool/serve/message_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include "tabulo/columns.h"
#include "tool/console.h"
#include "tool/message_format.h"
#include "tool/order_ids.h"
#include "tool/serve/message_way.h"
#include "tool/serve/question.h"
#include "tool/serve/request_words.h"
#include "tool/text_bytes.h"

namespace tabulo::tool::serve {

namespace {

// What a row of a list shows of a wire message, in columns.
constexpr std::size_t SHOWN = 300;
// Behind which a value, or a field of the table, is cut.
constexpr std::size_t LONGEST_VALUE = 4096;
constexpr std::size_t LONGEST_FIELD = 200;
constexpr std::size_t LONGEST_WIRE = std::size_t{64} * 1024;
// Fields of one message.
constexpr std::size_t MOST_TAGS = 2000;

// The beginning of a text as eyes may see it.
std::string shownBeginning(std::string_view text, std::size_t columns) {
    std::string shown;
    appendShown(text.substr(0, std::min(text.size(), 4 * columns)), &shown, columns);
    return shown;
}

void appendNumberValue(const Number& number, Json* json) {
    if (std::holds_alternative<std::monostate>(number)) {
        json->null();
    } else if (isNanOrInfinite(number)) {
        std::string text;
        appendNumber(number, &text);
        json->text(text);
    } else if (const auto* whole = std::get_if<std::int64_t>(&number)) {
        json->number(*whole);
    } else {
        json->number(std::get<double>(number));
    }
}

void appendText(std::string_view name, const Text& text, std::size_t longest, Json* json) {
    json->key(name);
    text.has_value()
        ? json->text(text->size() <= longest && isUtf8(*text) ? std::string(*text) : shownBeginning(*text, longest))
        : json->null();
}

void appendFields(const MessageView& message, Json* json) {
    const std::vector<std::string> names = fieldNames(message.layout());
    json->key("fields").begin();
    for (std::size_t i = 0; i < message.textCount(); ++i) {
        appendText(names[i], message.text(i), LONGEST_FIELD, json);
    }
    for (std::size_t i = 0; i < message.numberCount(); ++i) {
        json->key(names[message.textCount() + i]);
        appendNumberValue(message.number(i), json);
    }
    json->end();
}

void appendTags(std::string_view wire, Json* json) {
    const FixDictionary& dictionary = FixDictionary::builtIn();
    json->key("tags").beginList();
    FixFields fields(wire);
    FixField field;
    for (std::size_t count = 0; count < MOST_TAGS && fields.next(&field); ++count) {
        const bool isLong = field.value.size() > LONGEST_VALUE;
        json->begin().key("tag").number(std::int64_t{field.tag});
        json->key("name").text(dictionary.tagName(field.tag));
        json->key("value").text(isLong || !isUtf8(field.value) ? shownBeginning(field.value, LONGEST_VALUE)
                                                               : std::string(field.value));
        if (isLong) {
            json->key("bytes").number(static_cast<std::int64_t>(field.value.size()));
        }
        json->key("valueName")
            .text(isLong            ? ""
                  : field.tag == 35 ? std::string(dictionary.messageName(field.value))
                                    : dictionary.valueName(field.tag, field.value));
        json->end();
    }
    json->endList();
}

void appendOrderIds(const MessageView& message, Json* json) {
    OrderIdsOfMessage ids;
    ids.look(message, OrderIdFields(message.layout()));
    std::vector<std::string_view> told;
    json->key("orderIds").beginList();
    for (const OrderId& id : ids.ids()) {
        const bool isNew = std::find(told.begin(), told.end(), id.value) == told.end();
        if (isNew && id.value.size() <= LONGEST_FIELD && isUtf8(id.value)) {
            told.push_back(id.value);
            json->text(id.value);
        }
    }
    json->endList();
}

}  // namespace

std::optional<bool> wentOut(const MessageView& message) noexcept {
    const auto messageClass = message.messageClass();
    return messageClass.has_value() ? std::optional(!isReceived(*messageClass)) : std::nullopt;
}

void appendMessage(const MessageView& message, const TableSight& table, Json* json) {
    json->key("table").text(table.id).key("at").text(placeText(message.position()));
    json->key("t").time(message.time(), table.unit).key("uid").number(std::int64_t{message.uniformId()});
    json->key("seq").number(std::int64_t{message.seqNum()});
    json->key("prevSeq").number(std::int64_t{message.prevSeqNum()}).key("id").number(std::int64_t{message.id()});
    const auto messageClass = message.messageClass();
    json->key("class");
    messageClass.has_value() ? json->text(className(*messageClass)) : json->null();
    json->key("time").text(isoTime(message.time(), table.unit));
    json->key("timeRaw").text(std::to_string(message.time()));
    json->key("type").text(message.type()).key("typeName").text(FixDictionary::builtIn().messageName(message.type()));
    json->key("possDup").flag(message.possDup()).key("outOfSequence").flag(message.outOfSequence());
    const std::optional<bool> sent = wentOut(message);
    json->key("sent");
    sent.has_value() ? json->flag(*sent) : json->null();
    appendFields(message, json);
    const std::string_view wire = message.wire().value_or("");
    json->key("shown")
        .text(shownBeginning(wire, SHOWN))
        .key("wireBytes")
        .number(static_cast<std::int64_t>(wire.size()));
}

void appendWholeMessage(const MessageView& message, const TableSight& table, Json* json) {
    appendMessage(message, table, json);
    const std::string_view wire = message.wire().value_or("");
    appendTags(wire, json);
    appendText("text0", message.text0(), LONGEST_VALUE, json);
    appendText("text1", message.text1(), LONGEST_VALUE, json);
    appendText("nonMetadata", message.nonMetadata(), LONGEST_VALUE, json);
    std::string base64;
    appendBase64(wire.substr(0, LONGEST_WIRE), &base64);
    json->key("wire").text(base64).key("json");
    if (message.frame().size() > LONGEST_WIRE) {
        json->null();
    } else {
        Console words([](std::string_view) {}, {});
        TimeOptions unit;
        unit.unit = table.unit.has_value() ? timeUnitName(*table.unit) : "";
        const Times times(unit, message.time(), words);
        PrinterOptions options;
        options.times = &times;
        std::string line;
        makePrinter(MessageFormat::ndjson, options)(message, &line);
        json->text(line);
    }
    json->key("command").text(
        fmt::format("tabulo cat --uid {} {}", message.uniformId(), shellWord(table.path.string())));
    appendOrderIds(message, json);
}

}  // namespace tabulo::tool::serve
