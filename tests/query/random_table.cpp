#include "tests/query/random_table.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace tabulo::internal::test {

namespace {

using namespace std::string_literals;

// What one field of a block looks like; the theme changes from block to block.
enum class NumberTheme { absent, longs, doubles, mixed, odd };

const std::vector<double>& oddDoubles() {
    static const std::vector<double> odd = {std::nan(""),
                                            std::numeric_limits<double>::infinity(),
                                            -std::numeric_limits<double>::infinity(),
                                            0.0,
                                            -0.0,
                                            1e300,
                                            -1e300,
                                            9223372036854775808.0,
                                            -9223372036854775808.0,
                                            std::numeric_limits<double>::denorm_min(),
                                            0.5,
                                            -0.5};
    return odd;
}

const std::vector<std::int64_t>& oddLongs() {
    static const std::vector<std::int64_t> odd = {std::numeric_limits<std::int64_t>::max(),
                                                  std::numeric_limits<std::int64_t>::min(),
                                                  std::numeric_limits<std::int64_t>::max() - 1,
                                                  (std::int64_t{1} << 53) + 1,
                                                  0,
                                                  -1,
                                                  1};
    return odd;
}

// Stored texts, with their NULs or without.
const std::vector<std::string>& words() {
    static const std::vector<std::string> all = {
        "\0"s,        "a\0"s,       "A\0"s,       "ab\0"s,       "AB\0"s,      "aB\0"s,       "abc\0"s,    "b\0"s,
        "B_\0"s,      "b_\0"s,      "_\0"s,       "Z\0"s,        "\x80\0"s,    "\xff\xfe\0"s, "\xe4\0"s,   "\xc4\0"s,
        "a\x80\0"s,   "noNul"s,     "n"s,         "in\0side\0"s, "\0front\0"s, "\0\0"s,       "EURUSD\0"s, "eurusd\0"s,
        "order-1\0"s, "order-2\0"s, "order-3\0"s, "order-10\0"s, "ORDER-1\0"s, "8=FIX\x01\0"s};
    return all;
}

const std::vector<std::string>& msgTypes() {
    static const std::vector<std::string> all = {"", "0", "8", "D", "d", "AE", "ABCDE", "ABCDF", "\x80", "z"};
    return all;
}

NumericValue randomNumber(Random* random, NumberTheme theme, std::int32_t center) {
    if (random->percent(theme == NumberTheme::absent ? 95 : 15)) {
        return {};
    }
    const std::int32_t whole = random->between(center - 5, center + 5);
    const NumericValue real = numericValue_ofDouble(whole + 0.25 * random->below(4));
    switch (theme) {
        case NumberTheme::absent:
        case NumberTheme::longs:
            return numericValue_ofLong(whole);
        case NumberTheme::doubles:
            return real;
        case NumberTheme::mixed:
            return random->percent(50) ? numericValue_ofLong(whole) : real;
        case NumberTheme::odd:
            return random->percent(50) ? numericValue_ofDouble(random->of(oddDoubles()))
                                       : numericValue_ofLong(random->of(oddLongs()));
    }
    return {};
}

// An id of a random class, or of none, near one of its ends or in the middle.
std::int32_t randomId(Random* random, std::int32_t center) {
    static const std::vector<std::int32_t> firsts = {536870911, 0, 1342177279, 1073741823, 1610612735};
    if (random->percent(4)) {
        return -random->between(1, 20);
    }
    if (random->percent(4)) {
        return random->percent(50) ? std::numeric_limits<std::int32_t>::max() : random->of(firsts);
    }
    return random->of(firsts) + std::max(0, center + random->between(-6, 6));
}

class Writer {
  public:
    Writer(Random* random, const MessageTableLayout& layout) : random_(random), layout_(layout) {}

