#include "tests/tool/random_selection.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace tabulo::tool::test {

bool chance(Random& random, unsigned percent) {
    return random() % 100 < percent;
}

namespace {

template <typename T>
const T& oneOf(Random& random, const std::vector<T>& values) {
    return values[random() % values.size()];
}

const std::vector<std::string> SYMBOLS = {"ACME", "INITECH", "a,b", "", "'x'", "über", "ACME2"};
const std::vector<std::string> ACCOUNTS = {"A1", "A2", "A 3", "B"};
const std::vector<std::string> TYPES = {"D", "8", "0", "AE", "F"};
const std::vector<std::string> TAG_VALUES = {"1", "2", "10", "9", "1.5", "x"};
const std::vector<double> PRICES = {1, 1.5, -2.25, 1e300, 100.25, std::nan(""), INFINITY, 9007199254740992.0};
const std::vector<std::int64_t> SIZES = {0, 1, 100, -7, 9007199254740993, 9007199254740992, INT64_MAX, INT64_MIN};

template <typename Of>
void addRanges(Random& random, const std::string& option, std::int32_t lowest, std::int32_t highest, Of of,
               Asked* asked) {
    std::string text;
    std::vector<std::pair<std::int32_t, std::int32_t>> ranges;
    for (std::size_t i = 0; i < 1 + random() % 3; ++i) {
        auto first = lowest + static_cast<std::int32_t>(random() % static_cast<unsigned>(highest - lowest));
        auto last = std::min(highest, first + static_cast<std::int32_t>(random() % 40));
        const bool isOpenBelow = chance(random, 15);
        const bool isOpenAbove = !isOpenBelow && chance(random, 15);
        const std::string one =
            first == last && !isOpenBelow && !isOpenAbove
                ? std::to_string(first)
                : (isOpenBelow ? "" : std::to_string(first)) + ".." + (isOpenAbove ? "" : std::to_string(last));
        text += (text.empty() ? "" : ",") + one;
        ranges.emplace_back(isOpenBelow ? INT32_MIN : first, isOpenAbove ? INT32_MAX : last);
    }
    asked->add({option, text}, [=](const Row& row) {
        return std::any_of(ranges.begin(), ranges.end(),
                           [&](const auto& range) { return range.first <= of(row) && of(row) <= range.second; });
    });
}

void addIds(Random& random, Asked* asked) {
    const auto messageClass = static_cast<MessageClass>(random() % messageClassCount);
    const std::int32_t base = firstId(messageClass);
    addRanges(
        random, "--id", base, base + 40, [=](const Row& row) { return classOf(row.id) == messageClass ? row.id : -1; },
        asked);
    // An open end ends with the class, which the plain filter has said with -1.
    const Plain ranges = asked->all.back();
    asked->all.back() = [=](const Row& row) { return classOf(row.id) == messageClass && ranges(row); };
    asked->mayBeRefused = true;
}

void addSet(Random& random, const std::string& option, const std::vector<std::string>& values, bool wanted,
            std::string Row::*field, Asked* asked) {
    std::set<std::string> chosen;
    for (std::size_t i = 0; i < 1 + random() % 3; ++i) {
        chosen.insert(oneOf(random, values));
    }
    Words words;
    if (chance(random, 50)) {
        words = {option, fmt::format("{}", fmt::join(chosen, ","))};
    } else {
        for (const std::string& value : chosen) {
            words.insert(words.end(), {option, value});
        }
    }
    asked->add(words, [=](const Row& row) { return chosen.contains(row.*field) == wanted; });
    asked->mayBeRefused = true;
}

void addClasses(Random& random, Asked* asked) {
    const auto first = static_cast<MessageClass>(random() % messageClassCount);
    const auto second = static_cast<MessageClass>(random() % messageClassCount);
    asked->add({"--class", std::string(className(first)) + "," + std::string(className(second))},
               [=](const Row& row) { return classOf(row.id) == first || classOf(row.id) == second; });
    asked->mayBeRefused = true;
}

void addTimes(Random& random, Asked* asked) {
    asked->mayBeRefused = true;  // with another end of another range
    const auto since = static_cast<std::int64_t>(1795203105000 + random() % 6000);
    const auto until = since + 1 + static_cast<std::int64_t>(random() % 3000);
    if (chance(random, 70)) {
        asked->add({"--since", std::to_string(since)}, [=](const Row& row) { return row.time >= since; });
    }
    if (chance(random, 70)) {
        asked->add({"--until", std::to_string(until)}, [=](const Row& row) { return row.time < until; });
    }
}

bool meets(const std::string& operation, int order) {
    return operation == "=" || operation == "in" ? order == 0
           : operation == "!="                   ? order != 0
           : operation == "<"                    ? order < 0
           : operation == "<="                   ? order <= 0
           : operation == ">"                    ? order > 0
                                                 : order >= 0;
}

template <typename T>
int orderOf(const T& left, const T& right) {
    return left < right ? -1 : (right < left ? 1 : 0);
}

const std::vector<std::string> OPERATORS = {"=", "!=", "<", "<=", ">", ">=", "in", "is absent"};

// The condition in the form that the user writes, with one value or several.
std::string written(Random& random, const std::string& field, const std::string& operation, const Words& values) {
    const auto quoted = [](const std::string& value) { return "\"" + value + "\""; };
    if (operation == "is absent") {
        return field + " is absent";
    }
    if (operation == "in") {
        Words all;
        std::transform(values.begin(), values.end(), std::back_inserter(all), quoted);
        return fmt::format("{} in ({})", field, fmt::join(all, chance(random, 50) ? "," : " , "));
    }
    const bool needsQuotes = values[0].empty() || values[0].front() == '\'' || chance(random, 30);
    const std::string space = chance(random, 30) ? " " : "";
    return field + space + operation + space + (needsQuotes ? quoted(values[0]) : values[0]);
}

using TextOf = std::function<std::optional<std::string>(const Row&)>;

void addTextWhere(Random& random, const std::string& field, const Words& known, const TextOf& of, Asked* asked) {
    const std::string& operation = oneOf(random, OPERATORS);
    Words values = {oneOf(random, known)};
    if (operation == "in") {
        values.push_back(oneOf(random, known));
    }
    const bool isTag = field.starts_with("tag:");
    asked->add({"--where", written(random, field, operation, values)}, [=](const Row& row) {
        const std::optional<std::string> text = of(row);
        if (!text.has_value() || operation == "is absent") {
            return !text.has_value() && (operation == "is absent" || operation == "!=");
        }
        const bool bothNumbers = isTag && *text != "x" && values[0] != "x";
        if (bothNumbers && (operation[0] == '<' || operation[0] == '>')) {
            return meets(operation, orderOf(std::stod(*text), std::stod(values[0])));
        }
        return std::any_of(values.begin(), values.end(),
                           [&](const std::string& value) { return meets(operation, orderOf(*text, value)); });
    });
}

// Wide enough for every double and every 64-bit integer.
static_assert(std::numeric_limits<long double>::digits >= 64);
std::optional<long double> wideOf(const Number& number) {
    if (const auto* integer = std::get_if<std::int64_t>(&number)) {
        return *integer;
    }
    const auto* value = std::get_if<double>(&number);
    return value == nullptr ? std::nullopt : std::optional<long double>(*value);
}

void addNumberWhere(Random& random, const std::string& field, Number Row::*member, Asked* asked) {
    const std::string& operation = oneOf(random, OPERATORS);
    Words values;
    std::vector<long double> numbers;
    for (std::size_t i = 0; i < (operation == "in" ? 2U : 1U); ++i) {
        if (chance(random, 50)) {
            double value = oneOf(random, PRICES);
            value = std::isnan(value) ? 40 : value;
            values.push_back(fmt::format("{}", value));
            numbers.push_back(value);
        } else {
            const std::int64_t value =
                chance(random, 50) ? oneOf(random, SIZES) : static_cast<std::int64_t>(random() % 600);
            values.push_back(std::to_string(value));
            numbers.push_back(value);
        }
    }
    asked->add({"--where", written(random, field, operation, values)}, [=](const Row& row) {
        const std::optional<long double> number = wideOf(row.*member);
        if (!number.has_value() || operation == "is absent") {
            return !number.has_value() && (operation == "is absent" || operation == "!=");
        }
        if (std::isnan(*number)) {
            return operation == "!=";
        }
        return std::any_of(numbers.begin(), numbers.end(),
                           [&](long double value) { return meets(operation, orderOf(*number, value)); });
    });
}

void addWhere(Random& random, Asked* asked) {
    switch (random() % 6) {
        case 0:
            return addTextWhere(
                random, "Symbol", SYMBOLS, [](const Row& row) { return row.symbol; }, asked);
        case 1:
            return addTextWhere(
                random, "Account", ACCOUNTS, [](const Row& row) { return row.account; }, asked);
        case 2:
            return addTextWhere(
                random, "tag:54", TAG_VALUES, [](const Row& row) { return row.side; }, asked);
        case 3:
            return addTextWhere(
                random, "tag:38", TAG_VALUES, [](const Row& row) { return row.quantity; }, asked);
        case 4:
            return addNumberWhere(random, "Price", &Row::price, asked);
        default:
            return addNumberWhere(random, "Size", &Row::size, asked);
    }
}

void addWords(Random& random, Asked* asked) {
    const std::string first = "54=" + oneOf(random, TAG_VALUES);
    const std::string second = "35=" + oneOf(random, TYPES);
    asked->add({"--text", first + " " + second}, [=](const Row& row) {
        return row.wire().find(first) != std::string::npos && row.wire().find(second) != std::string::npos;
    });
}

void addOption(Random& random, Asked* asked) {
    switch (random() % 10) {
        case 0:
            return addRanges(
                random, "--seq", -20, 300, [](const Row& row) { return row.seq; }, asked);
        case 1:
            return addRanges(
                random, "--uid", 1, 600, [](const Row& row) { return row.uid; }, asked);
        case 2:
            return addIds(random, asked);
        case 3:
            return addTimes(random, asked);
        case 4:
            return addClasses(random, asked);
        case 5:
            return addSet(random, "--type", TYPES, true, &Row::type, asked);
        case 6:
            return addSet(random, "--not-type", TYPES, false, &Row::type, asked);
        case 7: {
            const bool wanted = chance(random, 50);
            return asked->add({"--poss-dup", wanted ? "yes" : "no"},
                              [=](const Row& row) { return row.possDup == wanted; });
        }
        case 8:
            return addWords(random, asked);
        default:
            return addWhere(random, asked);
    }
}

bool isOption(const std::string& word) {
    return word.starts_with("--") && word != "--where";
}

// Whether two selections give the same option.
bool overlap(const Words& some, const Words& others) {
    return std::any_of(some.begin(), some.end(), [&](const std::string& word) {
        return isOption(word) && std::find(others.begin(), others.end(), word) != others.end();
    });
}

}  // namespace

