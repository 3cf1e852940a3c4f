#include "tests/api/random_stored.h"

#include <array>
#include <cmath>
#include <limits>

namespace tabulo::test {
namespace {

using namespace std::string_literals;

const std::vector<double> DOUBLES = {std::nan(""), HUGE_VAL, -HUGE_VAL, 0.0, -0.0, 1e300, -1e300,
                                     0x1p63,       -0x1p63,  0x1p53,    0.5, -0.5, 1.9,   -1.9};
const std::vector<std::int64_t> INTEGERS = {std::numeric_limits<std::int64_t>::max(),
                                            std::numeric_limits<std::int64_t>::min(),
                                            std::numeric_limits<std::int64_t>::max() - 1,
                                            (std::int64_t{1} << 53) + 1,
                                            0,
                                            -1,
                                            1};
constexpr std::array<std::int32_t, 6> ID_BASES = {0, 536870911, 1073741823, 1342177279, 1610612735, 536870905};

StoredText randomText(Random& random, std::size_t place) {
    if (random.percent(20)) {
        return {};
    }
    if (random.percent(50)) {
        return "near-" + std::to_string(place / 4);
    }
    return random.of(someTexts());
}

Number randomNumber(Random& random, std::size_t place) {
    const std::int32_t kind = random.below(100);
    if (kind < 20) return {};
    if (kind < 55) return static_cast<std::int64_t>(place / 3) + random.below(3);
    if (kind < 85) return 0.5 * random.between(0, 5) + static_cast<double>(place / 3);
    if (kind < 93) return random.of(DOUBLES);
    return random.of(INTEGERS);
}

}  // namespace

const std::vector<std::string>& someTexts() {
    static const std::vector<std::string> texts = {"",          "a",        "A",      "ab",      "AB",      "aB",
                                                   "abc",       "b",        "B_",     "b_",      "_",       "Z",
                                                   "\x80",      "\xff\xfe", "\xe4",   "\xc4",    "a\x80",   "\x01",
                                                   "in\0side"s, "EURUSD",   "eurusd", "order-1", "order-2", "ORDER-1"};
    return texts;
}

const std::vector<std::string>& someTypes() {
    static const std::vector<std::string> types = {"", "0", "8", "D", "d", "AE", "ABCDE", "ABCDF", "\x80", "z"};
    return types;
}

Layout randomLayout(Random& random) {
    std::vector<Layout> layouts = {
        {},
        {.texts = {"Symbol", "ClOrdID"}, .numbers = {"Price", "OrderQty"}},
        {.texts = {"A", "B", "A"}, .numbers = {"N", "", "N", "M"}, .summarisedTexts = 3},
        {.texts = {"A", ""}, .numbers = {"N"}, .summarisedTexts = 0},
        {.texts = std::vector<std::string>(12, "T"), .numbers = std::vector<std::string>(16, "N")},
        {.numbers = {"N"}, .summarisedTexts = 0, .builtInTexts = 2},
        {.numbers = {"N"}, .summarisedTexts = 1, .builtInTexts = 3},
    };
    Layout layout = random.of(layouts);
    layout.messagesPerBlock = random.between(1, 7);
    return layout;
}

StoredMessage randomMessage(Random& random, const StoredTable& table) {
    const Layout& layout = table.writer.layout();
    const std::size_t place = table.count();
    const std::int32_t before = place == 0 ? 0 : table.messages.back().uniformId;
    StoredMessage message{.uniformId = before + (random.percent(5) ? random.between(-4, 0) : random.between(0, 3)),
                          .seqNum = static_cast<std::int32_t>(place) + random.between(-2, 2),
                          .prevSeqNum = random.percent(80) ? 0 : random.between(-9, -1),
                          .id = random.percent(5) ? random.between(-3, -1)
                                                  : ID_BASES[static_cast<std::size_t>(random.below(6))] +
                                                        static_cast<std::int32_t>(place / 2) + random.below(2),
                          .time = static_cast<std::int64_t>(place) * 10 + random.between(-9, 9),
                          .type = random.of(someTypes()),
                          .possDup = random.percent(25),
                          .outOfSequence = random.percent(25),
                          .wire = randomText(random, place),
                          .nonMetadata = randomText(random, place)};
    if (layout.builtInTexts > 2) message.text0 = randomText(random, place);
    if (layout.builtInTexts > 3) message.text1 = randomText(random, place);
    for (std::size_t i = 0; i < layout.texts.size(); ++i) {
        message.texts.push_back(randomText(random, place));
    }
    for (std::size_t i = 0; i < layout.numbers.size(); ++i) {
        message.numbers.push_back(randomNumber(random, place));
    }
    return message;
}

}  // namespace tabulo::test
