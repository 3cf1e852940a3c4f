#include "tool/message_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tool/listing.h"
#include "tool/status.h"
#include "tool/verb.h"

namespace tabulo::tool {

namespace {

constexpr std::chrono::milliseconds LONGEST_HELD(100);

MergeBy mergeNamed(std::string_view name) {
    if (name == "uid") {
        return MergeBy::uniformId;
    }
    if (name == "time") {
        return MergeBy::time;
    }
    if (name == "none") {
        return MergeBy::nothing;
    }
    throw UsageError(fmt::format("--merge takes uid, time or none, not '{}'", shownText(name)));
}

// The time now, in the unit of the tables.
std::int64_t nowIn(const Times& times) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    switch (times.unit().value_or(TimeUnit::seconds)) {
        case TimeUnit::milliseconds:
            return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
        case TimeUnit::microseconds:
            return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
        case TimeUnit::nanoseconds:
            return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
        default:
            return std::chrono::duration_cast<std::chrono::seconds>(now).count();
    }
}

// The time from which a unit can be guessed: the first one from which it can.
std::optional<std::int64_t> sampleOf(const std::vector<std::int64_t>& times) {
    const auto found =
        std::find_if(times.begin(), times.end(), [](std::int64_t time) { return guessTimeUnit(time).has_value(); });
    if (found != times.end()) {
        return *found;
    }
    return times.empty() ? std::nullopt : std::optional(times.front());
}

}  // namespace

void declareSource(CLI::App& app, SourceOptions* options) {
    app.add_option("FILE", options->files, "Message tables, and folders of them")->required()->type_name("");
    app.add_option("--merge", options->merge, "Order of several tables: by uniform id, by time, or one after the other")
        ->type_name("uid|time|none");
    declareSelection(app, &options->selection);
}

MessageSource::MessageSource(Console& console, const SourceOptions& options, const SourceTimes& times, NoTables none)
    : console_(console),
      options_(options),
      merge_(mergeNamed(options.merge)),
      readers_(none == NoTables::awaited ? openTablesThere(console, expandPaths(console, options.files))
                                         : openTables(console, expandPaths(console, options.files))),
      flushed_(std::chrono::steady_clock::now()) {
    const SelectionOptions& selection = options.selection;
    const bool needsTimes = times.areShown || !selection.since.empty() || !selection.until.empty();
    const std::vector<std::int64_t> last = needsTimes ? lastTimes() : std::vector<std::int64_t>();
    times_.emplace(selection.time, sampleOf(last), console);
    hasMessages_ = !last.empty();
    newest_ = last.empty() ? 0 : *std::max_element(last.begin(), last.end());
    if (times.countFromNow && times_->unit().has_value()) {
        newest_ = nowIn(*times_);
    }
    for (Reader& reader : readers_) {
        try {
            selections_.push_back(selectionFor(reader.layout()));
        } catch (const UsageError& error) {
            if (readers_.size() == 1) {
                throw;
            }
            throw UsageError(fmt::format("{}: {}", shownPath(reader.path()), error.what()));
        }
    }
    if (readers_.empty()) {
        try {
            (void)selectionFor(Layout());
        } catch (const UsageError& error) {
            throw UsageError(fmt::format("there is no table yet: {}", error.what()));
        }
    }
}

std::vector<std::int64_t> MessageSource::lastTimes() {
    std::vector<std::int64_t> times;
    const auto add = [&times](Messages messages) {
        if (const MessageView* message = messages.next()) {
            times.push_back(message->time());
        }
    };
    for (Reader& reader : readers_) {
        try {
            add(reader.messages(Query().backward()));
        } catch (const Error&) {
            try {
                add(reader.messages());
            } catch (const Error&) {
                // Told when it is met among the messages.
            }
        }
    }
    return times;
}

std::vector<const Layout*> MessageSource::layouts() const {
    std::vector<const Layout*> layouts;
    for (const Reader& reader : readers_) {
        layouts.push_back(&reader.layout());
    }
    return layouts;
}

std::vector<std::string> MessageSource::names() const {
    std::vector<std::string> names;
    for (const Reader& reader : readers_) {
        names.push_back(reader.table());
    }
    return names;
}

Selection MessageSource::selectionFor(const Layout& layout) const {
    return makeSelection(options_.selection, layout, *times_, newest_);
}

void MessageSource::begin(const std::string& what, bool backward, const std::vector<Stretch>& stretches) {
    end();
    std::vector<Messages> messages;
    std::vector<std::string> names;
    shown_ = console_.watched(what);
    progress_.assign(readers_.size(), {});
    for (std::size_t i = 0; i < readers_.size(); ++i) {
        Query query = selections_[i].query;
        if (backward) {
            query.backward();
        }
        if (i < stretches.size() && stretches[i].from.has_value()) {
            query.from(*stretches[i].from);
        }
        std::optional<Position> before = i < stretches.size() ? stretches[i].before : std::nullopt;
        if (!before.has_value() && !backward) {
            before = endNow(readers_[i]);
        }
        if (before.has_value()) {
            query.before(*before);
        }
        messages.push_back(readers_[i].messages(query, workOf(i)));
        names.push_back(shownPath(readers_[i].path()));
    }
    merged_.emplace(console_, std::move(names), std::move(messages), merge_, backward);
}

const MessageView* MessageSource::next() {
    const MessageView* message = merged_->next();
    while (message != nullptr && selections_[merged_->table()].matches != nullptr &&
           !selections_[merged_->table()].matches(*message)) {
        message = merged_->next();
    }
    return message;
}

Work MessageSource::workOf(std::size_t table) {
    Work work;
    work.progress = [this, table](const Progress& progress) { showProgress(table, progress); };
    return work;
}

void MessageSource::showProgress(std::size_t table, const Progress& progress) {
    progress_[table] = progress;
    Progress all;
    for (const Progress& one : progress_) {
        all.done += one.done;
        all.total += one.total;
        all.messages += one.messages;
    }
    shown_.progress(all);
    // What a search has found is not held back until it has found more.
    const auto now = std::chrono::steady_clock::now();
    if (now - flushed_ > LONGEST_HELD) {
        flushed_ = now;
        console_.flush();
    }
}

void MessageSource::explain() {
    if (!options_.selection.explain) {
        return;
    }
    for (std::size_t i = 0; i < readers_.size(); ++i) {
        const Messages& messages = merged_->of(i);
        const Selection& selection = selections_[i];
        const std::int64_t blocks = messages.blocksRead() + messages.blocksSkipped();
        console_.say(
            fmt::format("{}: asked of footers and filters: {}; of messages: {}; {} of {} blocks skipped, "
                        "{} messages looked at",
                        shownPath(readers_[i].path()), selection.pushedDown.empty() ? "nothing" : selection.pushedDown,
                        selection.tested.empty() ? "nothing else" : selection.tested, messages.blocksSkipped(), blocks,
                        messages.messagesRead()));
    }
}

}  // namespace tabulo::tool
