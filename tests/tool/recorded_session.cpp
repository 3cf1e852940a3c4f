#include "tests/tool/recorded_session.h"

#include <array>
#include <charconv>
#include <chrono>
#include <fstream>
#include <stdexcept>

#include "tabulo/fix.h"
#include "tabulo/message.h"
#include "tabulo/writer.h"

namespace tabulo::tool::test {

namespace {

constexpr std::size_t TIME_LENGTH = 24;

int number(std::string_view text) {
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::int32_t tagNamed(std::string_view name) {
    return name == "ClOrdID" ? 11 : name == "OrigClOrdID" ? 41 : name == "OrderID" ? 37 : 55;
}

MessageClass classOf(bool isSent, std::string_view type, bool isPossDup) {
    const bool isAdmin = type.size() == 1 && std::string_view("012345A").find(type) != std::string_view::npos;
    if (!isSent) {
        return isAdmin ? MessageClass::adminFrom : MessageClass::appFrom;
    }
    return isPossDup ? MessageClass::resent : isAdmin ? MessageClass::adminTo : MessageClass::appTo;
}

}  // namespace

Layout plainLayout() {
    return {.texts = {}, .numbers = {}};
}

Layout orderIdsLayout() {
    return {.texts = {"ClOrdID", "OrigClOrdID", "OrderID"}, .numbers = {}, .messagesPerBlock = 200};
}

std::int64_t recordedTime(std::string_view text) {
    namespace c = std::chrono;
    const c::sys_days day = c::year(number(text.substr(0, 4))) / number(text.substr(4, 2)) / number(text.substr(6, 2));
    const auto time = day + c::hours(number(text.substr(9, 2))) + c::minutes(number(text.substr(12, 2))) +
                      c::seconds(number(text.substr(15, 2))) + c::microseconds(number(text.substr(18, 6)));
    return c::duration_cast<c::microseconds>(time.time_since_epoch()).count();
}

std::int32_t makeRecorded(const std::string& path, std::string_view name, const Layout& layout,
                          std::int32_t firstUniformId) {
    std::ifstream file(std::string(TABULO_SOURCE_DIRECTORY "/examples/data/") + std::string(name) + ".fixlog",
                       std::ios::binary);
    if (!file) {
        throw std::runtime_error("the recording is missing");
    }
    Writer writer = Writer::create(path, layout);
    std::array<std::int32_t, messageClassCount> ids{};
    std::int32_t uniformId = firstUniformId;
    for (std::string line; std::getline(file, line); ++uniformId) {
        const bool isSent = line.substr(TIME_LENGTH + 1, 3) == "OUT";
        const std::string_view wire = std::string_view(line).substr(TIME_LENGTH + (isSent ? 5 : 4));
        Message message;
        message.uniformId = uniformId;
        message.seqNum = number(fixValue(wire, 34).value());
        message.time = recordedTime(line);
        message.type = fixValue(wire, 35).value();
        message.possDup = fixValue(wire, 43) == "Y";
        const MessageClass messageClass = classOf(isSent, message.type, message.possDup);
        message.id = firstId(messageClass) + ids[static_cast<std::size_t>(messageClass)]++;
        for (const std::string& field : layout.texts) {
            message.texts.push_back(fixValue(wire, tagNamed(field)));
        }
        message.wire = wire;
        writer.append(message);
    }
    writer.close();
    return uniformId;
}

}  // namespace tabulo::tool::test