    void startBlock(std::int32_t block) {
        center_ = 20 * block + random_->between(-30, 30);
        time_ += random_->between(0, 5);
        themes_.clear();
        texts_.clear();
        for (std::int32_t i = 0; i < layout_.numericFieldCount; ++i) {
            themes_.push_back(static_cast<NumberTheme>(random_->below(random_->percent(25) ? 5 : 3)));
        }
        for (std::int32_t i = 0; i < layout_.stringFieldCount; ++i) {
            std::vector<std::optional<std::string>> few = {std::nullopt};
            for (std::int32_t k = random_->between(0, 5); k > 0; --k) {
                few.emplace_back(random_->of(words()));
            }
            texts_.push_back(few);
        }
        oneClass_ = random_->percent(30) ? random_->below(5) : -1;
    }

    Message message() {
        Message message;
        MessageMetadata& metadata = message.metadata;
        time_ += random_->between(-1, 3);
        metadata.uniformId = static_cast<std::int32_t>(time_) + random_->between(-2, 2);
        metadata.seqNum = center_ + random_->between(-8, 8);
        metadata.prevSeqNum = random_->between(-3, 3);
        metadata.connMsgId = randomId(random_, center_);
        while (oneClass_ >= 0 && classifyConnMsgId(metadata.connMsgId) != oneClass_) {
            metadata.connMsgId = randomId(random_, center_);
        }
        metadata.timestamp = time_;
        setMsgType(&metadata, random_->of(msgTypes()));
        metadata.isPossDupFlag = static_cast<std::uint8_t>(random_->percent(30) ? 1 << random_->below(8) : 0);
        metadata.isOutOfSequence = static_cast<std::uint8_t>(random_->percent(30) ? 1 << random_->below(8) : 0);
        for (const auto& few : texts_) {
            message.strings.push_back(random_->of(few));
        }
        for (const NumberTheme theme : themes_) {
            message.numbers.push_back(randomNumber(random_, theme, center_));
        }
        return message;
    }

  private:
    Random* random_;
    MessageTableLayout layout_;
    std::int32_t center_ = 0;
    std::int32_t oneClass_ = -1;
    std::int64_t time_ = -40;  // runs through 0
    std::vector<NumberTheme> themes_;
    std::vector<std::vector<std::optional<std::string>>> texts_;
};

class Asker {
  public:
    Asker(Random* random, const RandomMessages& all) : random_(random), all_(all) {}

    PlainQuery query() {
        PlainQuery query;
        query.inverted = random_->percent(10);
        for (std::int32_t k = random_->percent(45) ? 1 : random_->between(2, 4); k > 0; --k) {
            addCondition(&query);
        }
        return query;
    }

  private:
    const Message& someMessage() { return random_->of(all_.messages); }

    void addCondition(PlainQuery* query) {
        switch (random_->below(12)) {
            case 0:
                query->seqNums = {near(someMessage().metadata.seqNum), near(someMessage().metadata.seqNum)};
                break;
            case 1:
                query->ids = {near(someMessage().metadata.connMsgId), near(someMessage().metadata.connMsgId)};
                if (random_->percent(50)) {
                    query->ids->second = moved(query->ids->first, random_->below(40));
                }
                break;
            case 2:
                addIdsPerClass(query);
                break;
            case 3:
                addTimes(query);
                break;
            case 4:
                query->possDup = random_->percent(50);
                break;
            case 5:
                for (std::int32_t k = random_->between(1, 4); k > 0; --k) {
                    query->excludedMsgTypes.push_back(random_->percent(20) ? random_->of(words())
                                                                           : random_->of(msgTypes()));
                }
                break;
            case 6:
            case 7:
                query->doubles.push_back(
                    numericFilter<double>([this](std::int32_t field) { return someDouble(field); }));
                break;
            case 8:
            case 9:
                query->longs.push_back(
                    numericFilter<std::int64_t>([this](std::int32_t field) { return someLong(field); }));
                break;
            default:
                query->strings.push_back(stringFilter());
                break;
        }
    }

