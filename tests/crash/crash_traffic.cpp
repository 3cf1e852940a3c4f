#include "tests/crash/crash_traffic.h"

#include <algorithm>
#include <limits>

#include "messagetable/message_lookup.h"

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t IDS_PER_GENERATION = 1'000'000;
constexpr std::int64_t FIRST_TIME = 1'700'000'000'000;
constexpr std::size_t LARGE_TEXT = 70'000;
constexpr std::int64_t DROP_OF_VALUES = 37;  // every so many writes

// First ids of the classes, in the order in which their highest ids are kept.
constexpr std::array<std::int32_t, 5> CLASS_FIRST{536870911, 0, 1342177279, 1073741823, 1610612735};
constexpr int APP_TO_CLASS = 1;
constexpr int RESENT_CLASS = 4;

// One message's random numbers, one behind the other.
class Numbers {
  public:
    explicit Numbers(std::uint64_t start) : state_(start) {}
    std::uint64_t next() {
        state_ += 1;
        return mixed(state_, 0x5bd1e995);
    }
    std::int32_t below(std::int32_t end) { return static_cast<std::int32_t>(next() % static_cast<unsigned>(end)); }
    bool oneIn(std::int32_t count) { return below(count) == 0; }

  private:
    std::uint64_t state_;
};

MessageMetadata metadataOf(Numbers* numbers, std::int32_t generation, std::int32_t n) {
    MessageMetadata metadata;
    metadata.uniformId = generation * IDS_PER_GENERATION + n;
    metadata.seqNum = numbers->oneIn(5) ? -1 - numbers->below(1000) : n;
    metadata.prevSeqNum = metadata.seqNum > 0 && numbers->oneIn(6) ? -1 - numbers->below(1000) : 0;
    const std::int32_t messageClass = numbers->oneIn(2) ? APP_TO_CLASS : numbers->below(5);
    metadata.connMsgId =
        numbers->oneIn(20) ? -1 : CLASS_FIRST.at(static_cast<std::size_t>(messageClass)) + numbers->below(100'000);
    metadata.timestamp = FIRST_TIME + n;
    const std::array<const char*, 5> types{"D", "8", "0", "AB", "UABCD"};
    setMsgType(&metadata, types.at(static_cast<std::size_t>(numbers->below(5))));
    metadata.isPossDupFlag = numbers->oneIn(8) ? 1 : 0;
    metadata.isOutOfSequence = numbers->oneIn(8) ? 1 : 0;
    return metadata;
}

std::optional<std::string> textOf(Numbers* numbers) {
    switch (numbers->below(10)) {
        case 0:
            return std::nullopt;
        case 1:
            return withNul("");
        case 2: {  // any bytes, and no NUL at the end
            std::string bytes(static_cast<std::size_t>(1 + numbers->below(100)), '\0');
            std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(1 + numbers->below(255)); });
            return bytes;
        }
        case 3:  // larger than what a stream holds back
            return numbers->oneIn(4) ? std::string(static_cast<std::size_t>(3000 + numbers->below(6000)),
                                                   static_cast<char>('a' + numbers->below(26)))
                                     : withNul("8=FIX.4.4");
        default:
            return withNul("text " + std::to_string(numbers->below(1000)));
    }
}

NumericValue numberOf(Numbers* numbers) {
    switch (numbers->below(8)) {
        case 0:
            return {};
        case 1:
            return numericValue_ofDouble(std::numeric_limits<double>::quiet_NaN());
        case 2:
            return numericValue_ofDouble(-std::numeric_limits<double>::infinity());
        case 3:
        case 4:
            return numericValue_ofDouble(static_cast<double>(numbers->below(1000)) / 8 - 50);
        case 5:
            return numericValue_ofLong(std::numeric_limits<std::int64_t>::min());
        default:
            return numericValue_ofLong(numbers->below(1000) - 500);
    }
}

int classOf(std::int32_t id) {
    int found = -1;
    for (int i = 0; i < 5; ++i) {
        const std::int32_t first = CLASS_FIRST.at(static_cast<std::size_t>(i));
        if (id >= first && (found < 0 || first > CLASS_FIRST.at(static_cast<std::size_t>(found)))) {
            found = i;
        }
    }
    return found;
}

struct Lookups {
    std::array<std::int32_t, 5> highest = CLASS_FIRST;
    std::int32_t lastUniform = 0;
    std::int32_t firstPending = 0;
    std::int32_t lastPending = 0;
    std::int32_t lastGood = 0;
    std::int64_t lastGoodTime = 0;
};

