#include "tool/selection.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "tool/listing.h"
#include "tool/status.h"
#include "tool/verb.h"
#include "tool/where.h"

namespace tabulo::tool {

namespace {

using Test = std::function<bool(const MessageView&)>;

// What is put together for one table.
struct Builder {
    Selection selection;
    std::vector<Test> tests;

    void pushed(const std::string& what) { list(what, &selection.pushedDown); }
    void tested(const std::string& what) { list(what, &selection.tested); }
    static void list(const std::string& what, std::string* text) {
        text->append(text->empty() ? "" : ", ").append(what);
    }
};

struct Range {
    std::optional<std::int32_t> first, last;
};

std::optional<std::int32_t> endOf(std::string_view option, std::string_view range, std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    std::int32_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        throw UsageError(fmt::format("{} takes a range A..B, and '{}' is none: '{}' is no number of 32 bits", option,
                                     shownText(range), shownText(text)));
    }
    return value;
}

// "A..B", "A..", "..B", or one number.
Range parseRange(std::string_view option, std::string_view text) {
    const std::size_t dots = text.find("..");
    Range range{endOf(option, text, text.substr(0, dots)), {}};
    range.last = dots == std::string_view::npos ? range.first : endOf(option, text, text.substr(dots + 2));
    if (!range.first.has_value() && !range.last.has_value()) {
        throw UsageError(fmt::format("{} takes a range A..B, of which one end may be left out; '{}' has none", option,
                                     shownText(text)));
    }
    if (range.first.has_value() && range.last.has_value() && *range.last < *range.first) {
        throw UsageError(fmt::format("the range {} of {} is reversed", shownText(text), option));
    }
    return range;
}

std::string joined(const std::vector<std::string>& texts) {
    return shownText(fmt::format("{}", fmt::join(texts, ",")));
}

// A condition on any of several ranges.
IntegerCondition anyOf(std::string_view option, const std::vector<std::string>& texts) {
    std::optional<IntegerCondition> any;
    for (const std::string& text : texts) {
        const Range range = parseRange(option, text);
        const auto one = IntegerCondition::between(range.first.value_or(std::numeric_limits<std::int32_t>::min()),
                                                   range.last.value_or(std::numeric_limits<std::int32_t>::max()));
        any = any.has_value() ? *any || one : one;
    }
    return *any;
}

void addRanges(std::string_view option, BuiltInNumber field, const std::vector<std::string>& texts, Builder* builder) {
    if (!texts.empty()) {
        builder->selection.query.number(field, anyOf(option, texts));
        builder->pushed(fmt::format("{} {}", option, joined(texts)));
    }
}

std::string classRanges() {
    std::string text;
    for (const auto each : {MessageClass::appTo, MessageClass::appFrom, MessageClass::adminTo, MessageClass::adminFrom,
                            MessageClass::resent}) {
        text += fmt::format("{}{} {}..{}", text.empty() ? "" : ", ", className(each), firstId(each), lastId(each));
    }
    return text;
}

// A range of ids, with the ends of its class where one is left out.
IdRange idRange(const std::string& text) {
    const Range range = parseRange("--id", text);
    const auto known = classOf(range.first.has_value() ? *range.first : *range.last);
    if (!known.has_value() || (range.last.has_value() && classOf(*range.last) != known)) {
        throw UsageError(fmt::format("the ids {} are not of one class: {}", shownText(text), classRanges()));
    }
    return {range.first.value_or(firstId(*known)), range.last.value_or(lastId(*known))};
}

// The footers know one range of ids for each class: that around all ranges of the class. Where there are several the
// messages are tested.
void addIds(const std::vector<std::string>& texts, Builder* builder) {
    std::vector<IdRange> asked;
    std::vector<IdRange> around;
    for (const std::string& text : texts) {
        const IdRange range = idRange(text);
        asked.push_back(range);
        const auto known = std::find_if(around.begin(), around.end(), [&](const IdRange& other) {
            return classOf(other.first) == classOf(range.first);
        });
        if (known == around.end()) {
            around.push_back(range);
        } else {
            *known = {std::min(known->first, range.first), std::max(known->last, range.last)};
        }
    }
    if (asked.empty()) {
        return;
    }
    builder->selection.query.ids(around);
    builder->pushed(fmt::format("--id {}", joined(texts)));
    if (asked.size() != around.size()) {
        builder->tests.emplace_back([asked](const MessageView& message) {
            return std::any_of(asked.begin(), asked.end(), [&](const IdRange& range) {
                return range.first <= message.id() && message.id() <= range.last;
            });
        });
    }
}

void addClasses(const std::vector<std::string>& names, Builder* builder) {
    std::vector<MessageClass> classes;
    for (const std::string& name : names) {
        const auto found = classNamed(name);
        if (!found.has_value()) {
            throw UsageError(
                fmt::format("there is no class '{}': APP_TO, APP_FROM, ADMIN_TO, ADMIN_FROM, RESENT", shownText(name)));
        }
        classes.push_back(*found);
    }
    if (!classes.empty()) {
        builder->selection.query.classes(classes);
        builder->pushed(fmt::format("--class {}", joined(names)));
    }
}

void addTimes(const SelectionOptions& options, const Times& times, std::int64_t newest, Builder* builder) {
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;
    if (!options.since.empty()) {
        first = times.parse(options.since, newest);
        builder->pushed(fmt::format("--since {} ({})", shownText(options.since), *first));
    }
    if (!options.until.empty()) {
        const std::int64_t until = times.parse(options.until, newest);
        if (until == std::numeric_limits<std::int64_t>::min() || (first.has_value() && until <= *first)) {
            throw UsageError(fmt::format("no time lies between --since {} and --until {}, which is not included",
                                         options.since.empty() ? "the beginning" : shownText(options.since),
                                         shownText(options.until)));
        }
        last = until - 1;
        builder->pushed(fmt::format("--until {} ({})", shownText(options.until), until));
    }
    if (first.has_value() || last.has_value()) {
        builder->selection.query.times(first, last);
    }
}

void addTypes(const SelectionOptions& options, Builder* builder) {
    if (!options.types.empty()) {
        builder->selection.query.types(options.types);
        builder->tested(fmt::format("--type {}", joined(options.types)));
    }
    if (!options.notTypes.empty()) {
        builder->selection.query.excludeTypes(options.notTypes);
        builder->tested(fmt::format("--not-type {}", joined(options.notTypes)));
    }
    if (!options.possDup.empty()) {
        if (options.possDup != "yes" && options.possDup != "no") {
            throw UsageError(fmt::format("--poss-dup takes yes or no, not '{}'", shownText(options.possDup)));
        }
        builder->selection.query.possDup(options.possDup == "yes");
        builder->tested(fmt::format("--poss-dup {}", options.possDup));
    }
}

void addWhere(const std::vector<std::string>& texts, const Layout& layout, Builder* builder) {
    for (const std::string& text : texts) {
        WhereTest test(parseWhere(text), layout);
        const std::string shown = fmt::format("--where '{}'", shownText(text));
        test.push(&builder->selection.query) ? builder->pushed(shown) : builder->tested(shown);
        builder->tests.emplace_back(std::move(test));
    }
}

void addWords(const std::vector<std::string>& texts, Builder* builder) {
    std::vector<std::string> words;
    for (const std::string& text : texts) {
        for (std::size_t begin = text.find_first_not_of(' '); begin != std::string::npos;) {
            const std::size_t end = std::min(text.find(' ', begin), text.size());
            words.push_back(text.substr(begin, end - begin));
            begin = text.find_first_not_of(' ', end);
        }
    }
    if (texts.empty()) {
        return;
    }
    if (words.empty()) {
        throw UsageError("--text takes words, and has none");
    }
    builder->tested(fmt::format("--text {}", joined(texts)));
    builder->tests.emplace_back([words = std::move(words)](const MessageView& message) {
        const std::string_view wire = message.wire().value_or("");
        return std::all_of(words.begin(), words.end(),
                           [&](const std::string& word) { return wire.find(word) != std::string_view::npos; });
    });
}

Test allOf(std::vector<Test> tests) {
    if (tests.size() <= 1) {
        return tests.empty() ? Test() : std::move(tests.front());
    }
    return [tests = std::move(tests)](const MessageView& message) {
        return std::all_of(tests.begin(), tests.end(), [&](const Test& test) { return test(message); });
    };
}

CLI::Option* declareList(CLI::App& app, const std::string& name, std::vector<std::string>* values,
                         const std::string& what, const std::string& type) {
    return app.add_option(name, *values, what)->type_name(type)->allow_extra_args(false)->group("Selection");
}

}  // namespace

