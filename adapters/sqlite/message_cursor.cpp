#include "adapters/sqlite/message_cursor.h"

#include <algorithm>
#include <utility>

#include "adapters/sqlite/demand.h"
#include "adapters/sqlite/failure.h"

namespace tabulo::sqlite {

namespace {

MessageCursor* cursorOf(sqlite3_vtab_cursor* cursor) {
    return static_cast<MessageCursor*>(cursor);
}

int disconnect(sqlite3_vtab* table) {
    delete static_cast<MessageVirtualTable*>(table);
    return SQLITE_OK;
}

int closeCursor(sqlite3_vtab_cursor* cursor) {
    delete cursorOf(cursor);
    return SQLITE_OK;
}

int openCursor(sqlite3_vtab* table, sqlite3_vtab_cursor** cursor) {
    return guarded(&table->zErrMsg, [&] {
        *cursor = new MessageCursor(static_cast<MessageVirtualTable*>(table));
        return SQLITE_OK;
    });
}

int stepCursor(sqlite3_vtab_cursor* cursor) {
    return guarded(&cursor->pVtab->zErrMsg, [&] {
        cursorOf(cursor)->step();
        return SQLITE_OK;
    });
}

int isAtEnd(sqlite3_vtab_cursor* cursor) {
    return cursorOf(cursor)->isAtEnd() ? 1 : 0;
}

int giveColumn(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int column) {
    return guarded(&cursor->pVtab->zErrMsg, [&] {
        cursorOf(cursor)->giveColumn(context, column);
        return SQLITE_OK;
    });
}

int giveRowid(sqlite3_vtab_cursor* cursor, sqlite3_int64* rowid) {
    return guarded(&cursor->pVtab->zErrMsg, [&] {
        *rowid = cursorOf(cursor)->rowid();
        return SQLITE_OK;
    });
}

// Times of several units, which a file that has come since the plan was made can have, cannot be merged as numbers.
void checkUnits(const std::vector<Source>& sources) {
    const auto other = std::find_if(sources.begin(), sources.end(),
                                    [&](const Source& source) { return source.unit != sources.front().unit; });
    if (other != sources.end()) {
        throw Error({.code = Code::configMismatch,
                     .path = other->file->path(),
                     .detail = "its times have another unit than those of " + sources.front().file->path() +
                               "; it has come since the statement was prepared, which is to be done again"});
    }
}

}  // namespace

int MessageVirtualTable::numberOf(const Plan& plan) {
    const auto found = std::find(plans.begin(), plans.end(), plan);
    if (found != plans.end()) {
        return static_cast<int>(found - plans.begin());
    }
    plans.push_back(plan);
    return static_cast<int>(plans.size()) - 1;
}

MessageCursor::MessageCursor(MessageVirtualTable* table) : sqlite3_vtab_cursor{table}, table_(table) {
    table_->connection->cursorOpened();
}

MessageCursor::~MessageCursor() {
    grouped_.reset();
    stream_.reset();
    table_->connection->cursorClosed();
}

void MessageCursor::begin(const Plan& plan, std::shared_ptr<TableSet> tables, sqlite3_value** arguments,
                          std::string argument) {
    grouped_.reset();
    stream_.reset();
    source_ = nullptr;
    shown_ = {};
    tables_ = std::move(tables);
    argument_ = std::move(argument);
    const auto& files = tables_->files();
    const Demand demand(table_->connection->database(), plan, table_->columns, arguments);
    std::vector<Source> sources;
    for (std::size_t number = 0; number < files.size() && !demand.isEmpty(); ++number) {
        Source source{.number = number, .file = files[number].get(), .ordinals = {}};
        if (source.file == nullptr || !demand.mayHold(number, *source.file, &source.ordinals)) {
            continue;
        }
        source.unit = tables_->unitOf(*source.file);
        if (std::optional<Query> query = demand.query(source.file->reader().layout(), source.unit); query.has_value()) {
            source.query = *query;
            sources.push_back(std::move(source));
        }
    }
    if (plan.order == Order::isoTimes) {
        checkUnits(sources);
    }
    if (plan.order == Order::groups) {
        grouped_ = std::make_unique<GroupedRows>(
            GroupKeys(table_->columns, plan.groups), [connection = table_->connection, sources = std::move(sources)] {
                return std::make_unique<MessageStream>(*connection, sources, Order::rowids, false);
            });
        return;
    }
    stream_ = std::make_unique<MessageStream>(*table_->connection, std::move(sources), plan.order, plan.isBackward);
    step();
}

void MessageCursor::step() {
    if (grouped_ != nullptr) {
        grouped_->next();
        return;
    }
    shown_.message = nullptr;
    shown_.message = stream_->next();
    if (shown_.message != nullptr && source_ != &stream_->source()) {
        source_ = &stream_->source();
        shown_.path = &source_->file->path();
        shown_.unit = source_->unit;
    }
}

void MessageCursor::giveColumn(sqlite3_context* context, int column) const {
    const Column& asked = table_->columns[static_cast<std::size_t>(column)];
    if (asked.kind == ColumnKind::files) {
        sqlite3_result_text64(context, argument_.data(), argument_.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        return;
    }
    if (grouped_ != nullptr) {
        grouped_->give(context, column);
        return;
    }
    sqlite::giveColumn(context, asked, shown_);
}

sqlite3_int64 MessageCursor::rowid() {
    return grouped_ != nullptr ? grouped_->rowid() : rowidOf(*source_, *shown_.message);
}

int declare(sqlite3* database, std::unique_ptr<MessageVirtualTable> table, sqlite3_vtab** made) {
    const int code = sqlite3_declare_vtab(database, declarationOf(table->columns).c_str());
    if (code == SQLITE_OK) {
        sqlite3_vtab_config(database, SQLITE_VTAB_DIRECTONLY);
        *made = table.release();
    }
    return code;
}

void setCommonMethods(sqlite3_module* module) noexcept {
    module->xDisconnect = disconnect;
    module->xOpen = openCursor;
    module->xClose = closeCursor;
    module->xNext = stepCursor;
    module->xEof = isAtEnd;
    module->xColumn = giveColumn;
    module->xRowid = giveRowid;
}

}  // namespace tabulo::sqlite
