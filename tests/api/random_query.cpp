#include "tests/api/random_query.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace tabulo::test {
namespace {

const StoredMessage* anyMessage(Random& random, const StoredTable& table) {
    return table.count() == 0 ? nullptr : &random.of(table.messages);
}

// A value of some message, or one nearby.
template <typename T, typename Field>
T nearby(Random& random, const StoredTable& table, Field StoredMessage::*field) {
    const StoredMessage* message = anyMessage(random, table);
    return static_cast<T>((message == nullptr ? T{} : static_cast<T>(message->*field)) + random.between(-1, 1));
}

// Two ends of a range, the first not above the second, either of which may be missing.
template <typename T, typename Make>
std::pair<std::optional<T>, std::optional<T>> randomEnds(Random& random, Make make) {
    std::optional<T> first = make();
    std::optional<T> last = make();
    if (*last < *first) {
        std::swap(first, last);
    }
    if (random.percent(25)) {
        first.reset();
    } else if (random.percent(30)) {
        last.reset();
    }
    return {first, last};
}

template <typename Model, typename Make>
void addRandomParts(Random& random, Model& model, Make make) {
    using Value = decltype(make());
    do {
        const std::int32_t kind = random.below(10);
        if (kind < 5) {
            for (std::int32_t n = random.between(1, 3); n > 0; --n) {
                model.values.push_back(make());
            }
        } else if (kind < 9) {
            const auto [low, high] = randomEnds<Value>(random, make);
            const bool between = low.has_value() && high.has_value();
            model.ranges.push_back({low, high, between || random.percent(50), between || random.percent(50)});
        } else {
            model.absent = true;
        }
    } while (random.percent(30));
}

ModelText randomTextCondition(Random& random, const std::function<StoredText()>& stored) {
    ModelText model;
    addRandomParts(random, model, [&]() -> std::string {
        const StoredText text = random.percent(70) ? stored() : StoredText(random.of(someTexts()));
        return text.value_or("a").substr(0, text.value_or("a").find('\0'));
    });
    // Nothing lies below the empty text.
    std::erase_if(model.ranges, [](const ModelText::Range& range) {
        return !range.low.has_value() && !range.includesHigh && range.high->empty();
    });
    if (model.values.empty() && model.ranges.empty()) {
        model.absent = true;
    }
    model.ignoresCase = model.ranges.empty() && random.percent(30);
    return model;
}

template <typename T>
T valueOf(const Number& number, Random& random) {
    if (const auto* stored = std::get_if<double>(&number); stored != nullptr && !std::isnan(*stored)) {
        if (std::is_same_v<T, double> || std::abs(*stored) < 1e18) {
            return static_cast<T>(*stored);
        }
    }
    if (const auto* stored = std::get_if<std::int64_t>(&number); stored != nullptr) {
        return static_cast<T>(*stored);
    }
    return static_cast<T>(random.between(-3, 12));
}

template <typename T>
ModelNumber<T> randomNumberCondition(Random& random, const std::function<Number()>& stored) {
    ModelNumber<T> model;
    addRandomParts(random, model, [&] { return valueOf<T>(stored(), random); });
    // Nothing lies outside the outermost values.
    constexpr T highest =
        std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity() : std::numeric_limits<T>::max();
    constexpr T lowest = std::numeric_limits<T>::has_infinity ? -highest : std::numeric_limits<T>::min();
    std::erase_if(model.ranges, [&](const typename ModelNumber<T>::Range& range) {
        const bool above = !range.high.has_value() && !range.includesLow && !(*range.low < highest);
        const bool below = !range.low.has_value() && !range.includesHigh && !(lowest < *range.high);
        return above || below;
    });
    if (model.values.empty() && model.ranges.empty()) {
        model.absent = true;
    }
    return model;
}

// The name of a field when a query can name it so.
std::optional<std::string> nameOf(const std::vector<std::string>& names, std::size_t field) {
    const std::string& name = names[field];
    return name.empty() || std::ranges::count(names, name) > 1 ? std::nullopt : std::optional(name);
}

struct Adding {
    Random& random;
    const StoredTable& table;
    ModelQuery& model;
    std::string* fault;

    void add(const std::string& words, const Condition& selects, const std::function<void(Query&)>& ask) {
        const std::string told = model.add(table, words, selects, ask);
        if (!told.empty() && fault->empty()) {
            *fault = told;
        }
    }
    std::size_t fieldOf(const std::vector<std::string>& names) {
        return static_cast<std::size_t>(random.below(static_cast<std::int32_t>(names.size())));
    }