    // A number, one beside it, or now and then an extreme one.
    std::int32_t near(std::int32_t number) {
        static const std::vector<std::int32_t> extremes = {std::numeric_limits<std::int32_t>::min(),
                                                           std::numeric_limits<std::int32_t>::max(), 0, -1, 1};
        if (random_->percent(8)) {
            return random_->of(extremes);
        }
        return random_->percent(50) ? number : moved(number, random_->between(-2, 2));
    }

    // A sum that stays where it is when its type cannot hold it.
    template <typename Number>
    static Number moved(Number number, std::int32_t by) {
        if constexpr (std::is_floating_point_v<Number>) {
            return number + by;
        } else {
            Number sum = 0;
            return __builtin_add_overflow(number, by, &sum) ? number : sum;
        }
    }

    void addIdsPerClass(PlainQuery* query) {
        query->perClass = true;
        for (std::int32_t k = random_->between(0, 5); k > 0; --k) {
            query->startIds.push_back(near(someMessage().metadata.connMsgId));
        }
        for (std::int32_t k = random_->between(0, 5); k > 0; --k) {
            query->endIds.push_back(near(someMessage().metadata.connMsgId));
        }
    }

    void addTimes(PlainQuery* query) {
        if (random_->percent(70)) {
            query->startingTime = someMessage().metadata.timestamp + random_->between(-1, 1);
        }
        if (random_->percent(70)) {
            query->endingTime = someMessage().metadata.timestamp + random_->between(-1, 1);
        }
    }

    // Configured fields, pseudo fields, and indexes beyond both.
    std::int32_t numericField() {
        const std::int32_t configured = all_.layout.numericFieldCount;
        if (random_->percent(6)) {
            static const std::vector<std::int32_t> beyond = {-1, -100, std::numeric_limits<std::int32_t>::min(),
                                                             std::numeric_limits<std::int32_t>::max()};
            return random_->percent(50) ? configured + 7 + random_->below(3) : random_->of(beyond);
        }
        return configured > 0 && random_->percent(60) ? random_->below(configured) : configured + random_->below(7);
    }

    double someDouble(std::int32_t field) {
        if (random_->percent(10)) {
            return random_->of(oddDoubles());
        }
        const NumericValue value = stored(field);
        const double number = value.type == NumericType::doubleValue ? value.doubleValue
                              : value.type == NumericType::longValue ? static_cast<double>(value.longValue)
                                                                     : random_->between(-40, 140);
        return random_->percent(50) ? number : number + 0.25 * random_->between(-8, 8);
    }

    std::int64_t someLong(std::int32_t field) {
        if (random_->percent(10)) {
            return random_->of(oddLongs());
        }
        const NumericValue value = stored(field);
        if (value.type == NumericType::longValue) {
            return moved(value.longValue, random_->between(-2, 2));
        }
        if (value.type == NumericType::doubleValue && std::fabs(value.doubleValue) < 1e9) {
            return static_cast<std::int64_t>(value.doubleValue) + random_->between(-1, 1);
        }
        return random_->between(-40, 140);
    }

    // The field's value in some message.
    NumericValue stored(std::int32_t field) {
        const Message& message = someMessage();
        const MessageMetadata& metadata = message.metadata;
        if (field >= 0 && static_cast<std::size_t>(field) < message.numbers.size()) {
            return message.numbers[static_cast<std::size_t>(field)];
        }
        switch (std::int64_t{field} - all_.layout.numericFieldCount) {
            case 0:
                return numericValue_ofLong(metadata.uniformId);
            case 1:
                return numericValue_ofLong(metadata.seqNum);
            case 3:
                return numericValue_ofLong(metadata.connMsgId);
            case 4:
                return numericValue_ofLong(metadata.timestamp);
            default:
                return numericValue_ofLong(random_->between(-1, 2));
        }
    }