Lookups lookupsOf(const std::vector<Message>& messages) {
    Lookups lookups;
    for (const Message& message : messages) {
        const MessageMetadata& data = message.metadata;
        const int messageClass = classOf(data.connMsgId);
        if (messageClass >= 0) {
            std::int32_t& highest = lookups.highest.at(static_cast<std::size_t>(messageClass));
            highest = std::max(highest, data.connMsgId);
        }
        lookups.lastUniform = data.uniformId;
        if (messageClass == APP_TO_CLASS && data.seqNum > 0 && data.prevSeqNum != 0 && data.isPossDupFlag == 0) {
            lookups.firstPending = data.prevSeqNum;
        }
        if (messageClass == APP_TO_CLASS && data.seqNum < 0 && data.isOutOfSequence == 0) {
            lookups.lastPending = data.seqNum;
        }
        if (messageClass != RESENT_CLASS && data.seqNum > 0 && data.isOutOfSequence == 0) {
            lookups.lastGood = data.seqNum;
            lookups.lastGoodTime = data.timestamp;
        }
    }
    return lookups;
}

std::string sentence(const std::string& what, std::int64_t answer, std::int64_t expected, ErrorCode code) {
    if (code == NO_ERROR && answer == expected) {
        return "";
    }
    return "the lookup of " + what + " answers " + std::to_string(answer) + " instead of " + std::to_string(expected) +
           " with code " + std::to_string(code) + "; ";
}

}  // namespace

std::uint64_t mixed(std::uint64_t seed, std::uint64_t number) {
    std::uint64_t x = seed * 0x9e3779b97f4a7c15U + number + 0x632be59bd9b4e019U;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9U;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebU;
    return x ^ (x >> 31);
}

Message CrashTraffic::message(std::int32_t generation, std::int32_t n) const {
    Numbers numbers(mixed(seed, static_cast<std::uint64_t>(generation) << 32 | static_cast<std::uint32_t>(n)));
    Message message;
    message.metadata = metadataOf(&numbers, generation, n);
    const bool bare = numbers.oneIn(6);
    message.strings.resize(static_cast<std::size_t>(shape.stringFieldCount()));
    message.numbers.resize(static_cast<std::size_t>(shape.numericFieldCount()));
    if (bare) {
        return message;
    }
    std::generate(message.strings.begin(), message.strings.end(), [&] { return textOf(&numbers); });
    std::generate(message.numbers.begin(), message.numbers.end(), [&] { return numberOf(&numbers); });
    if (withLargeTexts && numbers.oneIn(10)) {
        message.strings.back() = std::string(LARGE_TEXT, static_cast<char>('a' + n % 26));
    }
    return message;
}

ErrorCode storeInAnyForm(MessageTable* table, const Message& message, std::uint64_t number) {
    if (mixed(number, 1) % 3 == 0) {
        const Bytes frame = frameOf(message);
        return mt_writeRawMessage(table, frame.data(), static_cast<std::int32_t>(frame.size()));
    }
    return writeMessage(table, message);
}

std::string lookupProblem(MessageTable* table, const std::vector<Message>& messages) {
    const Lookups expected = lookupsOf(messages);
    std::string problem;
    for (std::size_t i = 0; i < CLASS_FIRST.size(); ++i) {
        std::int32_t id = -7;
        const ErrorCode code = mt_getLastMessageId(table, CLASS_FIRST.at(i), &id);
        problem += sentence("the last id of class " + std::to_string(i), id, expected.highest.at(i), code);
    }
    std::int32_t number = -7;
    ErrorCode code = mt_getLastUniformMessageId(table, &number);
    problem += sentence("the last uniform id", number, expected.lastUniform, code);
    std::int64_t time = -7;
    code = mt_getLastGoodMsgSeqNum(table, 0, &number, &time);
    problem += sentence("the last good sequence number", number, expected.lastGood, code);
    problem += sentence("the last good sequence number's time", time, expected.lastGoodTime, code);
    code = mt_getFirstPendingMsgSeqNum(table, 0, &number);
    problem += sentence("the first pending sequence number", number, expected.firstPending - 1, code);
    code = mt_getLastPendingMsgSeqNum(table, 0, &number);
    problem += sentence("the last pending sequence number", number, expected.lastPending, code);
    return problem;
}

std::string fileProblem(const Bytes& actual, const Bytes& expected) {
    if (actual == expected) {
        return "";
    }
    const auto place = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end()).first;
    return "the file has " + std::to_string(actual.size()) + " bytes instead of " + std::to_string(expected.size()) +
           " and differs from offset " + std::to_string(place - actual.begin()) + " on";
}

SessionTablePtr createSession(const std::string& root) {
    KSVTboTableConfig* config = tableConfig_create("session", 1);
    (void)tableConfig_setPath(config, 0, root.c_str());
    return SessionTablePtr(si_create(config));
}

SessionValues sessionValues(std::int64_t number) {
    SessionValues values{};
    if (number % DROP_OF_VALUES != 0) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            values.at(i) = static_cast<std::int64_t>(mixed(static_cast<std::uint64_t>(number), i));
        }
    }
    return values;
}

ErrorCode storeSession(SessionInfoTable* table, std::int64_t number) {
    if (number % DROP_OF_VALUES == 0) {
        return si_drop(table);
    }
    const SessionValues values = sessionValues(number);
    return si_write(table, static_cast<std::int32_t>(values.size()), SESSION_TAGS.data(), values.data());
}

}  // namespace tabulo::internal::test