    void addText();
    template <typename T>
    void addNumber();
    void addRange();
    void addIds();
    void addFlagOrTypes();
};

void Adding::addText() {
    const Layout& layout = table.writer.layout();
    const auto someText = [&](const auto& field) {
        const StoredMessage* message = anyMessage(random, table);
        return message == nullptr ? StoredText() : textOf(*message, field);
    };
    if (layout.texts.empty() || random.percent(40)) {
        std::vector<BuiltInText> fields = {BuiltInText::wire, BuiltInText::nonMetadata, BuiltInText::type};
        if (layout.builtInTexts > 2) fields.push_back(BuiltInText::text0);
        if (layout.builtInTexts > 3) fields.push_back(BuiltInText::text1);
        const BuiltInText field = random.of(fields);
        const bool isType = field == BuiltInText::type;
        ModelText text = randomTextCondition(random, [&] { return someText(field); });
        text.ignoresCase = text.ignoresCase && !isType;
        add(
            "built-in text " + std::to_string(static_cast<int>(field)) + ": " + text.words(),
            [=](const StoredMessage& message) { return text.selects(textOf(message, field), isType); },
            [&](Query& query) { query.text(field, text.condition()); });
        return;
    }
    const std::size_t field = fieldOf(layout.texts);
    const ModelText text = randomTextCondition(random, [&] { return someText(field); });
    const std::optional<std::string> name = random.percent(50) ? nameOf(layout.texts, field) : std::nullopt;
    add(
        "text " + std::to_string(field) + ": " + text.words(),
        [=](const StoredMessage& message) { return text.selects(textOf(message, field)); },
        [&](Query& query) {
            name.has_value() ? query.text(*name, text.condition()) : query.text(field, text.condition());
        });
}

template <typename T>
void Adding::addNumber() {
    const Layout& layout = table.writer.layout();
    const auto someNumber = [&](const auto& field) {
        const StoredMessage* message = anyMessage(random, table);
        return message == nullptr ? Number() : numberOf(*message, field);
    };
    const std::string kind = std::is_same_v<T, double> ? "double " : "integer ";
    if (layout.numbers.empty() || random.percent(40)) {
        const auto field = static_cast<BuiltInNumber>(random.below(7));
        const ModelNumber<T> number = randomNumberCondition<T>(random, [&] { return someNumber(field); });
        add(
            "built-in " + kind + std::to_string(static_cast<int>(field)) + ": " + number.words(),
            [=](const StoredMessage& message) { return number.selects(numberOf(message, field)); },
            [&](Query& query) { query.number(field, number.condition()); });
        return;
    }
    const std::size_t field = fieldOf(layout.numbers);
    const ModelNumber<T> number = randomNumberCondition<T>(random, [&] { return someNumber(field); });
    const std::optional<std::string> name = random.percent(50) ? nameOf(layout.numbers, field) : std::nullopt;
    add(
        kind + std::to_string(field) + ": " + number.words(),
        [=](const StoredMessage& message) { return number.selects(numberOf(message, field)); },
        [&](Query& query) {
            name.has_value() ? query.number(*name, number.condition()) : query.number(field, number.condition());
        });
}

template <typename T>
std::string endsWords(const std::optional<T>& first, const std::optional<T>& last) {
    return (first.has_value() ? std::to_string(*first) : "") + ".." + (last.has_value() ? std::to_string(*last) : "");
}

template <typename T>
bool isBetween(const std::optional<T>& first, const std::optional<T>& last, T value) {
    return (!first.has_value() || *first <= value) && (!last.has_value() || value <= *last);
}

void Adding::addRange() {
    if (random.percent(33)) {
        const auto [first, last] =
            randomEnds<std::int64_t>(random, [&] { return nearby<std::int64_t>(random, table, &StoredMessage::time); });
        add(
            "times " + endsWords(first, last),
            [first = first, last = last](const StoredMessage& m) { return isBetween(first, last, m.time); },
            [&, first = first, last = last](Query& query) { query.times(first, last); });
        return;
    }
    const bool isUniform = random.percent(50);
    const auto field = isUniform ? &StoredMessage::uniformId : &StoredMessage::seqNum;
    const auto [first, last] =
        randomEnds<std::int32_t>(random, [&] { return nearby<std::int32_t>(random, table, field); });
    add((isUniform ? "uniformIds " : "seqNums ") + endsWords(first, last),
        [first = first, last = last, field](const StoredMessage& m) { return isBetween(first, last, m.*field); },
        [&, first = first, last = last](Query& query) {
            isUniform ? query.uniformIds(first, last) : query.seqNums(first, last);
        });
}

void Adding::addIds() {
    const auto someId = [&] {
        const std::int32_t near = nearby<std::int32_t>(random, table, &StoredMessage::id);
        return classOf(near).has_value() ? near : std::int32_t{0};
    };
    const std::int32_t kind = random.below(4);
    if (kind == 0) {
        std::vector<std::int32_t> ids;
        for (std::int32_t n = random.between(1, 5); n > 0; --n) {
            ids.push_back(someId());
        }
        add(
            "idSet of " + std::to_string(ids[0]) + " and others",
            [=](const StoredMessage& m) { return std::ranges::count(ids, m.id) > 0; },
            [&](Query& query) { query.idSet(ids); });
        return;
    }
    if (kind == 1) {
        std::vector<MessageClass> classes;
        for (std::int32_t n = random.between(1, 3); n > 0; --n) {
            classes.push_back(static_cast<MessageClass>(random.below(5)));
        }
        add(
            std::to_string(classes.size()) + " classes with " + std::string(className(classes[0])),
            [=](const StoredMessage& m) {
                const std::optional<MessageClass> its = classOf(m.id);
                return its.has_value() && std::ranges::count(classes, *its) > 0;
            },
            [&](Query& query) { query.classes(classes); });
        return;
    }
    // At most one range for each class.
    std::vector<IdRange> ranges;
    std::array<bool, messageClassCount> taken{};
    for (std::int32_t n = kind == 2 ? 1 : random.between(1, 4); n > 0; --n) {
        const std::int32_t first = someId();
        const std::int32_t last = std::min(lastId(*classOf(first)), first + random.below(8));
        if (!std::exchange(taken[static_cast<std::size_t>(*classOf(first))], true)) {
            ranges.push_back({first, last});
        }
    }
    add(
        std::to_string(ranges.size()) + " ids " + std::to_string(ranges[0].first) + ".." +
            std::to_string(ranges[0].last),
        [=](const StoredMessage& m) {
            return std::ranges::any_of(ranges,
                                       [&](const IdRange& range) { return range.first <= m.id && m.id <= range.last; });
        },
        [&](Query& query) { kind == 2 ? query.ids(ranges[0].first, ranges[0].last) : query.ids(ranges); });
}

void Adding::addFlagOrTypes() {
    if (random.percent(40)) {
        const bool value = random.percent(50);
        const bool isDup = random.percent(50);
        const auto field = isDup ? &StoredMessage::possDup : &StoredMessage::outOfSequence;
        add((isDup ? "possDup " : "outOfSequence ") + std::to_string(value),
            [=](const StoredMessage& m) { return m.*field == value; },
            [&](Query& query) { isDup ? query.possDup(value) : query.outOfSequence(value); });
        return;
    }
    const bool excluding = random.percent(50);
    std::vector<std::string> types;
    std::string words = excluding ? "not of types" : "types";
    for (std::int32_t n = random.between(1, 4); n > 0; --n) {
        types.push_back(random.of(someTypes()));
        words += " '" + types.back() + "'";
    }
    add(
        words, [=](const StoredMessage& m) { return (std::ranges::count(types, m.type) > 0) != excluding; },
        [&](Query& query) { excluding ? query.excludeTypes(types) : query.types(types); });
}

}  // namespace