    template <typename Number, typename Some>
    PlainNumericFilter<Number> numericFilter(Some some) {
        PlainNumericFilter<Number> filter;
        filter.field = numericField();
        filter.includeNull = random_->percent(20);
        const std::int32_t kind = random_->below(10);
        for (std::int32_t k = kind < 6 ? random_->between(1, 4) : 0; k > 0; --k) {
            const Number minimum = some(filter.field);
            // Half of the intervals begin where another one ends.
            const bool touches = !filter.ranges.empty() && random_->percent(50);
            filter.ranges.emplace_back(touches ? filter.ranges.back().second : minimum, some(filter.field));
        }
        for (std::int32_t k = kind > 3 ? random_->between(0, 4) : 0; k > 0; --k) {
            filter.values.push_back(some(filter.field));
        }
        for (const auto& range : filter.ranges) {
            if (random_->percent(25)) {
                filter.values.push_back(random_->percent(50) ? range.first : range.second);
            }
        }
        // More entries than are looked at one by one.
        for (std::int32_t k = random_->percent(6) ? 100 : 0; k > 0; --k) {
            filter.values.push_back(moved(some(filter.field), random_->percent(50) ? 0 : k));
        }
        return filter;
    }

    std::string someText(std::int32_t field) {
        const Message& message = someMessage();
        if (field == all_.layout.stringFieldCount && random_->percent(90)) {
            return message.metadata.msgType.data();
        }
        if (field >= 0 && field < all_.layout.stringFieldCount && random_->percent(60)) {
            return message.strings[static_cast<std::size_t>(field)].value_or("absent");
        }
        return random_->of(words());
    }

    PlainStringFilter stringFilter() {
        PlainStringFilter filter;
        const std::int32_t slots = all_.layout.stringFieldCount;
        filter.field = random_->percent(6) ? (random_->percent(50) ? slots + 1 : -1) : random_->below(slots + 1);
        filter.includeNull = random_->percent(20);
        filter.ignoreCase = random_->percent(25);
        const std::int32_t kind = random_->below(10);
        for (std::int32_t k = kind < 7 ? random_->between(0, 5) : 0; k > 0; --k) {
            // A value is a C string: what a setter gets ends at the first NUL.
            filter.values.emplace_back(someText(filter.field).c_str());
        }
        for (std::int32_t k = kind > 5 ? random_->between(1, 3) : 0; k > 0; --k) {
            const auto bound = [&]() -> PlainStringFilter::Bound {
                return random_->percent(25) ? std::nullopt : PlainStringFilter::Bound(someText(filter.field).c_str());
            };
            filter.ranges.emplace_back(bound(), bound());
        }
        return filter;
    }

    Random* random_;
    const RandomMessages& all_;
};

}  // namespace

RandomMessages randomMessages(Random* random, bool blocksOfAThousand) {
    RandomMessages all;
    std::int32_t perBlock = random->between(4, random->percent(70) ? 16 : 50);
    std::int32_t blocks = random->between(2, 7);
    if (blocksOfAThousand) {
        perBlock = 1000;
        blocks = 2;
    }
    const std::int32_t widest = random->percent(10) ? 12 : 3;
    all.layout = layoutOf(perBlock, random->between(0, widest), random->between(0, random->percent(10) ? 16 : 4));
    if (random->percent(25)) {
        all.layout.summarisedStringFieldCount = random->between(0, 14);
    }
    all.closed = static_cast<std::size_t>(blocks * perBlock);
    const std::int32_t count = blocks * perBlock + random->below(std::min(perBlock, 200));
    Writer writer(random, all.layout);
    for (std::int32_t n = 0; n < count; ++n) {
        if (n % perBlock == 0) {
            writer.startBlock(n / perBlock);
        }
        all.messages.push_back(writer.message());
    }
    return all;
}

PlainQuery randomQuery(Random* random, const RandomMessages& all) {
    return Asker(random, all).query();
}

}  // namespace tabulo::internal::test
