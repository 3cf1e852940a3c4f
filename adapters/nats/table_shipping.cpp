#include "adapters/nats/table_shipping.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "adapters/nats/layout_text.h"

namespace tabulo::shipping {

namespace {

// Of a frame that was shipped so much is compared with the file: its beginning has what tells messages apart.
constexpr std::size_t MOST_COMPARED = 4096;
constexpr std::chrono::seconds MADE_WITHIN{2};
// How often it is looked whether tables that are quiet still hold what was shipped.
constexpr std::chrono::milliseconds COMPARED_EVERY{100};

std::span<const std::byte> comparedOf(std::span<const std::byte> bytes) {
    return bytes.first(std::min(bytes.size(), MOST_COMPARED));
}

// A table that is made anew is away for a moment, or has no header yet.
void waitUntilThere(const std::filesystem::path& path) {
    const auto end = std::chrono::steady_clock::now() + MADE_WITHIN;
    while (std::chrono::steady_clock::now() < end) {
        try {
            const Reader reader(path);
            return;
        } catch (const Error&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
}

}  // namespace

TableShipping::TableShipping(Publisher& publisher, Words words, ShipLeave leave)
    : publisher_(publisher), words_(std::move(words)), leave_(leave) {
}

void TableShipping::add(const std::filesystem::path& path) {
    Following following{.table = SourceTable(path)};
    (void)resume(&following, false);  // it is left out then, which was told
    const std::scoped_lock lock(mutex_);
    tables_.push_back(std::move(following));
}

bool TableShipping::has(const std::string& table) const {
    return std::any_of(tables_.begin(), tables_.end(),
                       [&](const Following& following) { return following.table.name() == table; });
}

void TableShipping::leaveOut(Following* following, const std::string& why) {
    following->number.reset();
    isWhole_ = false;
    words_.warn(why);
}

// Goes on with a table where the stream has it. `isLive`: it was followed until now, so that nothing can have been
// missed.
bool TableShipping::resume(Following* following, bool isLive) {
    publisher_.stream().settle();
    following->end = 0;
    try {
        const Shipped shipped = following->table.ask(publisher_.stream());
        if (shipped.incarnation == 0 && publisher_.stream().ends().first > 1) {
            // It may have been in the stream before. Each of its contents has cost a record.
            return begin(following, static_cast<std::int64_t>(publisher_.last()));
        }
        if (shipped.incarnation == 0 || shipped.kind == RecordKind::drop || shipped.kind == RecordKind::gap) {
            return begin(following, shipped.incarnation + 1);
        }
        switch (following->table.compare(publisher_.stream(), shipped)) {
            case Since::same:
                if (shipped.bytes.empty() && !hasLayoutOf(*following)) {
                    return begin(following, shipped.incarnation + 1);
                }
                return follow(following, shipped);
            case Since::missing:
            case Since::dropped:
                return startAnew(following, shipped, isLive);
            case Since::rewound:
                return resumeRewound(following, shipped);
        }
    } catch (const Error& error) {
        leaveOut(following, error.what());
    } catch (const ForeignRecord& error) {
        leaveOut(following, following->table.name() + " is not shipped: " + error.what());
    }
    return false;
}

// Whether the newest layout that the stream has is the file's.
bool TableShipping::hasLayoutOf(const Following& following) const {
    LogStream& stream = publisher_.stream();
    const std::string text = layoutText(Reader(following.table.path()).layout());
    const std::optional<Stored> stored =
        stream.last(subjectOf(stream.name(), following.table.name(), RecordKind::layout));
    return stored.has_value() && std::ranges::equal(stored->payload, bytesOf(text));
}

bool TableShipping::begin(Following* following, std::int64_t incarnation) {
    Reader reader(following->table.path());
    const std::string text = layoutText(reader.layout());
    publisher_.publish({.kind = RecordKind::layout,
                        .table = following->table.name(),
                        .incarnation = incarnation,
                        .offset = reader.begin().block,
                        .payload = bytesOf(text)});
    return follow(following, {.incarnation = incarnation});
}

// The file holds what was shipped: it is followed from behind that.
bool TableShipping::follow(Following* following, const Shipped& shipped) {
    const SourceTable::Place place = following->table.placeBehind(shipped);
    const std::size_t number = follower_.add(following->table.path(), FollowFrom::position(place.position));
    TableBytes file(following->table.path());
    if (!shipped.bytes.empty() && !file.holds(shipped.bytesAt, shipped.bytes)) {
        follower_.remove(number);
        throw Unreachable(following->table.name() + " has just become another one");
    }
    const std::scoped_lock lock(mutex_);
    following->number = number;
    following->incarnation = shipped.incarnation;
    following->file = std::move(file);
    const auto compared = comparedOf(shipped.bytes);
    following->newest.assign(compared.begin(), compared.end());
    following->newestAt = shipped.bytesAt;
    following->next = place.position.offset;
    following->shipped = place.messages;
    return true;
}

// The file has another content than the one that was shipped.
bool TableShipping::startAnew(Following* following, const Shipped& shipped, bool isLive) {
    const std::string& name = following->table.name();
    if (!isLive) {
        const std::string what = name + " was emptied or replaced while it was not followed: what it held behind the " +
                                 "uniform id " + std::to_string(shipped.uniformId) + " is not in the stream";
        if (!leave_.allowGap) {
            leaveOut(following, what + "; --allow-gap goes on with what it holds now, and records that");
            return false;
        }
        words_.say(what);
        publisher_.publish(
            {.kind = RecordKind::gap, .table = name, .incarnation = shipped.incarnation, .payload = bytesOf(what)});
    }
    publisher_.publish({.kind = RecordKind::drop, .table = name, .incarnation = shipped.incarnation});
    return begin(following, shipped.incarnation + 1);
}

void TableShipping::tellMissing(const std::string& table) {
    Shipped shipped;
    try {
        shipped = SourceTable(table).ask(publisher_.stream());
    } catch (const ForeignRecord& error) {
        isWhole_ = false;
        words_.warn(table + " is in the stream, but not among the tables: " + error.what());
        return;
    }
    if (shipped.kind == RecordKind::drop || shipped.kind == RecordKind::gap) {
        return;
    }
    const std::string what = table +
                             " is in the stream, but not among the tables: what it held behind the uniform id " +
                             std::to_string(shipped.uniformId) + " is not in the stream";
    if (!leave_.allowGap) {
        isWhole_ = false;
        words_.warn(what + "; name its file, or record that with --allow-gap");
        return;
    }
    words_.say(what);
    publisher_.publish({.kind = RecordKind::gap,
                        .table = table,
                        .incarnation = std::max<std::int64_t>(shipped.incarnation, 1),
                        .payload = bytesOf(what)});
}

// The stream has messages that the file has not, or not any more.
bool TableShipping::resumeRewound(Following* following, const Shipped& shipped) {
    ValueRange<std::int32_t> lost;
    const Shipped common = following->table.newestCommon(publisher_.stream(), shipped, &lost);
    const std::string what = "the stream is ahead of " + following->table.path().string() +
                             ": it has messages with uniform ids from " + std::to_string(lost.first) + " to " +
                             std::to_string(lost.last) + " that the file has not";
    if (!leave_.acceptRewind) {
        isRewound_ = true;
        leaveOut(following, what + "; nothing more is shipped until --accept-rewind tells to cut them off the copies");
        return false;
    }
    words_.say(what + ": the copies are to cut them off");
    Reader reader(following->table.path());
    const SourceTable::Place place = following->table.placeBehind(common);
    std::vector<std::byte> kept;
    if (!common.bytes.empty()) {
        Messages messages = reader.messages(Query().before(place.position).backward());
        if (const MessageView* message = messages.next(); message != nullptr) {
            const auto compared = comparedOf(message->frame());
            kept.assign(compared.begin(), compared.end());
        }
    }
    publisher_.publish({.kind = RecordKind::rewind,
                        .table = following->table.name(),
                        .incarnation = shipped.incarnation,
                        .offset = place.position.offset,
                        .at = common.frameAt,
                        .payload = kept});
    return follow(following, common);
}

// A followed table's file has changed in another way than by appends.
void TableShipping::change(Following* following) {
    follower_.remove(*following->number);
    following->number.reset();
    waitUntilThere(following->table.path());
    if (resume(following, true)) {
        noteEnd(following);  // session values that wait may tell of what it holds now
    }
}

void TableShipping::ship(const MessageView& message) {
    Following* following = numbered(message.tableIndex());
    if (following == nullptr) {
        return;
    }
    if (isEmptied(*following)) {
        change(following);
        return;
    }
    publisher_.publish(message, following->incarnation);
    const auto compared = comparedOf(message.frame());
    const std::scoped_lock lock(mutex_);
    following->newest.assign(compared.begin(), compared.end());
    following->newestAt = message.position().offset;
    following->next = message.next().offset;
    following->shipped += 1;
}

TableShipping::Following* TableShipping::numbered(std::size_t number) {
    const auto found = std::find_if(tables_.begin(), tables_.end(),
                                    [&](const Following& following) { return following.number == number; });
    return found == tables_.end() ? nullptr : &*found;
}

// A table that was emptied and filled again up to its place before it was looked at shows no other sign.
bool TableShipping::isEmptied(const Following& following) {
    return following.number.has_value() && !following.newest.empty() &&
           !following.file.holds(following.newestAt, following.newest);
}

// Goes on with the new content of a quiet table; false when there is none.
bool TableShipping::changeEmptied() {
    const auto now = std::chrono::steady_clock::now();
    if (now - comparedAt_ < COMPARED_EVERY) {
        return false;
    }
    comparedAt_ = now;
    const auto emptied = std::find_if(tables_.begin(), tables_.end(), isEmptied);
    if (emptied != tables_.end()) {
        change(&*emptied);
    }
    return emptied != tables_.end();
}

bool TableShipping::step(std::chrono::milliseconds timeout) {
    try {
        const FollowEvent event = follower_.next(timeout);
        if (event.kind == FollowEventKind::timedOut) {
            return changeEmptied();
        }
        if (event.kind == FollowEventKind::message) {
            ship(*event.message);
        } else if (Following* following = numbered(event.table); following != nullptr) {
            change(following);
        }
    } catch (const Error& error) {
        const auto found = std::find_if(tables_.begin(), tables_.end(),
                                        [&](const Following& table) { return table.table.path() == error.path(); });
        if (found == tables_.end()) {
            throw;
        }
        if (isEmptied(*found)) {  // no damage: the place is in the midst of the new content
            change(&*found);
        } else {
            leaveOut(&*found, error.what());
        }
    }
    return true;
}

void TableShipping::noteEnd(Following* following) {
    try {
        following->end = Reader(following->table.path()).end().offset;
        if (following->end < following->next || isEmptied(*following)) {
            following->end = INT64_MAX;  // another content, whose end is noted when the change is seen
        }
    } catch (const Error&) {
        following->end = 0;  // told when it is reached
    }
}

void TableShipping::renewEnds() {
    for (Following& following : tables_) {
        if (following.end == INT64_MAX) {
            noteEnd(&following);
        }
    }
}

void TableShipping::noteEnds() {
    for (Following& following : tables_) {
        noteEnd(&following);
    }
}

bool TableShipping::hasReachedEnds() const {
    return std::all_of(tables_.begin(), tables_.end(), [](const Following& following) {
        return !following.number.has_value() || following.next >= following.end;
    });
}

TableShipping::Lag TableShipping::lag() const {
    const std::scoped_lock lock(mutex_);
    Lag lag;
    for (const Following& following : tables_) {
        try {
            const TableInfo info = inspect(following.table.path());
            lag.messages += std::max<std::int64_t>(info.messageCount - following.shipped, 0);
            lag.bytes += std::max<std::int64_t>(info.fileSize - following.next, 0);
        } catch (const Error&) {
            continue;  // it cannot be read just now
        }
    }
    return lag;
}

}  // namespace tabulo::shipping
