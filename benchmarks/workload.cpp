#include "benchmarks/workload.h"

#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

namespace tabulo::internal::bench {

namespace {

constexpr std::int64_t START_OF_DAY = 1'705'276'800'000;  // a Monday, 00:00 UTC, in milliseconds
constexpr std::int64_t FIRST_ORDER = START_OF_DAY + 8 * 3'600'000;
constexpr std::int64_t ORDER_INTERVAL = 5;  // milliseconds, the most that 10 million orders leave of a day
constexpr std::uint64_t IDS = 1;            // streams of random numbers
constexpr std::uint64_t FIELDS = 2;
constexpr std::uint64_t ABSENT_IDS = 3;
constexpr std::size_t CL_ORD_ID_LENGTH = 12;
constexpr std::size_t BODY_START = 16;       // "8=FIX.4.4|9=nnn|"
constexpr std::size_t LARGEST_TEXTS = 1024;  // of one order, together
constexpr char SOH = '\x01';

std::uint64_t random(std::uint64_t stream, std::int32_t number) {
    std::uint64_t z = (stream << 32U) + static_cast<std::uint32_t>(number) + 0x9E3779B97F4A7C15U;
    z *= 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
}

// Appends texts to a fixed buffer that is known to be large enough.
struct Writer {
    char* at;