void addRandomConditions(Random& random, const StoredTable& table, ModelQuery& model, std::string* fault) {
    Adding adding{random, table, model, fault};
    for (std::int32_t n = random.percent(50) ? 1 : random.between(0, 4); n > 0; --n) {
        switch (random.below(7)) {
            case 0:
            case 1:
                adding.addText();
                break;
            case 2:
                adding.addNumber<double>();
                break;
            case 3:
                adding.addNumber<std::int64_t>();
                break;
            case 4:
                adding.addRange();
                break;
            case 5:
                adding.addIds();
                break;
            default:
                adding.addFlagOrTypes();
        }
    }
}

void addRandomPlaces(Random& random, const StoredTable& table, ModelQuery& model) {
    const auto someNumber = [&] {
        return static_cast<std::size_t>(random.below(static_cast<std::int32_t>(table.count()) + 1));
    };
    if (random.percent(50)) {
        model.query.backward();
        model.backward = true;
    }
    if (random.percent(30)) {
        model.from = someNumber();
        model.query.from(table.place(*model.from));
    }
    if (random.percent(30)) {
        model.before = someNumber();
        model.query.before(table.place(*model.before));
    }
    model.words += (model.inverted ? "inverted " : "") + std::string(model.backward ? "backward " : "forward ");
    model.words += "from " + (model.from ? std::to_string(*model.from) : "the beginning");
    model.words += " before " + (model.before ? std::to_string(*model.before) : "the end");
}

ModelQuery randomQuery(Random& random, const StoredTable& table, std::string* fault) {
    ModelQuery model;
    if (random.percent(20)) {
        model.query.inverted();
        model.inverted = true;
    }
    addRandomConditions(random, table, model, fault);
    addRandomPlaces(random, table, model);
    return model;
}

}  // namespace tabulo::test
