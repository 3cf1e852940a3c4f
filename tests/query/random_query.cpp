#include "tests/query/random_query.h"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "tests/query/random_values.h"

namespace tabulo::internal::test {

namespace {

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
                    query->excludedMsgTypes.push_back(random_->percent(20) ? random_->of(oddTexts())
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
        return random_->of(oddTexts());
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

PlainQuery randomQuery(Random* random, const RandomMessages& all) {
    return Asker(random, all).query();
}

}  // namespace tabulo::internal::test
