#include "api/followed_table.h"

#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/open_table.h"
#include "index/uniform_lookup.h"
#include "storage/table_file.h"

namespace tabulo::api {

namespace {

// A file that was dropped or replaced may be seen before it has its whole header: it is waited for so long.
constexpr std::chrono::seconds LONGEST_START(1);

internal::TableFile* fileOf(const FollowedTable& table) {
    return openTable_file(table.reader->open.get());
}

void begin(FollowedTable* table, std::shared_ptr<ReaderState> reader, const Position& position) {
    reader->table->index = table->index;
    table->messages.emplace(reader_messages(reader, Query().from(position), {}));
    table->reader = std::move(reader);
    table->shown = table->reader->table;
    table->position = position;
    table->fileEnd = 0;
    table->isWatched = false;
}

// True for what is wrong with a file that is only being made.
bool mayPass(Code code) {
    switch (code) {
        case Code::fileOpen:
        case Code::fileSize:
        case Code::streamNotEnoughData:
        case Code::streamReadReset:
        case Code::signature:
            return true;
        default:
            return false;
    }
}

// Opens what stands at the path now. A file that is not ready is left for the next look.
void reopen(FollowedTable* table, FollowEventKind change, std::deque<FollowEvent>* events) {
    const auto now = std::chrono::steady_clock::now();
    if (!table->change.has_value()) {
        table->change = change;
        table->changedAt = now;
    }
    std::shared_ptr<ReaderState> reader;
    try {
        reader = reader_open(table->path);
    } catch (const Error& error) {
        if (!mayPass(error.code()) || now - table->changedAt > LONGEST_START) {
            throw;
        }
        return;
    }
    const bool sameLayout = reader->table->layout == table->shown->layout;
    const Position first = reader_begin(*reader);
    begin(table, std::move(reader), first);
    events->push_back({*std::exchange(table->change, std::nullopt), table->index, nullptr});
    if (!sameLayout) {
        events->push_back({FollowEventKind::layoutChanged, table->index, nullptr});
    }
}

}  // namespace

Position FollowedTable::startOf(const Call& call, ReaderState& reader, const FollowFrom& from) {
    internal::UniformPlace place;
    switch (from.kind_) {
        case FollowFrom::Kind::end:
            return reader_end(call, reader);
        case FollowFrom::Kind::position:
            return from.position_;
        case FollowFrom::Kind::uniformId:
            call.check(internal::mt_findUniformId(reader.open.get(), from.uniformId_, &place));
            return {place.frame.block, place.frame.frame};
        default:
            return reader_begin(reader);
    }
}

std::unique_ptr<FollowedTable> followedTable_open(const std::filesystem::path& path, const FollowFrom& from) {
    auto table = std::make_unique<FollowedTable>();
    table->path = path;
    std::shared_ptr<ReaderState> reader = reader_open(path);
    const Call call(path);
    const Position start = FollowedTable::startOf(call, *reader, from);
    begin(table.get(), std::move(reader), start);
    return table;
}

void followedTable_measure(FollowedTable* table) {
    const Call call(table->path);
    call.check(internal::tableFileGetSize(fileOf(*table), &table->fileEnd));
}

void followedTable_look(FollowedTable* table, std::deque<FollowEvent>* events) {
    if (table->pending != nullptr) {
        return;
    }
    if (table->change.has_value()) {
        reopen(table, *table->change, events);
        return;
    }
    table->pending = table->messages->next();
    const bool isReplaced = table->pending == nullptr && internal::tableFileIsReplaced(fileOf(*table));
    if (isReplaced) {
        // What was stored before that comes first.
        table->pending = table->messages->next();
    }
    if (table->pending != nullptr) {
        return;
    }
    if (isReplaced) {
        reopen(table, FollowEventKind::replaced, events);
    } else if (table->messages->ending() == Ending::dropped) {
        reopen(table, FollowEventKind::dropped, events);
    }
}

bool followedTable_watch(FollowedTable* table, internal::FileChanges* changes) {
    if (table->isWatched) {
        return false;
    }
    const int before = table->watch;
    table->watch = internal::fileChanges_watch(changes, fileOf(*table));
    table->isWatched = true;
    internal::fileChanges_unwatch(changes, before);  // behind the other: it may be the same file
    return true;
}

bool followedTable_isReported(const FollowedTable& table) {
    return table.isWatched && table.watch != internal::NO_FILE_WATCH && !table.change.has_value();
}

void followedTable_take(FollowedTable* table) {
    table->position = table->pending->next();
    table->pending = nullptr;
}

void followedTable_close(FollowedTable* table) {
    table->pending = nullptr;
    table->messages.reset();
    table->reader.reset();
}

}  // namespace tabulo::api