    Writer& operator<<(std::string_view text) {
        std::memcpy(at, text.data(), text.size());
        at += text.size();
        return *this;
    }
    Writer& operator<<(char character) {
        *at++ = character;
        return *this;
    }
    Writer& number(std::int64_t value) {
        at = std::to_chars(at, at + 20, value).ptr;
        return *this;
    }
    Writer& digits(std::int64_t value, int count) {
        for (int i = count - 1; i >= 0; --i, value /= 10) {
            at[i] = static_cast<char>('0' + value % 10);
        }
        at += count;
        return *this;
    }
    Writer& price(std::int64_t cents) {
        number(cents / 100) << '.';
        return digits(cents % 100, 2);
    }
    Writer& tag(std::string_view name) { return *this << name << '='; }
    Writer& field(std::string_view name, std::string_view text) { return tag(name) << text << SOH; }
    // 20240115-08:00:00.000
    Writer& time(std::int64_t milliseconds) {
        const std::int64_t day = milliseconds - START_OF_DAY;
        *this << "20240115-";
        digits(day / 3'600'000, 2) << ':';
        digits(day / 60'000 % 60, 2) << ':';
        digits(day / 1000 % 60, 2) << '.';
        return digits(day % 1000, 3);
    }
};

void putId(Writer* writer, std::uint64_t bits) {
    for (std::size_t i = 0; i < CL_ORD_ID_LENGTH; ++i, bits /= 36) {
        const auto digit = static_cast<int>(bits % 36);
        *writer << static_cast<char>(digit < 10 ? '0' + digit : 'A' + digit - 10);
    }
}

std::string idOf(std::uint64_t bits) {
    std::array<char, CL_ORD_ID_LENGTH> text{};
    Writer writer{text.data()};
    putId(&writer, bits);
    return {text.data(), text.size()};
}

// What the random bits of an order decide.
struct Draw {
    std::int64_t symbol;
    std::int64_t account;
    std::int64_t quantity;
    std::int64_t cents;
    std::int64_t gateway;
    std::size_t note;  // length of the free text
    bool buys;
};

Draw draw(std::int32_t number) {
    std::uint64_t bits = random(FIELDS, number);
    const auto take = [&bits](std::uint64_t count) {
        const std::uint64_t taken = bits % count;
        bits /= count;
        return static_cast<std::int64_t>(taken);
    };
    Draw drawn{};
    drawn.symbol = take(500);
    drawn.account = take(50);
    drawn.quantity = 100 * (1 + take(200));
    drawn.cents = 1000 + take(50'000);
    drawn.gateway = take(8);
    drawn.note = static_cast<std::size_t>(take(40));
    drawn.buys = take(2) == 0;
    return drawn;
}

constexpr std::string_view NOTE = "care order, work over the day, limit of 10 percent of the volume";

void putBody(Writer* writer, std::int32_t number, const Draw& drawn, std::string_view id, std::string_view symbol,
             std::string_view account) {
    Writer& w = *writer;
    const std::int64_t time = order_time(number);
    w.field("35", "D").field("49", "OMS-PRIMARY-01").field("56", "EXCHANGE-GATEWAY");
    w.tag("34").number(number) << SOH;
    w.tag("52").time(time) << SOH;
    w.field("11", id).field("1", account).field("453", "2");
    w.field("448", "FIRM0042").field("447", "D").field("452", "1");
    w.field("448", "TRADER-0117").field("447", "D").field("452", "11");
    w.field("21", "1").field("18", "M").field("55", symbol).field("48", "US4581401001").field("22", "4");
    w.field("207", "XNAS").field("54", drawn.buys ? "1" : "2");
    w.tag("60").time(time) << SOH;
    w.tag("38").number(drawn.quantity) << SOH;
    w.field("40", "2");
    w.tag("44").price(drawn.cents) << SOH;
    w.field("15", "USD").field("59", "0").field("47", "A").field("528", "A");
    w.field("58", NOTE.substr(0, 20 + drawn.note));
}

std::string_view putWire(Writer* writer, std::int32_t number, const Draw& drawn, std::string_view id,
                         std::string_view symbol, std::string_view account) {
    const char* start = writer->at;
    writer->field("8", "FIX.4.4").tag("9");
    char* length = writer->at;
    *writer << "000" << SOH;
    putBody(writer, number, drawn, id, symbol, account);
    Writer{length}.digits(writer->at - start - static_cast<std::ptrdiff_t>(BODY_START), 3);
    unsigned sum = 0;
    for (const char* at = start; at != writer->at; ++at) {
        sum += static_cast<unsigned char>(*at);
    }
    writer->tag("10").digits(sum % 256, 3) << SOH;
    return {start, static_cast<std::size_t>(writer->at - start)};
}

std::string_view putOther(Writer* writer, std::int32_t number, const Draw& drawn) {
    const char* start = writer->at;
    Writer& w = *writer;
    (w.tag("ClientIP") << "10.20.30.").number(drawn.account) << SOH;
    w.field("Desk", "EQ-CASH-LONDON").field("Strategy", "VWAP");
    (w.tag("ParentOrder") << 'P').digits(number / 50, 9) << SOH;
    w.field("RiskCheck", "passed").field("RiskLimit", "2500000.00");
    w.tag("ReceivedAt").time(order_time(number) - 1) << SOH;
    w.field("Route", "SMART-1").field("Region", "EMEA").field("Version", "7.4.1");
    w.tag("Correlation").digits(static_cast<std::int64_t>(random(FIELDS, number) % 1'000'000'000'000), 12) << SOH;
    return {start, static_cast<std::size_t>(writer->at - start)};
}

}  // namespace

std::int64_t order_time(std::int32_t number) {
    return FIRST_ORDER + ORDER_INTERVAL * number + static_cast<std::int64_t>(random(FIELDS, number) % ORDER_INTERVAL);
}

std::string order_clOrdId(std::int32_t number) {
    return idOf(random(IDS, number));
}

std::string order_symbol(std::int32_t number) {
    std::array<char, 8> text{};
    Writer writer{text.data()};
    (writer << "SYM").digits(draw(number).symbol, 3);
    return text.data();
}

std::string order_absentClOrdId(std::int32_t number) {
    return idOf(random(ABSENT_IDS, number));
}

void order_make(OrderRecord* record, std::int32_t number) {
    const Draw drawn = draw(number);
    test::Message& message = record->message;
    MessageMetadata& metadata = message.metadata;
    metadata = MessageMetadata{};
    metadata.uniformId = number;
    metadata.seqNum = number;
    metadata.connMsgId = number;
    metadata.timestamp = order_time(number);
    metadata.msgType[0] = 'D';

    std::array<char, LARGEST_TEXTS> text;
    Writer writer{text.data()};
    message.strings.resize(ORDER_STRINGS);
    // What was written since `start`, which becomes a field with its NUL.
    const auto field = [&](OrderSlot slot, const char* start) {
        const std::string_view written(start, static_cast<std::size_t>(writer.at - start));
        writer << '\0';
        std::optional<std::string>& owned = message.strings[slot];
        (owned ? *owned : owned.emplace()).assign(start, static_cast<std::size_t>(writer.at - start));
        return written;
    };
    const char* start = writer.at;
    writer << "OMS-1";
    field(SESSION, start);
    start = writer.at;
    (writer << "GW-0").number(drawn.gateway);
    field(GATEWAY, start);
    start = writer.at;
    putId(&writer, random(IDS, number));
    const std::string_view id = field(CL_ORD_ID, start);
    start = writer.at;
    (writer << "SYM").digits(drawn.symbol, 3);
    const std::string_view symbol = field(SYMBOL, start);
    start = writer.at;
    (writer << "ACC-").digits(drawn.account, 3);
    const std::string_view account = field(ACCOUNT, start);
    start = putWire(&writer, number, drawn, id, symbol, account).data();
    field(WIRE, start);
    start = putOther(&writer, number, drawn).data();
    field(OTHER, start);

    message.numbers = {numericValue_ofLong(drawn.quantity),
                       numericValue_ofDouble(static_cast<double>(drawn.cents) / 100)};
    record->fields.emplace(message);
}

bool order_equals(const Order& left, const Order& right) {
    const MessageMetadata& l = left.metadata;
    const MessageMetadata& r = right.metadata;
    bool equal = l.uniformId == r.uniformId && l.seqNum == r.seqNum && l.prevSeqNum == r.prevSeqNum &&
                 l.connMsgId == r.connMsgId && l.timestamp == r.timestamp && l.msgType == r.msgType &&
                 l.isPossDupFlag == r.isPossDupFlag && l.isOutOfSequence == r.isOutOfSequence;
    for (std::size_t i = 0; i < ORDER_NUMBERS; ++i) {
        equal = equal && left.numbers[i].type == right.numbers[i].type &&
                left.numbers[i].longValue == right.numbers[i].longValue;
    }
    for (std::size_t i = 0; i < ORDER_STRINGS; ++i) {
        equal = equal && stringField_bytes(left.texts[i]) == stringField_bytes(right.texts[i]);
    }
    return equal;
}

}  // namespace tabulo::internal::bench
