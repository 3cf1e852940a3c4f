#include "tests/api/indexed_table.h"

#include <algorithm>

#include "tabulo/index.h"

namespace tabulo::test {
namespace {

constexpr std::int32_t MOST_MESSAGES = 400;

template <typename T>
Condition isOneOf(T StoredMessage::*field, const std::vector<T>& values) {
    return [=](const StoredMessage& message) { return std::ranges::count(values, message.*field) > 0; };
}

struct Selecting {
    Random& random;
    const StoredTable& table;
    ModelQuery& model;
    std::string* fault;

    const StoredMessage& someMessage() { return random.of(table.messages); }
    std::string someValue(const std::function<StoredText(const StoredMessage&)>& text);

    void add(const std::string& words, const Condition& selects, const std::function<void(Query&)>& ask) {
        const std::string told = model.add(table, words, selects, ask);
        *fault = fault->empty() ? told : *fault;
    }
    void addText();
    void addId();
    void addNumber();
    void addRange();
};

// One that the field holds, and mostly one that few messages have.
std::string Selecting::someValue(const std::function<StoredText(const StoredMessage&)>& text) {
    std::string value = "nowhere";
    for (int tries = random.percent(90) ? 4 : 0; tries > 0 && !value.starts_with("near-"); --tries) {
        value = text(someMessage()).value_or("none");
    }
    return value.substr(0, value.find('\0'));
}

// Values of an indexed text, as they are.
void Selecting::addText() {
    const Layout& layout = table.writer.layout();
    const std::int32_t builtIn = layout.builtInTexts - 2;
    const auto configured = static_cast<std::int32_t>(layout.texts.size());
    if (builtIn + configured == 0) {
        addId();
        return;
    }
    const std::int32_t field = random.below(builtIn + configured);
    const auto name = field == 0 ? BuiltInText::text0 : BuiltInText::text1;
    const auto number = static_cast<std::size_t>(std::max(0, field - builtIn));
    const auto text = [=](const StoredMessage& message) {
        return field < builtIn ? textOf(message, name) : textOf(message, number);
    };
    ModelText asked;
    for (std::int32_t n = random.between(1, 2); n > 0; --n) {
        asked.values.push_back(someValue(text));
    }
    add(
        "the text " + std::to_string(field) + " " + asked.words(),
        [=](const StoredMessage& message) { return asked.selects(text(message)); },
        [&](Query& query) {
            field < builtIn ? query.text(name, asked.condition()) : query.text(number, asked.condition());
        });
}

void Selecting::addId() {
    std::vector<std::int32_t> ids;
    for (std::int32_t n = random.between(1, 3); n > 0; --n) {
        const std::int32_t id = someMessage().id;
        ids.push_back(classOf(id).has_value() ? id : 0);
    }
    const std::string words = std::to_string(ids[0]);
    if (random.percent(50)) {
        add("idSet " + words, isOneOf(&StoredMessage::id, ids), [&](Query& query) { query.idSet(ids); });
    } else {
        ids.resize(1);
        add("id " + words, isOneOf(&StoredMessage::id, ids), [&](Query& query) { query.ids(ids[0], ids[0]); });
    }
}

// The ids as numbers, which may be negative ones.
void Selecting::addNumber() {
    const auto field = random.percent(50) ? BuiltInNumber::uniformId : BuiltInNumber::id;
    ModelNumber<std::int64_t> asked;
    const std::int64_t value = std::get<std::int64_t>(numberOf(someMessage(), field));
    if (random.percent(50)) {
        asked.values = {value, value + random.between(-2, 2)};
    } else {
        asked.ranges.push_back({value, value + random.below(3)});
    }
    add(
        "the number " + std::to_string(static_cast<int>(field)) + " " + asked.words(),
        [=](const StoredMessage& message) { return asked.selects(numberOf(message, field)); },
        [&](Query& query) { query.number(field, asked.condition()); });
}

void Selecting::addRange() {
    const bool isTime = random.percent(50);
    const StoredMessage& message = someMessage();
    const std::int64_t first = isTime ? message.time : message.seqNum;
    const std::int64_t last = first + random.between(0, isTime ? 60 : 6);
    add((isTime ? "times " : "seqNums ") + std::to_string(first) + ".." + std::to_string(last),
        [=](const StoredMessage& m) {
            const std::int64_t value = isTime ? m.time : m.seqNum;
            return first <= value && value <= last;
        },
        [&](Query& query) {
            isTime ? query.times(first, last)
                   : query.seqNums(static_cast<std::int32_t>(first), static_cast<std::int32_t>(last));
        });
}

}  // namespace

Layout randomIndexedLayout(Random& random) {
    Layout layout = randomLayout(random);
    if (random.percent(10)) {
        layout.messagesPerBlock = random.between(60, 140);
    } else if (random.percent(20)) {
        layout.messagesPerBlock = random.between(8, 20);
    }
    return layout;
}

IndexedTable::IndexedTable(Random& random, const TemporaryDirectory& directory, int number)
    : table(directory.file("t" + std::to_string(number)), randomIndexedLayout(random)) {
    StoredTable other(directory.file("other" + std::to_string(number)), table.writer.layout());
    const std::int32_t sameMessages = random.percent(30) ? random.between(1, 40) : 0;
    const bool followed = random.percent(50);
    std::optional<Indexer> keeper;
    for (std::int32_t part = random.between(1, 5); part > 0; --part) {
        store(random, fewMessages(random));
        if (followed && !keeper.has_value()) {
            keeper.emplace(path());
        }
        if (keeper.has_value() && random.percent(80)) {
            keeper->keepUp();
        } else if (keeper.has_value()) {
            keeper->complete();
        } else {
            Indexer(path()).complete();
        }
        images.generations.push_back(internal::test::readFile(indexPath(path()).string()));
    }
    if (random.percent(60)) {
        store(random, random.between(1, 3 * table.writer.layout().messagesPerBlock));
    }
    for (std::int32_t i = 0; i < fewMessages(random) + 20; ++i) {
        const bool isSame = i < sameMessages && i < static_cast<std::int32_t>(table.count());
        other.append(isSame ? table.messages[static_cast<std::size_t>(i)] : randomMessage(random, other));
    }
    Indexer(other.writer.path()).complete();
    images.foreign = internal::test::readFile(indexPath(other.writer.path()).string());
}

// Mostly enough for a run of its own, which has 16 blocks.
std::int32_t IndexedTable::fewMessages(Random& random) const {
    const std::int32_t perBlock = table.writer.layout().messagesPerBlock;
    const std::int32_t left = MOST_MESSAGES - static_cast<std::int32_t>(table.count());
    const std::int32_t wanted = random.percent(75) ? perBlock * random.between(16, 24) : random.between(1, 60);
    return std::clamp(wanted, 1, std::max(left, 1));
}

void IndexedTable::store(Random& random, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        table.append(randomMessage(random, table));
    }
}

void IndexedTable::refill(Random& random) {
    const std::vector<StoredMessage> before = table.messages;
    const auto count = static_cast<std::int32_t>(before.size());
    table.drop();
    const std::int32_t same = random.percent(70) ? random.below(count) : 0;
    table.appendAll({before.begin(), before.begin() + same});
    store(random, random.between(1, std::max(1, count - same + random.between(-5, 40))));
}

ModelQuery selectiveQuery(Random& random, const StoredTable& table, std::string* fault) {
    ModelQuery model;
    if (random.percent(4)) {
        model.query.inverted();
        model.inverted = true;
    }
    Selecting selecting{random, table, model, fault};
    switch (random.below(6)) {
        case 0:
        case 1:
        case 2:
            selecting.addText();
            break;
        case 3:
            selecting.addId();
            break;
        case 4:
            selecting.addNumber();
            break;
        default:
            selecting.addRange();
    }
    if (random.percent(15)) {
        addRandomConditions(random, table, model, fault);
    }
    addRandomPlaces(random, table, model);
    return model;
}

}  // namespace tabulo::test