Layout rowLayout() {
    return {.texts = {"Symbol", "Account"}, .numbers = {"Price", "Size"}, .messagesPerBlock = 16};
}

Row randomRow(Random& random, std::int32_t uid) {
    Row row;
    row.uid = uid;
    row.seq = chance(random, 10) ? -static_cast<std::int32_t>(random() % 20) : static_cast<std::int32_t>(uid / 2);
    row.id =
        firstId(static_cast<MessageClass>(random() % messageClassCount)) + static_cast<std::int32_t>(random() % 40);
    row.time = 1795203105000 + uid * 10 - static_cast<std::int64_t>(random() % 30);
    row.type = oneOf(random, TYPES);
    row.possDup = chance(random, 20);
    const auto maybe = [&](const std::vector<std::string>& values) {
        return chance(random, 25) ? std::nullopt : std::optional(oneOf(random, values));
    };
    row.symbol = maybe(SYMBOLS);
    row.account = uid % 64 < 40 ? maybe({ACCOUNTS[0]}) : maybe(ACCOUNTS);  // so that filters rule blocks out
    row.side = maybe(TAG_VALUES);
    row.quantity = maybe(TAG_VALUES);
    const auto number = [&]() -> Number {
        if (chance(random, 25)) {
            return {};
        }
        return chance(random, 50) ? Number(oneOf(random, PRICES)) : Number(oneOf(random, SIZES));
    };
    row.price = uid % 64 < 32 ? Number(static_cast<double>(uid)) : number();
    row.size = number();
    return row;
}

void append(Writer* writer, const Row& row) {
    const std::string wire = row.wire();
    Message message;
    message.uniformId = row.uid;
    message.seqNum = row.seq;
    message.id = row.id;
    message.time = row.time;
    message.type = row.type;
    message.possDup = row.possDup;
    message.texts = {row.symbol ? Text(*row.symbol) : Text(), row.account ? Text(*row.account) : Text()};
    message.numbers = {row.price, row.size};
    message.wire = wire;
    writer->append(message);
}

Asked randomSelection(Random& random) {
    Asked asked;
    for (std::size_t i = 0; i < 1 + random() % 3; ++i) {
        Asked one;
        addOption(random, &one);
        if (overlap(one.words, asked.words)) {
            continue;
        }
        asked.words.insert(asked.words.end(), one.words.begin(), one.words.end());
        asked.all.insert(asked.all.end(), one.all.begin(), one.all.end());
        asked.mayBeRefused = asked.mayBeRefused || one.mayBeRefused;
    }
    return asked;
}

}  // namespace tabulo::tool::test
