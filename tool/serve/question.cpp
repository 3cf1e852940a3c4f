#include "tool/serve/question.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

#include "tabulo/error.h"
#include "tool/listing.h"
#include "tool/serve/request_words.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::size_t MOST_PARAMETERS = 100;

// The filters, as the command's options are called.
constexpr std::array<std::string_view, 11> FILTERS = {"seq",  "id",       "uid",      "since", "until", "class",
                                                      "type", "not-type", "poss-dup", "where", "text"};

template <typename Number>
bool isWhole(std::string_view text, Number* number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

}  // namespace

Question::Question(const Parameters& parameters, const TableBoard& board, const std::atomic<bool>& ending,
                   std::chrono::seconds most)
    : parameters_(parameters),
      board_(board),
      ending_(ending),
      deadline_(std::chrono::steady_clock::now() + most),
      console_([](std::string_view) {}, [this] { check(); }) {
    if (parameters.size() > MOST_PARAMETERS) {
        throw Refusal(400, fmt::format("a question has at most {} parameters", MOST_PARAMETERS));
    }
}

bool Question::isOver() const {
    return ending_ || std::chrono::steady_clock::now() > deadline_;
}

void Question::check() const {
    if (isOver()) {
        throw TimeIsUp();
    }
}

Work Question::work() const {
    Work work;
    work.progress = [this](const Progress&) { check(); };
    return work;
}

std::optional<std::string> Question::one(const std::string& name) const {
    const std::size_t count = parameters_.count(name);
    if (count > 1) {
        throw Refusal(400, fmt::format("{} is given more than once", name));
    }
    return count == 0 ? std::nullopt : std::optional(parameters_.find(name)->second);
}

std::vector<std::string> Question::several(const std::string& name) const {
    std::vector<std::string> values;
    const auto [begin, end] = parameters_.equal_range(name);
    std::transform(begin, end, std::back_inserter(values), [](const auto& parameter) { return parameter.second; });
    return values;
}

std::vector<std::string> Question::listed(const std::string& name) const {
    std::vector<std::string> values;
    for (const std::string& value : several(name)) {
        for (std::size_t begin = 0; begin <= value.size();) {
            const std::size_t end = std::min(value.find(',', begin), value.size());
            values.push_back(value.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    return values;
}

std::int64_t Question::number(const std::string& name, std::int64_t otherwise, std::int64_t least,
                              std::int64_t most) const {
    const std::optional<std::string> text = one(name);
    std::int64_t number = otherwise;
    if (text.has_value() && (!isWhole(*text, &number) || number < least || number > most)) {
        throw Refusal(400, fmt::format("{} is a number from {} to {}, not '{}'", name, least, most, *text));
    }
    return number;
}

std::optional<double> Question::time(const std::string& name) const {
    const std::optional<std::string> text = one(name);
    double time = 0;
    if (!text.has_value()) {
        return std::nullopt;
    }
    if (!isWhole(*text, &time) || !std::isfinite(time)) {
        throw Refusal(400, fmt::format("{} is a time in milliseconds since 1970, not '{}'", name, *text));
    }
    return time;
}

SelectionOptions Question::options(Filters filters) const {
    SelectionOptions options;
    if (filters == Filters::none) {
        return options;
    }
    options.seq = listed("seq");
    options.id = listed("id");
    options.uid = listed("uid");
    options.since = one("since").value_or("");
    options.until = filters == Filters::all ? one("until").value_or("") : "";
    options.classes = listed("class");
    options.types = listed("type");
    options.notTypes = listed("not-type");
    options.possDup = one("poss-dup").value_or("");
    options.where = several("where");
    options.text = several("text");
    return options;
}

bool Question::isFiltered(Filters filters) const {
    return std::any_of(FILTERS.begin(), FILTERS.end(), [&](std::string_view name) {
        return (name != "until" || filters == Filters::all) && parameters_.contains(std::string(name));
    });
}

AskedTable Question::open(const Sight& sight, const SelectionOptions& options) {
    try {
        AskedTable asked{sight, Reader(sight->path), {}};
        TimeOptions unit;
        unit.unit = sight->unit.has_value() ? timeUnitName(*sight->unit) : "";
        const std::optional<std::int64_t> last = sight->info.lastTime;
        const Times times(unit, last, console_);
        asked.selection = makeSelection(options, asked.reader.layout(), times, last.value_or(0));
        return asked;
    } catch (const UsageError& error) {
        throw Refusal(400, fmt::format("{}: {}", sight->id, error.what()));
    } catch (const Error& error) {
        throw Refusal(error.code() == Code::fileOpen ? 404 : 400, error.what());
    }
}

std::vector<Sight> Question::sights() const {
    const std::vector<std::string> ids = several("table");
    if (ids.empty()) {
        return board_.all().tables;
    }
    std::vector<Sight> sights;
    for (const std::string& id : ids) {
        Sight sight = board_.find(id);
        if (sight == nullptr) {
            throw Refusal(404, fmt::format("there is no table '{}' among those that are served", id));
        }
        if (std::find(sights.begin(), sights.end(), sight) == sights.end()) {
            sights.push_back(std::move(sight));
        }
    }
    return sights;
}

std::vector<AskedTable> Question::tables(Filters filters) {
    const bool isNamed = parameters_.contains("table");
    const SelectionOptions chosen = options(filters);
    std::vector<AskedTable> tables;
    for (const Sight& sight : sights()) {
        if (sight->info.kind == TableKind::messages) {
            tables.push_back(open(sight, chosen));
        } else if (isNamed) {
            throw Refusal(400, fmt::format("{} holds session infos, no messages", sight->id));
        }
    }
    return tables;
}

AskedTable Question::table() {
    if (parameters_.count("table") != 1) {
        throw Refusal(400, "this is asked of one table: table=ID");
    }
    std::vector<AskedTable> tables = this->tables(Filters::none);
    return std::move(tables.front());
}

std::string Question::command(std::string_view verb, const std::vector<Sight>& tables) const {
    std::string line = fmt::format("tabulo {}", verb);
    for (const std::string_view name : FILTERS) {
        for (const std::string& value : several(std::string(name))) {
            line += fmt::format(" --{} {}", name, shellWord(value));
        }
    }
    for (const Sight& table : tables) {
        line += " " + shellWord(table->path.string());
    }
    return line;
}

}  // namespace tabulo::tool::serve