void declareSelection(CLI::App& app, SelectionOptions* options) {
    const auto one = [&](const std::string& name, std::string* value, const std::string& what,
                         const std::string& type) {
        app.add_option(name, *value, what)->type_name(type)->group("Selection");
    };
    declareList(app, "--seq", &options->seq, "Sequence numbers; an end may be left out", "A..B")->delimiter(',');
    declareList(app, "--id", &options->id, "Connection message ids of one class", "A..B")->delimiter(',');
    declareList(app, "--uid", &options->uid, "Uniform ids", "A..B")->delimiter(',');
    one("--since", &options->since, "From this time on: 2026-11-20T19:31:45.673, 2026-11-20, 19:31, -10m, raw digits",
        "TIME");
    one("--until", &options->until, "Before this time", "TIME");
    declareList(app, "--class", &options->classes, "APP_TO, APP_FROM, ADMIN_TO, ADMIN_FROM, RESENT", "CLASS")
        ->delimiter(',');
    declareList(app, "--type", &options->types, "Message types", "TYPE")->delimiter(',');
    declareList(app, "--not-type", &options->notTypes, "Message types that are left out", "TYPE")->delimiter(',');
    one("--poss-dup", &options->possDup, "Possible duplicates only, or none of them", "yes|no");
    declareList(app, "--where", &options->where,
                "A field or tag:NUMBER with =, !=, <, <=, >, >=, 'in (A, B)' or 'is absent'", "CONDITION");
    declareList(app, "--text", &options->text, "Words that all stand in the wire message", "WORDS");
    declareTimes(app, &options->time);
    app.add_flag("--explain", options->explain, "Tell what was pushed down, and how many blocks were skipped")
        ->group("Selection");
}

Selection makeSelection(const SelectionOptions& options, const Layout& layout, const Times& times,
                        std::int64_t newest) {
    Builder builder;
    try {
        addRanges("--seq", BuiltInNumber::seqNum, options.seq, &builder);
        addRanges("--uid", BuiltInNumber::uniformId, options.uid, &builder);
        addIds(options.id, &builder);
        addClasses(options.classes, &builder);
        addTimes(options, times, newest, &builder);
        addTypes(options, &builder);
        addWhere(options.where, layout, &builder);
        addWords(options.text, &builder);
    } catch (const Error& error) {
        if (error.code() == Code::wrongParameter) {
            throw UsageError(error.detail());  // the user's words, refused by the query
        }
        throw;
    }
    builder.selection.matches = allOf(std::move(builder.tests));
    return std::move(builder.selection);
}

}  // namespace tabulo::tool
