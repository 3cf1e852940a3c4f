// Stores recorded FIX messages in a table, line by line as they come, for tests that look at tables from outside.
//
//   recorded_writer <table> [block=N] < lines
//
// A line is that of a recorded session: "20261120-19:24:41.250507 OUT 8=FIX.4.4...", with any bytes but LF in the
// message. Class, sequence number, type and fields are those that the message tells; what it does not tell is absent.
// Each message is stored before the next line is read. At the end it prints how many.
#include <charconv>
#include <cstdio>
#include <ctime>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tabulo/fix.h"
#include "tabulo/writer.h"

namespace {

using namespace tabulo;

std::optional<std::int32_t> numberOf(std::optional<std::string_view> text) {
    std::int32_t number = 0;
    if (!text.has_value() || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc()) {
        return std::nullopt;
    }
    return number;
}

Number doubleOf(std::optional<std::string_view> text) {
    double number = 0;
    if (!text.has_value() || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc()) {
        return {};
    }
    return number;
}

// Microseconds since 1970 of "20261120-19:24:41.250507".
std::int64_t timeOf(const std::string& text) {
    struct tm parts {};
    const char* rest = ::strptime(text.c_str(), "%Y%m%d-%H:%M:%S", &parts);
    if (rest == nullptr || *rest != '.') {
        throw std::runtime_error("a line does not begin with a time: " + text);
    }
    return std::int64_t{::timegm(&parts)} * 1000000 + numberOf(std::string_view(rest + 1, 6)).value_or(0);
}

bool isAdmin(std::string_view type) {
    return type.size() == 1 && std::string_view("A012345").find(type[0]) != std::string_view::npos;
}

MessageClass classFor(bool isOut, std::string_view type, bool isAgain) {
    if (isOut && isAgain) {
        return MessageClass::resent;
    }
    return isAdmin(type) ? (isOut ? MessageClass::adminTo : MessageClass::adminFrom)
                         : (isOut ? MessageClass::appTo : MessageClass::appFrom);
}

void store(std::istream& lines, Writer& writer) {
    std::int32_t count = 0;
    std::string line;
    while (std::getline(lines, line)) {
        const std::size_t blank = line.find(' ', 25);
        if (blank == std::string::npos) {
            throw std::runtime_error("a line has no message: " + line);
        }
        const std::string_view wire = std::string_view(line).substr(blank + 1);
        Message message;
        message.uniformId = ++count;
        message.time = timeOf(line.substr(0, 24));
        message.type = fixValue(wire, 35).value_or("").substr(0, 5);
        message.seqNum = numberOf(fixValue(wire, 34)).value_or(0);
        message.possDup = fixValue(wire, 43) == "Y";
        message.id = firstId(classFor(line.substr(25, blank - 25) == "OUT", message.type, message.possDup)) + count;
        message.texts = {fixValue(wire, 11), fixValue(wire, 55), fixValue(wire, 1)};
        message.numbers = {doubleOf(fixValue(wire, 38)), doubleOf(fixValue(wire, 44))};
        message.wire = wire;
        writer.append(message);
    }
    std::printf("%d messages\n", count);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 2) {
            throw std::runtime_error("usage: recorded_writer <table> [block=N] < lines");
        }
        Layout layout{.texts = {"ClOrdID", "Symbol", "Account"}, .numbers = {"OrderQty", "Price"}};
        if (argc > 2 && std::string_view(argv[2]).starts_with("block=")) {
            layout.messagesPerBlock = numberOf(std::string_view(argv[2]).substr(6)).value_or(1000);
        }
        Writer writer = Writer::create(argv[1], layout);
        store(std::cin, writer);
        writer.close();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "recorded_writer: %s\n", error.what());
        return 1;
    }
    return 0;
}
