#include "tool/message_follower.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tool/status.h"
#include "tool/table_cells.h"
#include "tool/tables.h"

namespace tabulo::tool {

namespace {

// How often a wait looks whether the user has asked to end.
constexpr std::chrono::milliseconds LOOK_TIME(200);
constexpr std::chrono::seconds LONGEST_UNSETTLED(1);
// How often folders are looked at for new tables, and how often one that is no table yet is tried.
constexpr std::chrono::milliseconds FOLDER_TIME(500);
constexpr int TRIES(10);

}  // namespace

std::string tailName(const std::filesystem::path& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

MessageFollower::MessageFollower(Console& console, MessageSource& source, MessageOutput& output, std::string stateFile,
                                 TailPlaces* state)
    : console_(console),
      source_(source),
      output_(output),
      stateFile_(std::move(stateFile)),
      state_(state),
      looked_(std::chrono::steady_clock::now()),
      settled_(std::chrono::steady_clock::now()) {
}

void MessageFollower::add(std::size_t table, const Position& from) {
    const Reader& reader = source_.readers()[table];
    try {
        follower_.add(reader.path(), FollowFrom::position(from));
    } catch (const Error& error) {
        if (error.code() != Code::vseek) {
            throw;
        }
        console_.say(fmt::format("{} is not what it was: it is read from its beginning", shownPath(reader.path())));
        follower_.add(reader.path());
    }
    tables_.push_back({reader.path(), tailName(reader.path()), {}, {}, false});
    select(&tables_.back(), source_.selection(table), reader.layout());
}

void MessageFollower::select(Table* table, Selection selection, const Layout& layout) {
    table->selection = std::move(selection);
    table->matcher.emplace(table->selection.query, layout);
}

void MessageFollower::run(bool once) {
    try {
        while (goesOn()) {
            Console::checkInterrupt();
            lookForNewTables();
            const bool isWaiting = !isUnsettled_ && !once;
            const std::optional<FollowEvent> event = nextEvent(isWaiting ? LOOK_TIME : std::chrono::milliseconds(0));
            if (event.has_value() && event->kind == FollowEventKind::message) {
                onMessage(*event);
            } else if (event.has_value() && event->kind == FollowEventKind::layoutChanged) {
                onLayoutChange(*event);
            } else if (event.has_value() && event->kind != FollowEventKind::timedOut) {
                onChange(*event);
            } else if (event.has_value() && once) {
                break;
            } else if (event.has_value() && isUnsettled_) {
                settle();
            } else {
                Console::checkReader();
            }
            if (isUnsettled_ && std::chrono::steady_clock::now() - settled_ > LONGEST_UNSETTLED) {
                settle();
            }
        }
    } catch (const Interrupted&) {
        settle();
        throw;
    }
    settle();
}

void MessageFollower::lookForNewTables() {
    const auto now = std::chrono::steady_clock::now();
    if (!newTables_.has_value() || now - looked_ < FOLDER_TIME) {
        return;
    }
    looked_ = now;
    for (const std::filesystem::path& path : newTables_->look()) {
        if (addNew(path, ++triesOfNew_[path] == TRIES)) {
            newTables_->know(path);
            triesOfNew_.erase(path);
        }
    }
}

bool MessageFollower::addNew(const std::filesystem::path& path, bool isLastTry) {
    if (std::any_of(tables_.begin(), tables_.end(), [&](const Table& table) { return table.path == path; })) {
        return true;
    }
    try {
        const Reader reader(path);
        Table table{path, tailName(path), {}, {}, false};
        select(&table, source_.selectionFor(reader.layout()), reader.layout());
        settle();
        follower_.add(path);
        tables_.push_back(std::move(table));
        (*state_)[tables_.back().name] = std::nullopt;
        output_.addTable(reader.table());
        console_.say(fmt::format("{} is new, and followed from its first message", shownPath(path)));
        beginOutput();
    } catch (const Error& error) {
        if (error.code() == Code::tableType && isOfKind(path, TableKind::sessionInfo)) {
            return true;
        }
        if (isLastTry) {
            console_.warn(fmt::format("left out: {}", error.what()));
        }
        return isLastTry;
    } catch (const UsageError& error) {
        console_.warn(fmt::format("{} is new, and not followed: {}", shownPath(path), error.what()));
    }
    return true;
}

// None when a table has failed.
std::optional<FollowEvent> MessageFollower::nextEvent(std::chrono::milliseconds timeout) {
    try {
        return follower_.next(timeout);
    } catch (const Error& error) {
        const auto found = std::find_if(tables_.begin(), tables_.end(),
                                        [&](const Table& table) { return !table.isOut && table.path == error.path(); });
        if (found == tables_.end()) {
            throw;
        }
        leaveOut(&*found, error.what());
        return std::nullopt;
    }
}

void MessageFollower::leaveOut(Table* table, std::string_view why) {
    table->isOut = true;
    settle();
    console_.warn(why);
}

bool MessageFollower::goesOn() const {
    const bool isAwaiting = newTables_.has_value() && source_.readers().empty() && tables_.empty();
    return isAwaiting || std::any_of(tables_.begin(), tables_.end(), [](const Table& table) { return !table.isOut; });
}

void MessageFollower::onMessage(const FollowEvent& event) {
    const Table& table = tables_[event.table];
    const MessageView& message = *event.message;
    tellRepeat(message);
    const auto& matches = table.selection.matches;
    if ((*table.matcher)(message) && (matches == nullptr || matches(message))) {
        output_.print(message);
    }
    if (!stateFile_.empty()) {
        (*state_)[table.name] = placeOf(message);
    }
    isUnsettled_ = true;
}

// Ids of one engine are given once, so that two tables with the same one come from two engines.
void MessageFollower::tellRepeat(const MessageView& message) {
    const bool isRepeat =
        message.uniformId() != 0 && message.uniformId() == lastUniformId_ && message.tableIndex() != lastTable_;
    if (isRepeat && !repeatTold_) {
        repeatTold_ = true;
        console_.say(fmt::format("{} and {} both have uniform id {}: their ids are not of one sequence",
                                 shownPath(tables_[lastTable_].path), shownPath(tables_[message.tableIndex()].path),
                                 lastUniformId_));
    }
    lastTable_ = message.tableIndex();
    lastUniformId_ = message.uniformId();
}

void MessageFollower::onChange(const FollowEvent& event) {
    Table& table = tables_[event.table];
    (*state_)[table.name] = std::nullopt;
    settle();
    beginOutput();
    console_.say(fmt::format("{} {}: it goes on with the first message that is stored there now", shownPath(table.path),
                             event.kind == FollowEventKind::dropped ? "was emptied" : "was replaced by another file"));
}

void MessageFollower::onLayoutChange(const FollowEvent& event) {
    Table& table = tables_[event.table];
    const Layout& layout = follower_.layout(event.table);
    console_.say(fmt::format("{} has other fields than before", shownPath(table.path)));
    try {
        select(&table, source_.selectionFor(layout), layout);
    } catch (const UsageError& error) {
        follower_.remove(event.table);
        leaveOut(&table, fmt::format("{} is followed no more: {}", shownPath(table.path), error.what()));
    }
    beginOutput();
}

void MessageFollower::beginOutput() {
    std::vector<const Layout*> layouts;
    for (std::size_t i = 0; i < tables_.size(); ++i) {
        layouts.push_back(&follower_.layout(i));
    }
    output_.begin(source_.times(), std::move(layouts));
}

void MessageFollower::settle() {
    console_.flush();
    if (!stateFile_.empty()) {
        writeTailState(stateFile_, *state_);
    }
    isUnsettled_ = false;
    settled_ = std::chrono::steady_clock::now();
}

}  // namespace tabulo::tool
