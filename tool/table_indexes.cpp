#include "tool/table_indexes.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "tool/status.h"
#include "tool/table_cells.h"

namespace tabulo::tool {

namespace {

// Indexes are a help and need not be up to date at once: what is new is looked for so often.
constexpr std::chrono::milliseconds ROUND_TIME(200);
// A table that grows all the time gets a row so often.
constexpr std::chrono::seconds ROW_TIME(10);
// How often a file in a folder that is no table yet is tried.
constexpr int TRIES = 10;

ListRecord rowOf(const IndexState& state) {
    const bool hasIndex = state.index.has_value();
    const IndexInfo index = state.index.value_or(IndexInfo{});
    const auto known = [hasIndex](std::int64_t value) { return hasIndex ? ListValue(value) : ListValue(); };
    const double share =
        state.bytes > 0 ? 100.0 * static_cast<double>(index.bytes) / static_cast<double>(state.bytes) : 0.0;
    const double seconds = state.time.has_value() ? state.time->count() : 0;
    const bool hasRate = state.added.value_or(0) > 0 && seconds > 0;
    const double rate = hasRate ? static_cast<double>(*state.added) / seconds : 0.0;
    ListRecord record;
    record.add("table", "", {state.path.filename().string()});
    record.add("path", "TABLE", {state.path.lexically_normal().string()});
    record.add("index", "", {indexPath(state.path).lexically_normal().string()});
    record.add("messages", "MESSAGES", {state.messages});
    record.add("covered", "COVERED", {known(index.messages)});
    record.add("blocks", "BLOCKS", {known(index.blocks)});
    record.add("runs", "RUNS", {known(index.runs)});
    record.add("bytes", "SIZE", hasIndex ? bytesCell(index.bytes) : ListCell());
    record.add("share", "% OF TABLE", hasIndex ? ListCell{share, fmt::format("{:.1f}", share)} : ListCell());
    record.add("added", "NEW", {optionalValue(state.added)});
    record.add("seconds", "TIME",
               state.time.has_value() ? ListCell{seconds, fmt::format("{:.3f} s", seconds)} : ListCell());
    record.add("perSecond", "MSG/S", hasRate ? ListCell{static_cast<std::int64_t>(rate)} : ListCell());
    return record;
}

// Ends before its time when the user asks to end.
void pause() {
    (void)::poll(nullptr, 0, static_cast<int>(ROUND_TIME.count()));
    Console::checkInterrupt();
    Console::checkReader();
}

// What the index cannot be written for, or not now; every other failure is one of the table.
bool isOfIndex(const Error& error) {
    return error.code() == Code::fileWrite || error.code() == Code::fileOpen || error.code() == Code::signature;
}

}  // namespace

void IndexListing::add(const IndexState& state) {
    const ListRecord record = rowOf(state);
    if (listing_ == nullptr) {
        listing_ = std::make_unique<Listing>(console_, format_, record.columns);
    }
    listing_->add(record.row);
}

void IndexListing::end() {
    if (listing_ != nullptr) {
        listing_->end();
    }
    console_.flush();
}

void IndexListing::show(const IndexState& state) {
    add(state);
    end();
}

TableIndexes::FileState TableIndexes::stateOf(const std::filesystem::path& path) {
    struct stat state {};
    if (::stat(path.c_str(), &state) != 0) {
        return {};
    }
    constexpr std::int64_t NANOSECONDS = 1'000'000'000;
    return {state.st_dev, state.st_ino, state.st_size, state.st_mtim.tv_sec * NANOSECONDS + state.st_mtim.tv_nsec};
}

// Opens the table and covers what is there.
void TableIndexes::complete(Table* table) {
    const TableInfo info = inspect(table->path);
    const std::optional<IndexInfo> before = inspectIndex(table->path);
    table->seen = stateOf(table->path);
    table->indexer.reset();  // which has the index locked
    table->indexer.emplace(table->path);
    IndexState state{table->path, info.messageCount, info.fileSize};
    const auto begun = Clock::now();
    std::optional<Error> damage;
    try {
        static_cast<void>(table->indexer->complete(console_.watched("indexing " + shownPath(table->path))));
    } catch (const Error& error) {
        if (isOfIndex(error)) {
            throw;
        }
        damage = error;
    }
    state.time = Clock::now() - begun;
    state.index = table->indexer->info();
    state.added = std::max<std::int64_t>(0, state.index->messages - (before.has_value() ? before->messages : 0));
    table->told = state.index->messages;
    listing_.add(state);
    if (damage.has_value()) {
        console_.warn(damage->what());
    } else if (state.index->blocks < info.closedBlocks) {
        console_.warn(
            fmt::format("the index of {0} ends in front of the block at {1}; 'tabulo verify {0}' tells "
                        "whether that is damaged",
                        shownPath(table->path), state.index->coveredEnd));
    }
}

void TableIndexes::add(const std::filesystem::path& path, bool keeps) {
    const auto isSame = [&](const Table& table) { return std::filesystem::equivalent(table.path, path); };
    if (std::any_of(tables_.begin(), tables_.end(), isSame)) {
        return;  // named twice
    }
    Table table{.path = path, .indexer = {}};
    complete(&table);
    if (keeps) {
        tables_.push_back(std::move(table));
    }
}

void TableIndexes::tell(Table* table) {
    const IndexInfo index = table->indexer->info();
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(table->path, unknown);
    const std::int64_t bytes = unknown ? 0 : static_cast<std::int64_t>(size);
    listing_.show({table->path, index.messages, bytes, index, std::max<std::int64_t>(0, index.messages - table->told)});
    table->told = index.messages;
    table->row = Clock::now();
}

// What rows have not told yet.
void TableIndexes::tellAll() {
    for (Table& table : tables_) {
        if (!table.isOut && table.indexer.has_value() && table.indexer->info().messages != table.told) {
            tell(&table);
        }
    }
}

// Covers what is new in a table.
void TableIndexes::look(Table* table) {
    const FileState now = stateOf(table->path);
    if (now == FileState{}) {
        return;  // it is gone, and may come again
    }
    std::error_code unknown;
    const bool isIndexThere = std::filesystem::exists(indexPath(table->path), unknown) || unknown;
    const bool isSameFile = now.device == table->seen.device && now.file == table->seen.file;
    try {
        if (!table->indexer.has_value() || !isSameFile || !isIndexThere) {
            console_.say(fmt::format("{} {}: its index is made anew", shownPath(table->path),
                                     isSameFile ? "has no index any more" : "was replaced by another file"));
            complete(table);
            listing_.end();
            return;
        }
        if (now != table->seen) {
            table->seen = now;
            static_cast<void>(table->indexer->keepUp(console_.watched("indexing " + shownPath(table->path))));
        }
        if (table->indexer->info().messages != table->told && Clock::now() - table->row > ROW_TIME) {
            tell(table);
        }
    } catch (const Error& error) {
        if (error.code() != Code::vseek) {  // emptied while it was read: the next round sees what is there
            table->isOut = true;
            console_.warn(fmt::format("the index of {} is kept no more: {}", shownPath(table->path), error.what()));
        }
    }
}

// False for a file that may become a table yet.
bool TableIndexes::addNew(const std::filesystem::path& path, bool isLastTry) {
    try {
        if (inspect(path).kind == TableKind::messages) {
            add(path, true);
            listing_.end();
            console_.say(fmt::format("{} is new, and its index is kept", shownPath(path)));
        }
        return true;
    } catch (const Error& error) {
        if (isLastTry) {
            console_.warn(fmt::format("left out: {}", error.what()));
        }
        return isLastTry;
    }
}

void TableIndexes::lookForNewTables(NewTables* tables) {
    for (const std::filesystem::path& path : tables->look()) {
        if (addNew(path, ++triesOfNew_[path] == TRIES)) {
            tables->know(path);
            triesOfNew_.erase(path);
        }
    }
}

void TableIndexes::keep(NewTables tables) {
    const auto isIn = [](const Table& table) { return !table.isOut; };
    try {
        while (tables.watchesFolders() || std::any_of(tables_.begin(), tables_.end(), isIn)) {
            pause();
            lookForNewTables(&tables);
            for (Table& table : tables_) {
                if (!table.isOut) {
                    look(&table);
                    Console::checkInterrupt();
                }
            }
        }
    } catch (const Interrupted&) {
        tellAll();
        throw;
    }
}

}  // namespace tabulo::tool
