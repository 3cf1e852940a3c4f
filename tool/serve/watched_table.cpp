#include "tool/serve/watched_table.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

#include "tabulo/error.h"
#include "tabulo/session_info.h"
#include "tool/serve/message_way.h"
#include "tool/table_cells.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::chrono::seconds RATE_TIME(10);
// Counting a day takes the blocks of it, so it is not done at every message.
constexpr std::chrono::seconds DAY_TIME(5);
// A table that is damaged, or whose changes its file's time may hide, is looked at as a whole that often at most.
constexpr std::chrono::seconds ALL_TIME(2);
constexpr double DAY_STEPS = 96;
constexpr double DAY = 24.0 * 3600;
// How far back the newest message of a direction is looked for.
constexpr std::int64_t MOST_LOOKED_BACK = 20000;

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool isSameState(const struct stat& a, const struct stat& b) {
    return isSameFile(a, b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

WatchedTable::WatchedTable(std::string id, std::filesystem::path path) {
    sight_.id = std::move(id);
    sight_.path = std::move(path);
    static_cast<void>(::stat(sight_.path.c_str(), &seen_));  // what cannot be read is told by what follows
    lookAtAll(Content::other);
}

void WatchedTable::lookAtAll(Content content) {
    lookedAtAll_ = Clock::now();
    sight_.info = inspect(sight_.path);
    sight_.damage = sight_.info.problem.has_value() ? sight_.info.problem->what() : "";
    if (sight_.info.kind == TableKind::sessionInfo) {
        lookAtSessionInfos();
        return;
    }
    const std::optional<std::int64_t> sample = sampleTime(sight_.info);
    sight_.unit = sample.has_value() ? guessTimeUnit(*sample) : std::nullopt;
    sight_.hasIndex = indexOf(sight_.info).has_value();
    if (content == Content::other || sight_.marks == nullptr) {
        sight_.marks = std::make_shared<TableMarks>(sight_.path, sight_.unit);
        sight_.spans = std::make_shared<BlockSpans>(sight_.path);
    }
    sight_.lastSent.reset();
    sight_.lastReceived.reset();
    arrivals_.clear();
    reader_.emplace(sight_.path);
    try {
        end_ = reader_->end();
        findLast(*reader_);
    } catch (const Error& error) {
        sight_.damage = error.what();
    }
    countDay();
}

void WatchedTable::lookAtSessionInfos() {
    sight_.values.clear();
    try {
        for (const SessionValue& value : SessionInfo::open(sight_.path).values()) {
            sight_.values.emplace_back(value.tag, value.value);
        }
    } catch (const Error& error) {
        sight_.damage = error.what();
    }
}

void WatchedTable::take(const MessageView& message) {
    const auto messageClass = message.messageClass();
    if (message.seqNum() <= 0 || !messageClass.has_value()) {
        return;
    }
    LastMessage last{message.seqNum(), message.time(), std::string(message.type())};
    if (isSent(*messageClass)) {
        sight_.lastSent = std::move(last);
    } else if (isReceived(*messageClass)) {
        sight_.lastReceived = std::move(last);
    }
}

// From the end back: the newest of each direction, which may be far away where one of them is silent.
void WatchedTable::findLast(Reader& reader) {
    Messages messages = reader.messages(Query().backward().before(end_));
    std::optional<LastMessage> sent;
    std::optional<LastMessage> received;
    for (std::int64_t looked = 0; looked < MOST_LOOKED_BACK && (!sent || !received); ++looked) {
        const MessageView* message = messages.next();
        if (message == nullptr) {
            break;
        }
        if (looked == 0) {  // up to here, wherever the table ended when it was inspected
            sight_.info.messageCount = message->ordinal() + 1;
            sight_.info.lastTime = std::max(sight_.info.lastTime.value_or(message->time()), message->time());
        }
        take(*message);
        sent = sent ? sent : sight_.lastSent;
        received = received ? received : sight_.lastReceived;
    }
    sight_.lastSent = sent;
    sight_.lastReceived = received;
}

void WatchedTable::countDay() {
    dayCounted_ = Clock::now();
    sight_.day.reset();
    if (!sight_.unit.has_value() || !sight_.info.lastTime.has_value()) {
        return;
    }
    constexpr double MILLISECONDS = 1000;
    TimeBuckets day;
    day.step = DAY * MILLISECONDS / DAY_STEPS;
    // Whole steps, so that the picture does not tremble while messages come.
    day.from = (std::floor(pageTime(*sight_.info.lastTime, sight_.unit) / day.step) + 1 - DAY_STEPS) * day.step;
    day.counts.resize(static_cast<std::size_t>(DAY_STEPS));
    for (const BlockSpan& span : sight_.spans->all()) {
        day.addEvenly(pageTime(span.firstTime, sight_.unit), pageTime(span.lastTime, sight_.unit), span.messages);
    }
    sight_.day = day;
}

void WatchedTable::lookAtNew() {
    Query query;
    query.from(end_);
    Messages messages = reader_->messages(query);
    std::int64_t count = 0;
    while (const MessageView* message = messages.next()) {
        take(*message);
        end_ = message->next();
        count += 1;
        sight_.info.lastTime = std::max(sight_.info.lastTime.value_or(message->time()), message->time());
        if (!sight_.info.firstTime.has_value()) {
            lookAtAll(Content::other);  // the first messages of an empty table tell the unit of its times
            return;
        }
    }
    if (messages.ending() == Ending::dropped) {
        lookAtAll(Content::other);
        return;
    }
    if (count > 0) {
        arrivals_.emplace_back(Clock::now(), count);
        sight_.info.messageCount += count;
        const std::int64_t perBlock = sight_.info.layout.messagesPerBlock;
        sight_.info.closedBlocks = std::max(sight_.info.closedBlocks, sight_.info.messageCount / perBlock);
        sight_.info.lastGood = reader_->lastGood();
        sight_.info.firstPending = reader_->firstPending();
        sight_.info.lastPending = reader_->lastPending();
        if (Clock::now() - dayCounted_ >= DAY_TIME) {
            countDay();
        }
    }
}

bool WatchedTable::updateRate(Clock::time_point now) {
    while (!arrivals_.empty() && now - arrivals_.front().first > RATE_TIME) {
        arrivals_.pop_front();
    }
    std::int64_t messages = 0;
    for (const auto& [when, count] : arrivals_) {
        messages += count;
    }
    const double rate = static_cast<double>(messages) / static_cast<double>(RATE_TIME.count());
    const bool isChanged = rate != sight_.rate;
    sight_.rate = rate;
    return isChanged;
}

// True when other marks have been found than those that were told last.
bool WatchedTable::hasNewMarks() {
    if (sight_.marks == nullptr) {
        return false;
    }
    const TableMarks::Found found = sight_.marks->counts();
    const bool isNew = found.gaps != marks_.gaps || found.resends != marks_.resends ||
                       found.complete != marks_.complete || found.damage != marks_.damage;
    marks_ = found;
    if (sight_.damage.empty()) {
        sight_.damage = found.damage;
    }
    return isNew;
}

bool WatchedTable::look(Clock::time_point now) {
    const bool hasMarks = hasNewMarks();
    return lookAtFile(now) || hasMarks;
}

bool WatchedTable::lookAtFile(Clock::time_point now) {
    struct stat found {};
    if (::stat(sight_.path.c_str(), &found) != 0) {
        const std::string why = std::strerror(errno);
        const bool isNew = sight_.damage != why;
        sight_.damage = why;
        return isNew;
    }
    // A file's time goes on in steps: what was written in the same one as what was seen does not change it.
    const bool mayHideChange = sight_.info.kind == TableKind::sessionInfo && now - lookedAtAll_ >= ALL_TIME &&
                               std::time(nullptr) - found.st_mtim.tv_sec <= 2;
    const bool isSame = isSameFile(found, seen_) && found.st_size >= seen_.st_size;
    const bool isDamaged = !sight_.damage.empty() && isSame && now - lookedAtAll_ < ALL_TIME;
    if ((isSameState(found, seen_) && !mayHideChange) || isDamaged) {
        return updateRate(now);
    }
    seen_ = found;
    try {
        if (!isSame || sight_.info.kind == TableKind::sessionInfo || !reader_.has_value() || !sight_.damage.empty()) {
            lookAtAll(isSame ? Content::same : Content::other);
        } else {
            lookAtNew();
        }
        sight_.info.fileSize = found.st_size;
    } catch (const Error& error) {
        sight_.damage = error.what();
    }
    updateRate(now);
    return true;
}

bool WatchedTable::askForWriter() {
    OpenForWriting open = OpenForWriting::unknown;
    try {
        open = isOpenForWriting(sight_.path);
    } catch (const Error&) {
        open = OpenForWriting::unknown;  // the file is gone, which look() tells
    }
    const bool isChanged = open != sight_.info.openForWriting;
    sight_.info.openForWriting = open;
    return isChanged;
}

}  // namespace tabulo::tool::serve
